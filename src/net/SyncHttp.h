#pragma once

#include <QByteArray>
#include <QString>

#include <chrono>

class QJsonObject;
class QNetworkAccessManager;
class QUrl;

// The synchronous requests of NmosClient. A call returns when its
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
    std::chrono::milliseconds waitTime; // of the innermost one; 0 when none waits
    bool closing; // the program is being closed: no request will be sent any more
};
RequestActivity requestActivity();

// GETs a URL and returns the response body; empty on any failure.
//
// status: receives the HTTP status when the reply reports no error, else stays untouched; a
// redirect, which is not followed, counts as no error. error: receives the reason when the reply
// reports an error (HTTP 4xx and 5xx included), when the text names nothing that can be requested
// over HTTP, or, with "Reentrant call depth exceeded", when maximumRequestDepth requests wait
// already. Either may be null.
QByteArray syncGet(QNetworkAccessManager *manager, const QString &url, int *status = nullptr,
                   QString *error = nullptr);

// As syncGet(). When the answer is 401 and the URL has a user name, the request is sent once more
// with what authorizationFor() says, and that answer counts.
QByteArray syncGetWithCredentials(QNetworkAccessManager *manager, const QString &url,
                                  int *status = nullptr);

// PATCHes a URL with a JSON object, written compactly and with the members in ascending key order.
// Returns true when the reply reports no error, whatever its status; the response body is not read.
//
// status: receives the HTTP status, 0 when no response arrived. error: receives the reason when the
// call returns false. Either may be null. At maximumRequestDepth nothing is sent, the error is
// "Reentrant call depth exceeded" and the status stays untouched.
bool syncPatchJson(QNetworkAccessManager *manager, const QUrl &url, const QJsonObject &body,
                   int *status = nullptr, QString *error = nullptr);
