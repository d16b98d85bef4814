#pragma once

#include <QByteArray>
#include <QString>

#include <chrono>

class QJsonObject;
class QNetworkAccessManager;
class QUrl;

// The synchronous requests of NmosClient. A call returns when its reply is complete and runs a
// nested event loop while it waits, so the windows stay alive and anything may happen meanwhile,
// further requests included: each waits one level higher. All of it belongs to the GUI thread.
//
// Two things end a wait before the reply is complete (see net/NestedWait.h): the closing of the
// program, and, for a request of an intake, that something of the operator's waits below it and can
// go on. The request is then aborted and counts as failed. So does every later one of the program,
// or of that intake, without being sent.

// How many requests may wait inside one another; one more is refused.
constexpr int maximumLevels = 4;

// A larger response body, as sent or unpacked, ends its request as failed. The largest real
// collections (ten thousand receivers with their constraint sets) stay below 32 MiB.
constexpr qint64 maximumResponseBody = 64 * 1024 * 1024;

// What the process's synchronous requests are doing.
struct RequestActivity {
    int levels; // in use, 0 to maximumLevels
    std::chrono::milliseconds waitTime; // of the request on the highest level; 0 when none waits
    bool closing; // the program is being closed: no request will be sent any more
};
RequestActivity requestActivity();

// Whether a request that begins now would be refused, and why: "Reentrant call depth exceeded" at
// maximumLevels, else because it is too late for it (see above). error may be null and stays
// untouched when the request would be sent.
bool isRequestRefused(QString *error = nullptr);

// GETs a URL and returns the response body; empty on any failure.
//
// status: receives the HTTP status when the reply reports no error, else stays untouched; a
// redirect, which is not followed, counts as no error. error: receives the reason when the request
// is refused (see isRequestRefused()), when the text names nothing that can be requested over HTTP,
// or when the reply reports an error (HTTP 4xx and 5xx included). Either may be null.
QByteArray syncGet(QNetworkAccessManager *manager, const QString &url, int *status = nullptr,
                   QString *error = nullptr);

// As syncGet(). When the answer is 401 and the URL has a user name, the request is sent once more
// with what authorizationFor() says, and that answer counts.
QByteArray syncGetWithCredentials(QNetworkAccessManager *manager, const QString &url,
                                  int *status = nullptr);

// PATCHes a URL with a JSON object, written compactly and with the members in ascending key order.
// Returns true when the reply reports no error, whatever its status; the response body is not read.
//
// status: receives the HTTP status, 0 when no response arrived; it stays untouched when the request
// is refused (see isRequestRefused()). error: receives the reason when the call returns false.
// Either may be null.
bool syncPatchJson(QNetworkAccessManager *manager, const QUrl &url, const QJsonObject &body,
                   int *status = nullptr, QString *error = nullptr);
