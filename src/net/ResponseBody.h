#pragma once

#include <QByteArray>
#include <QObject>
#include <QString>

class QNetworkReply;

// Takes the body of a network reply as it arrives, and no more of it than a bound, whatever the
// peer sends and however fast. By itself QNetworkAccessManager keeps all that comes in. Its thread
// does not notice an abort() while a peer sends faster than it reads. And it unpacks compressed
// bodies (RFC 9110, section 8.4) before anybody can count them: two megabytes on the wire can take
// two gigabytes of memory.
//
// Nothing bounds what comes before a body: a peer that sends header fields without end keeps the
// thread of the QNetworkAccessManager busy.
class ResponseBody final : public QObject {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(ResponseBody)

public:
    // reply: must have been made in this turn of the event loop, with nodeRequest(). limit: bytes,
    // of the body on the wire as well as unpacked.
    ResponseBody(QNetworkReply *reply, qint64 limit, QObject *parent = nullptr);

    // The body, unpacked, once the reply has finished; empty when there is a failure.
    QByteArray text();

    // Why there is no body: it is too large, or packed in a way that cannot be undone. Null when
    // there is no such reason. What else went wrong with the reply is for the reply to tell.
    QString failure() const;

signals:
    // More has arrived than the limit allows. Emitted once, before the reply has finished or while
    // it finishes; no more of the body is taken.
    void tooLarge();

private:
    void collect();

    QNetworkReply *const source;
    const qint64 maximum;
    QByteArray received;
    QString reason;
};
