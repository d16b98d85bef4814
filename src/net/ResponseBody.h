#pragma once

#include <QByteArray>
#include <QObject>
#include <QString>

class QNetworkReply;

// Reads a reply's body as it arrives, up to a limit. QNetworkAccessManager alone buffers
// everything, ignores abort() while a peer sends faster than it reads, and decompresses (RFC 9110,
// section 8.4) before the size can be checked: two megabytes can become two gigabytes.
//
// The head of an answer has no limit: a peer that sends header fields without end keeps the thread
// of the QNetworkAccessManager busy.
class ResponseBody final : public QObject {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(ResponseBody)

public:
    // reply: must have been made in this turn of the event loop, with nodeRequest(). limit: bytes,
    // of the body on the wire as well as decompressed.
    ResponseBody(QNetworkReply *reply, qint64 limit, QObject *parent = nullptr);

    // The body, decompressed, once the reply has finished; empty when there is a failure.
    QByteArray text();

    // Why there is no body: too large, or cannot be decompressed; else null. Other errors are the
    // reply's.
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
