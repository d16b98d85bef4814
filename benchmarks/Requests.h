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

// Records the requests that nodes receive, in the order of their arrival.
class Recorder final {
public:
    Recorder() = default;
    Q_DISABLE_COPY_MOVE(Recorder)

    // Records what this node receives. No request may come after the recorder is gone.
    void watch(SimulatedNode &node);
    // The requests since the last call.
    QList<Request> take();

private:
    std::mutex mutex;
    QList<Request> requests;
};

// Sends requests one after another with a QNetworkAccessManager that is left at its defaults, and
// reads the answers or parses them as JSON. Ends the program when one fails.
class BareManager final {
public:
    enum class Answers { Read, Parse };
    void replay(const QList<Request> &requests, Answers answers = Answers::Read);

private:
    QNetworkAccessManager manager;
};

// Does the same with one libcurl handle, which keeps its connections.
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
