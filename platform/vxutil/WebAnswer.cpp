#include "WebAnswer.h"

#include <QRegularExpression>

#include <algorithm>
#include <cctype>

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

// Takes a line that ends in CRLF or in LF alone; nothing while its end is missing.
std::optional<QByteArray> takeLine(const QByteArray &text, int *at)
{
    const int end = text.indexOf('\n', *at);
    if (end < 0) {
        return std::nullopt;
    }
    QByteArray line = text.mid(*at, end - *at);
    *at = end + 1;
    if (line.endsWith('\r')) {
        line.chop(1);
    }
    return line;
}

// Nothing for what is no status line.
std::optional<int> statusOf(const QByteArray &line)
{
    static const QRegularExpression pattern(QStringLiteral("^HTTP/1\\.[0-9] ([0-9]{3})(?: |$)"));
    const auto match = pattern.match(QString::fromLatin1(line));
    return match.hasMatch() ? std::optional<int>(match.captured(1).toInt()) : std::nullopt;
}

// Skips interim answers (1xx).
std::optional<Head> readHead(const QByteArray &received)
{
    Head head;
    do {
        int at = head.end;
        std::optional<QByteArray> line = takeLine(received, &at);
        const std::optional<int> status = line ? statusOf(*line) : std::nullopt;
        if (!status) {
            return std::nullopt;
        }
        head = Head();
        head.status = *status;
        line = takeLine(received, &at);
        while (line && !line->isEmpty()) {
            readField(*line, &head);
            line = takeLine(received, &at);
        }
        if (!line) {
            return std::nullopt;
        }
        head.end = at;
    } while (head.status / 100 == 1);
    return head;
}

// Nothing for a line that begins with anything but a hexadecimal number. (toInt() takes signs,
// blanks and "0x" along.)
std::optional<int> chunkSize(const QByteArray &line)
{
    const auto *const end = std::find_if_not(line.cbegin(), line.cend(), [](char c) {
        return std::isxdigit(static_cast<unsigned char>(c)) != 0;
    });
    const auto count = static_cast<int>(end - line.cbegin());
    const QByteArray rest = line.mid(count).trimmed();
    bool isNumber = false;
    const int size = line.left(count).toInt(&isNumber, 16);
    const bool isSize = isNumber && (rest.isEmpty() || rest.startsWith(';'));
    return isSize ? std::optional<int>(size) : std::nullopt;
}

// Trailers are ignored.
std::optional<QByteArray> readChunks(const QByteArray &received, int at)
{
    QByteArray body;
    while (const std::optional<QByteArray> line = takeLine(received, &at)) {
        const std::optional<int> size = chunkSize(*line);
        if (!size || *size > received.size() - at) {
            break;
        }
        if (*size == 0) {
            return body;
        }
        body += received.mid(at, *size);
        at += *size;
        const std::optional<QByteArray> end = takeLine(received, &at);
        if (!end || !end->isEmpty()) {
            break;
        }
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
    if (head->status / 100 != 2 || head->status == 204) {
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
