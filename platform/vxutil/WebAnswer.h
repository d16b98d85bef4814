#pragma once

#include <QByteArray>

#include <optional>

// What a web server answered (RFC 9112).
struct WebAnswer {
    int status; // 200 to 599 where the server keeps to the RFC
    QByteArray location; // where a redirect leads; else mostly empty
    QByteArray body; // without the framing of its transfer
};

// Reads the answer out of all that a server has sent. Nothing while it is incomplete, and nothing
// for what is no answer at all. A body without a length ends with the connection: then isClosed has
// to be true.
std::optional<WebAnswer> readWebAnswer(const QByteArray &received, bool isClosed);
