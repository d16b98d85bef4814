#pragma once

#include <QNetworkRequest>
#include <QString>
#include <QUrl>

#include <optional>

class QNetworkAccessManager;

// How a node is asked: the manager, the URL and what the request says.

// Configures a manager for nodes. Every request goes straight to its address: the proxies that the
// environment names (http_proxy and its like) are for the web, and would answer for a node or fail.
// Cookies are neither kept nor sent.
void prepareForNodes(QNetworkAccessManager &manager);

// Puts the IPv6 literal host of a URL text in brackets: "http://fe80::1:8080/x" becomes
// "http://[fe80::1]:8080/x". A host is taken for an IPv6 literal when it holds "::" and does not
// begin with a bracket; what follows its last ':' is the port when it is an integer. Any other text
// comes back unchanged.
//
// A zone identifier ends the address, as in RFC 4007, and is written into the URL as in RFC 6874:
// "fe80::1%eth0:8080" becomes "[fe80::1%25eth0]:8080". So only a port that follows the zone is a
// port. A zone written as "%25eth0" is kept, unless this machine has an interface of that
// name: "fe80::1%25g0" means "25g0" where there is one.
QString normalizeUrl(const QString &url);

// The URL to request for a text that was typed or that a node sent: normalizeUrl(), then
// QUrl::fromUserInput(). Invalid unless the result is http or https.
QUrl requestUrl(const QString &text);

// Percent-encodes a node's text so that it is one segment of the path of an encoded URL (RFC 3986,
// section 3.3). Nothing for "." and "..": encoded or not, they name another path.
std::optional<QString> pathSegment(const QString &text);

// The request for a URL. It differs from what QNetworkAccessManager sends by default: bodies are
// not decompressed (see ResponseBody), the Host header has no zone (RFC 6874, section 4), the URL's
// user name and password are dropped, and no challenge is answered (see authorizationFor()).
QNetworkRequest nodeRequest(const QUrl &url);
