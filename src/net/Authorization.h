#pragma once

#include <QByteArray>

class QUrl;

// The Authorization header for a GET of the URL, with the URL's user name and password, that
// answers a WWW-Authenticate header: Digest (RFC 7616, with MD5) or, where the header
// offers no such, Basic (RFC 7617). Empty when the URL names no user or the header offers neither.
//
// Not by QNetworkAccessManager, which keeps credentials for later requests, to other paths and with
// other credentials as well, and answers a server that calls each of its answers stale some 2,500
// times a second.
QByteArray authorizationFor(const QUrl &url, const QByteArray &challenges);
