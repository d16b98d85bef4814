#pragma once

#include <QByteArray>
#include <QString>
#include <QUrl>

class QJsonObject;
class QNetworkAccessManager;

// The synchronous requests that every exchange with a node is made of. A call returns when its
// reply is complete, and runs a nested event loop while it waits, so the windows stay alive and
// anything may happen meanwhile, further requests included. All of it belongs to the GUI thread.
//
// A wait also ends when the program closes: the request is then aborted and counts as failed, and
// so does every later one, without being sent.

// How many requests may wait inside one another; one more is refused.
constexpr int maximumRequestDepth = 4;

// A larger response body, as sent or unpacked, ends its request as failed. The largest real
// collections (ten thousand receivers with their constraint sets) stay below 32 MiB.
constexpr qint64 maximumResponseBody = 64 * 1024 * 1024;

// What the process's synchronous requests are doing.
struct RequestActivity {
    int depth; // requests that wait at the moment, 0 to maximumRequestDepth
    qint64 waitTime; // milliseconds that the innermost of them has waited; 0 when there is none
    bool closing; // the program is being closed: no request will be sent any more
};
RequestActivity requestActivity();

// Puts the IPv6 literal host of a URL text in brackets: "http://fe80::1:8080/x" becomes
// "http://[fe80::1]:8080/x". A host is taken for an IPv6 literal when it holds "::" and does not
// begin with a bracket; what follows its last ':' is the port when it is an integer. Any other text
// comes back unchanged.
//
// A zone identifier ends the address, as in RFC 4007, and is written into the URL as RFC 6874 has
// it: "fe80::1%eth0:8080" becomes "[fe80::1%25eth0]:8080". So only a port that follows the zone is
// a port. A zone that the text already spells "%25eth0" is taken as it stands.
QString normalizeUrl(const QString &url);

// What is requested when a text is to be requested: the toolkit's guess at what it means, once it
// is normalized, as long as that is an http or https URL. Anything else gives an invalid URL.
QUrl requestUrl(const QString &text);

// GETs a URL and returns the response body; empty on any failure.
//
// status: receives the HTTP status when the reply reports no error, else stays untouched; a
// redirect, which is not followed, counts as no error. error: receives the reason when the reply
// reports an error (HTTP 4xx and 5xx included), when the text names nothing that can be requested
// over HTTP, or, with "Reentrant call depth exceeded", when maximumRequestDepth requests wait
// already. Either may be null.
QByteArray syncGet(QNetworkAccessManager *manager, const QString &url, int *status = nullptr,
                   QString *error = nullptr);

// PATCHes a URL with a JSON object, written compactly and with the members in ascending key order.
// Returns true when the reply reports no error, whatever its status; the response body is not read.
//
// status: receives the HTTP status, 0 when no response arrived. error: receives the reason when the
// call returns false. Either may be null. At maximumRequestDepth nothing is sent, the error is
// "Reentrant call depth exceeded" and the status stays untouched.
bool syncPatchJson(QNetworkAccessManager *manager, const QUrl &url, const QJsonObject &body,
                   int *status = nullptr, QString *error = nullptr);
