#include "net/SyncHttp.h"

#include "net/Authorization.h"
#include "net/NestedWait.h"
#include "net/NodeRequest.h"
#include "net/ResponseBody.h"

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

int requestDepth = 0; // levels in use

std::array<QElapsedTimer, maximumLevels> waitTimes;

// Occupies one level as long as it lives.
class Level final {
    Q_DISABLE_COPY_MOVE(Level)

public:
    Level()
    {
        waitTimes.at(static_cast<std::size_t>(requestDepth)).start();
        ++requestDepth;
    }

    ~Level()
    {
        --requestDepth;
    }
};

QString closingError()
{
    return QStringLiteral("The program is closing");
}

QString interruptedError()
{
    return QStringLiteral("Interrupted, to be asked again");
}

// Why a request is refused before anything is sent; null when it is not.
QString refusal()
{
    if (requestDepth >= maximumLevels) {
        return QStringLiteral("Reentrant call depth exceeded");
    }
    if (Closing::isUnderWay()) {
        return closingError();
    }
    return IntakeScope::isCurrentInterrupted() ? interruptedError() : QString();
}

// Waits until the reply has finished. Returns the reason why the request failed, null when it did
// not.
QString waitFor(const QPointer<QNetworkReply> &reply, const ResponseBody &body)
{
    QEventLoop loop;
    NestedWait wait([&loop] { loop.quit(); });
    const auto goOn = [&loop, &wait] {
        loop.quit();
        wait.noteAnswer();
    };
    QObject::connect(reply, &QNetworkReply::finished, &loop, goOn);
    QObject::connect(reply, &QObject::destroyed, &loop, goOn);
    QObject::connect(&body, &ResponseBody::tooLarge, &loop, goOn);
    if (!reply->isFinished()) {
        loop.exec();
    }
    if (!reply) {
        return QStringLiteral("The request was dropped");
    }
    QString failure = body.failure();
    if (failure.isNull() && !reply->isFinished()) {
        failure = wait.isInterrupted() ? interruptedError() : closingError();
        if (!wait.isInterrupted()) {
            Closing::noteQuitting();
        }
    }
    if (!failure.isNull()) {
        // The result is known; ignore what abort() emits.
        reply->disconnect(&loop);
        reply->abort();
        return failure;
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
    if (isRequestRefused(error)) {
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
        requestDepth > 0 ? waitTimes.at(static_cast<std::size_t>(requestDepth) - 1).elapsed() : 0;
    return {requestDepth, std::chrono::milliseconds(waitTime), Closing::isUnderWay()};
}

bool isRequestRefused(QString *error)
{
    const QString reason = refusal();
    if (!reason.isNull() && error) {
        *error = reason;
    }
    return !reason.isNull();
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
    if (isRequestRefused(error)) {
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
