#include "net/ResponseBody.h"

#include <QNetworkReply>

#include <zlib.h>

#include <array>

namespace {

// How much QNetworkReply buffers before we read. Each read costs a turn of the event loop, and the
// network thread pauses meanwhile.
constexpr qint64 readAhead = 1024 * 1024;
// QNetworkReply keeps each chunk of a chunked body apart, and handing them over costs the square of
// their number: with more, a peer that sends one byte a chunk would hold up the event loop.
constexpr qint64 readAheadInChunks = 64 * 1024;

constexpr int gzipOrZlib = MAX_WBITS + 32;
// Some servers send "deflate" without its wrapper.
constexpr int rawDeflate = -MAX_WBITS;

// Null when the bytes are not in that format or not whole. Stops once there is more than the limit.
QByteArray inflated(const QByteArray &packed, int format, qint64 limit)
{
    z_stream stream{};
    if (inflateInit2(&stream, format) != Z_OK) {
        return {};
    }
    // zlib only reads it.
    stream.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(packed.constData()));
    stream.avail_in = static_cast<uInt>(packed.size());
    std::array<char, 64 * 1024> piece;
    QByteArray text("");
    int result = Z_OK;
    while (result == Z_OK && text.size() <= limit) {
        stream.next_out = reinterpret_cast<Bytef *>(piece.data());
        stream.avail_out = static_cast<uInt>(piece.size());
        result = inflate(&stream, Z_NO_FLUSH);
        text.append(piece.data(), static_cast<int>(piece.size() - stream.avail_out));
    }
    inflateEnd(&stream);
    return result == Z_OK || result == Z_STREAM_END ? text : QByteArray();
}

} // namespace

ResponseBody::ResponseBody(QNetworkReply *reply, qint64 limit, QObject *parent)
    : QObject(parent)
    , source(reply)
    , maximum(limit)
{
    // Qt ignores the limit until the request has started, from an event that is already posted;
    // this comes after it.
    QMetaObject::invokeMethod(
        reply, [reply] { reply->setReadBufferSize(readAheadInChunks); }, Qt::QueuedConnection);
    connect(reply, &QNetworkReply::readyRead, this, &ResponseBody::collect);
    connect(reply, &QNetworkReply::finished, this, &ResponseBody::collect);
}

QByteArray ResponseBody::text()
{
    const QByteArray encoding = source->rawHeader("Content-Encoding").trimmed().toLower();
    const bool isPacked = encoding == "gzip" || encoding == "x-gzip" || encoding == "deflate";
    if (!reason.isNull() || !isPacked || received.isEmpty()) {
        return received;
    }
    QByteArray text = inflated(received, gzipOrZlib, maximum);
    if (text.isNull()) {
        text = inflated(received, rawDeflate, maximum);
    }
    if (text.isNull()) {
        reason = QStringLiteral("The response cannot be unpacked");
    } else if (text.size() > maximum) {
        reason = QStringLiteral("The response is too large");
        text.clear();
    }
    return text;
}

QString ResponseBody::failure() const
{
    return reason;
}

void ResponseBody::collect()
{
    if (!reason.isNull()) {
        return;
    }
    if (!source->isFinished()) {
        // Each read wakes the network thread; a small body is read once, at the end.
        if (source->bytesAvailable() < source->readBufferSize() / 2) {
            return;
        }
        // The thread waits at the old limit until something is read.
        if (!source->hasRawHeader("Transfer-Encoding")) {
            source->setReadBufferSize(readAhead);
        }
    }
    // An aborted reply is finished and closed: there is nothing to read.
    if (source->isOpen()) {
        received.append(source->readAll());
    }
    if (received.size() > maximum) {
        received.clear();
        reason = QStringLiteral("The response is too large");
        emit tooLarge();
    }
}
