#pragma once

#include <QString>

#include <optional>

class QNetworkAccessManager;

// Makes the manager ask nodes the way a node has to be asked. Every request goes straight to its
// address: the proxy variables of the environment (http_proxy and its like) mean the web, and a
// proxy there would answer for a node, or nobody would. Cookies are neither kept nor sent.
void prepareForNodes(QNetworkAccessManager &manager);

// A node's text as one segment of the path of an encoded URL (RFC 3986, section 3.3): what would
// end the segment or mean something else in it is percent-encoded, as UTF-8. Nothing for "." and
// "..", which name another place however they are encoded.
std::optional<QString> pathSegment(const QString &text);
