#pragma once

#include <QObject>
#include <QQueue>

#include <functional>

class QNetworkReply;

// Lets requests begin in the order in which they were put in, and not too many at once: a plant
// that is switched on has a thousand nodes announced in one second, and each connection takes a
// descriptor of the process.
//
// 64 requests wait for their answers at a time. One that has had none for a second gives up its
// place and goes on: hanging nodes hold up those behind them by a second for every 64, and no
// longer. What has begun and not ended, hanging or not, never takes more than half of the
// process's descriptors; when it does, the others wait until some end. Not counted is what Qt keeps
// of a connection that has failed: its descriptor, for two more minutes.
class RequestGate final : public QObject {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(RequestGate)

public:
    // Sends the request. Called once, from enqueue() or from the event loop.
    using Begin = std::function<QNetworkReply *()>;

    RequestGate() = default;

    void enqueue(const Begin &begin);
    // Drops the requests that have not begun.
    void clear();

private:
    void beginNext();
    void watch(QNetworkReply *reply);

    QQueue<Begin> waiting;
    int open = 0; // begun, and not ended
    int placed = 0; // of those, the ones that hold a place
};
