#include "net/SyncHttp.h"

#include "net/Authorization.h"
#include "net/NodeRequest.h"
#include "net/ResponseBody.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QPointer>
#include <QUrl>

#include <array>

namespace {

int requestDepth = 0;

// Set while the program closes, from the first wait that this ends until the outermost event loop
// has returned. The commands that waited go on with their next steps, and none of those may reach a
// node.
bool closing = false;

std::array<QElapsedTimer, maximumRequestDepth> waits;

// One place among the nested waits, held as long as the object lives.
class Level final {
    Q_DISABLE_COPY_MOVE(Level)

public:
    Level()
    {
        waits.at(static_cast<std::size_t>(requestDepth)).start();
        ++requestDepth;
    }

    ~Level()
    {
        --requestDepth;
    }
};

bool mayStart(QString *error)
{
    QString reason;
    if (requestDepth >= maximumRequestDepth) {
        reason = QStringLiteral("Reentrant call depth exceeded");
    } else if (closing) {
        reason = QStringLiteral("The program is closing");
    } else {
        return true;
    }
    if (error) {
        *error = reason;
    }
    return false;
}

void noteClosing()
{
    if (!closing) {
        closing = true;
        QObject::connect(
            qApp, &QCoreApplication::aboutToQuit, qApp, [] { closing = false; },
            Qt::DirectConnection);
    }
}

// Waits until the reply has finished. Returns the reason why the request failed, null when it did
// not.
QString waitFor(const QPointer<QNetworkReply> &reply, const ResponseBody &body)
{
    QEventLoop loop;
    QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
    QObject::connect(reply, &QObject::destroyed, &loop, &QEventLoop::quit);
    QObject::connect(&body, &ResponseBody::tooLarge, &loop, &QEventLoop::quit);
    if (!reply->isFinished()) {
        loop.exec();
    }
    if (!reply) {
        return QStringLiteral("The request was dropped");
    }
    const bool isFailed = !body.failure().isNull();
    if (isFailed || !reply->isFinished()) {
        if (!isFailed) {
            noteClosing();
        }
        // The outcome is decided: what the reply says once it is aborted plays no part.
        reply->disconnect(&loop);
        reply->abort();
        return isFailed ? body.failure() : QStringLiteral("The program is closing");
    }
    return reply->error() == QNetworkReply::NoError ? QString() : reply->errorString();
}

int statusOf(const QNetworkReply *reply)
{
    return reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
}

// As syncGet(). authorization: the header of that name, or empty. challenges: receives the
// WWW-Authenticate header of a 401 answer; may be null.
QByteArray get(QNetworkAccessManager *manager, const QString &url, int *status, QString *error,
               const QByteArray &authorization = {}, QByteArray *challenges = nullptr)
{
    if (!mayStart(error)) {
        return {};
    }
    const Level level;
    const QUrl target = requestUrl(url);
    if (!target.isValid()) {
        if (error) {
            *error = QStringLiteral("Not an HTTP address: %1").arg(url);
        }
        return {};
    }
    QNetworkRequest request = nodeRequest(target);
    if (!authorization.isEmpty()) {
        request.setRawHeader("Authorization", authorization);
    }
    const QPointer<QNetworkReply> reply = manager->get(request);
    ResponseBody body(reply, maximumResponseBody);
    QString failure = waitFor(reply, body);
    QByteArray text;
    if (failure.isNull()) {
        text = body.text();
        failure = body.failure();
    }
    if (failure.isNull()) {
        if (status) {
            *status = statusOf(reply);
        }
    } else if (error) {
        *error = failure;
    }
    if (reply && challenges && statusOf(reply) == 401) {
        *challenges = reply->rawHeader("WWW-Authenticate");
    }
    if (reply) {
        reply->deleteLater();
    }
    return text;
}

} // namespace

RequestActivity requestActivity()
{
    const qint64 waitTime =
        requestDepth > 0 ? waits.at(static_cast<std::size_t>(requestDepth) - 1).elapsed() : 0;
    return {requestDepth, std::chrono::milliseconds(waitTime), closing};
}

QByteArray syncGet(QNetworkAccessManager *manager, const QString &url, int *status, QString *error)
{
    return get(manager, url, status, error);
}

QByteArray syncGetWithCredentials(QNetworkAccessManager *manager, const QString &url, int *status)
{
    QByteArray challenges;
    const QByteArray text = get(manager, url, status, nullptr, {}, &challenges);
    const QByteArray authorization = authorizationFor(requestUrl(url), challenges);
    return authorization.isEmpty() ? text : get(manager, url, status, nullptr, authorization);
}

bool syncPatchJson(QNetworkAccessManager *manager, const QUrl &url, const QJsonObject &body,
                   int *status, QString *error)
{
    if (!mayStart(error)) {
        return false;
    }
    // Qt writes header and body separately and leaves Nagle's algorithm on. On a connection that
    // was used before, the body waits some 40 ms for the peer's delayed acknowledgement; on a fresh
    // one it is acknowledged at once. Dropping the idle connections also drops those that other
    // requests wait on, so it is done only while there are none.
    if (requestDepth == 0) {
        manager->clearConnectionCache();
    }
    const Level level;
    QNetworkRequest request = nodeRequest(url);
    request.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("application/json"));
    const QPointer<QNetworkReply> reply = manager->sendCustomRequest(
        request, QByteArrayLiteral("PATCH"), QJsonDocument(body).toJson(QJsonDocument::Compact));
    const ResponseBody unread(reply, maximumResponseBody);
    const QString failure = waitFor(reply, unread);
    if (!failure.isNull() && error) {
        *error = failure;
    }
    if (status) {
        *status = reply ? statusOf(reply) : 0;
    }
    if (reply) {
        reply->deleteLater();
    }
    return failure.isNull();
}
