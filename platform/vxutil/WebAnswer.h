#pragma once

#include <QByteArray>

#include <optional>

// What a web server answered (RFC 9112).
struct WebAnswer {
    int status; // three digits, not 1xx
    QByteArray location; // the Location header, or empty
    QByteArray body; // without the framing of its transfer; empty unless the status is 2xx
};

// Reads the answer out of all that a server has sent. Lines may end in LF alone. No value while the
// answer is incomplete or when it is not HTTP; an answer with a status other than 2xx is complete
// with its head. A body without a length ends with the connection: then isClosed has to be true.
std::optional<WebAnswer> readWebAnswer(const QByteArray &received, bool isClosed);
