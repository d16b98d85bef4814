#include "WebAnswer.h"

#include <QList>

namespace {

struct Head {
    int status = 0;
    int end = 0; // where the body begins
    bool isChunked = false;
    std::optional<int> length;
    QByteArray location;
};

void readField(const QByteArray &line, Head *head)
{
    const int colon = line.indexOf(':');
    const QByteArray name = line.left(colon).toLower();
    const QByteArray value = line.mid(colon + 1).trimmed();
    if (name == "location") {
        head->location = value;
    } else if (name == "transfer-encoding") {
        head->isChunked = value.toLower().endsWith("chunked");
    } else if (name == "content-length") {
        bool isNumber = false;
        const int length = value.toInt(&isNumber);
        if (isNumber && length >= 0) {
            head->length = length;
        }
    }
}

// The head that counts: interim answers (1xx) come before it.
std::optional<Head> readHead(const QByteArray &received)
{
    const QByteArray version("HTTP/1.1 ");
    Head head;
    do {
        const int begin = head.end;
        const int end = received.indexOf("\r\n\r\n", begin);
        if (end < 0 || received.mid(begin, 7) != version.left(7)) {
            return std::nullopt;
        }
        head = Head();
        head.status = received.mid(begin + version.size(), 3).toInt();
        head.end = end + 4;
        const QList<QByteArray> lines = received.mid(begin, end - begin).split('\n');
        for (const QByteArray &line : lines) {
            readField(line, &head);
        }
    } while (head.status / 100 == 1);
    return head;
}

// Trailer fields are left where they are.
std::optional<QByteArray> readChunks(const QByteArray &received, int begin)
{
    QByteArray body;
    for (int end = received.indexOf("\r\n", begin); end >= 0;
         end = received.indexOf("\r\n", begin)) {
        const QByteArray line = received.mid(begin, end - begin);
        bool isNumber = false;
        const int size = line.split(';').constFirst().trimmed().toInt(&isNumber, 16);
        begin = end + 2;
        if (isNumber && size == 0) {
            return body;
        }
        if (!isNumber || size < 0 || size > received.size() - begin) {
            break;
        }
        body += received.mid(begin, size);
        begin += size + 2;
    }
    return std::nullopt;
}

} // namespace

std::optional<WebAnswer> readWebAnswer(const QByteArray &received, bool isClosed)
{
    const std::optional<Head> head = readHead(received);
    if (!head) {
        return std::nullopt;
    }
    WebAnswer answer{head->status, head->location, {}};
    if (head->status == 204 || head->status == 304) {
        return answer;
    }
    if (head->isChunked) {
        const std::optional<QByteArray> body = readChunks(received, head->end);
        if (!body) {
            return std::nullopt;
        }
        answer.body = *body;
        return answer;
    }
    const int available = received.size() - head->end;
    if (head->length ? *head->length > available : !isClosed) {
        return std::nullopt;
    }
    answer.body = received.mid(head->end, head->length.value_or(available));
    return answer;
}
