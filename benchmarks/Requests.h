#pragma once

#include "SimulatedNode.h"

#include <QByteArray>
#include <QList>
#include <QNetworkAccessManager>
#include <QUrl>

#include <memory>
#include <mutex>

struct Request {
    QByteArray method;
    QUrl url;
    QByteArray body;
};

// Notes what nodes are asked, all in one order.
class Recorder final {
public:
    Recorder() = default;
    Q_DISABLE_COPY_MOVE(Recorder)

    // The node must not be asked any more once the recorder is gone.
    void watch(SimulatedNode &node);
    // What was asked since the last call.
    QList<Request> take();

private:
    std::mutex mutex;
    QList<Request> requests;
};

// Sends the requests one after another as the toolkit does on its own, and reads the answers;
// parses them as JSON when asked to. Ends the program when one fails.
class BareManager final {
public:
    enum class Answers { Read, Parse };
    void replay(const QList<Request> &requests, Answers answers = Answers::Read);

private:
    QNetworkAccessManager manager;
};

// The same by libcurl on one handle that keeps its connections.
class CurlHandle final {
public:
    CurlHandle();
    ~CurlHandle();
    Q_DISABLE_COPY_MOVE(CurlHandle)

    void replay(const QList<Request> &requests);

private:
    struct Private;
    const std::unique_ptr<Private> d;
};
