#include "ReleaseFeed.h"

#include "VxUtil.h"

#include <QEventLoop>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QTimer>

#include <algorithm>
#include <optional>

namespace {

constexpr qint64 maximumFeedSize = 64 * 1024;
constexpr int maximumRedirects = 3;

QNetworkRequest feedRequest(const QUrl &feed)
{
    QNetworkRequest request(feed);
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::NoLessSafeRedirectPolicy);
    request.setMaximumRedirectsAllowed(maximumRedirects);
    request.setRawHeader("User-Agent", "VxUtil/1");
    request.setRawHeader("Accept", "application/json");
    // A compressed answer could unpack to any size before it is counted.
    request.setRawHeader("Accept-Encoding", "identity");
    return request;
}

// Leaves the feed's text in body when the result is VXUTIL_NOT_NEWER, that is, when nothing failed.
int32_t fetch(const QUrl &feed, std::chrono::milliseconds limit, QByteArray *body)
{
    QNetworkAccessManager manager;
    QEventLoop loop;
    QTimer timer;
    timer.setSingleShot(true);
    timer.setTimerType(Qt::PreciseTimer);
    QObject::connect(&timer, &QTimer::timeout, &loop, &QEventLoop::quit);
    timer.start(limit);

    QNetworkReply *const reply = manager.get(feedRequest(feed));
    QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
    QObject::connect(reply, &QNetworkReply::readyRead, &loop, [reply, body, &loop] {
        *body += reply->read(maximumFeedSize + 1 - body->size());
        if (body->size() > maximumFeedSize) {
            loop.quit();
        }
    });
    // Without a limit the toolkit's thread reads on for as long as the feed sends faster than it
    // reads, and cannot be ended. It is lost on a request that has not begun, so this comes after
    // the event that begins it.
    QMetaObject::invokeMethod(
        reply, [reply] { reply->setReadBufferSize(maximumFeedSize + 1); }, Qt::QueuedConnection);
    // The caller's windows are not ready for the operator while they wait for this.
    loop.exec(QEventLoop::ExcludeUserInputEvents);

    if (body->size() > maximumFeedSize) {
        return VXUTIL_BAD_FEED;
    }
    if (!reply->isFinished()) {
        return VXUTIL_NO_ANSWER;
    }
    const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (status.isValid() && status.toInt() / 100 != 2) {
        return VXUTIL_REFUSED;
    }
    return reply->error() == QNetworkReply::NoError ? VXUTIL_NOT_NEWER : VXUTIL_NO_ANSWER;
}

// Nothing for any other text than one to four numbers with dots between them. The characters are
// looked at one by one, because the toolkit's conversion takes signs and blanks along.
std::optional<Version> readVersion(const QString &text)
{
    const bool plain = std::all_of(text.cbegin(), text.cend(), [](QChar c) {
        return c == QLatin1Char('.') || (c >= QLatin1Char('0') && c <= QLatin1Char('9'));
    });
    const QStringList parts = text.split(QLatin1Char('.'));
    Version version{};
    if (!plain || parts.size() > static_cast<int>(version.size())) {
        return std::nullopt;
    }
    auto number = version.begin();
    for (const QString &part : parts) {
        bool fits = false;
        *number++ = part.toInt(&fits);
        if (!fits) {
            return std::nullopt;
        }
    }
    return version;
}

// An empty text for anything but a web address: what the feed names is handed to the desktop to
// open, and must never be a file or a program.
QByteArray readWebAddress(const QJsonValue &value)
{
    const QUrl url(value.toString(), QUrl::StrictMode);
    const bool web =
        url.scheme() == QLatin1String("http") || url.scheme() == QLatin1String("https");
    return web && !url.host().isEmpty() ? url.toEncoded() : QByteArray();
}

} // namespace

int32_t readReleaseFeed(const QByteArray &body, const QString &application,
                        const Version &installed, Release *release)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(body, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject()) {
        return VXUTIL_BAD_FEED;
    }
    const QJsonValue entry = document.object().value(application);
    if (entry.isUndefined()) {
        return VXUTIL_NOT_NEWER;
    }
    const QJsonObject members = entry.toObject();
    const QString version = members.value(QLatin1String("version")).toString();
    const std::optional<Version> newest = readVersion(version);
    const QJsonValue notes = members.value(QLatin1String("notes"));
    const Release found = {version.toLatin1(),
                           readWebAddress(members.value(QLatin1String("download"))),
                           readWebAddress(notes)};
    if (!newest || found.download.isEmpty() || (found.notes.isEmpty() && !notes.isUndefined())) {
        return VXUTIL_BAD_FEED;
    }
    if (*newest <= installed) {
        return VXUTIL_NOT_NEWER;
    }
    *release = found;
    return VXUTIL_NEWER;
}

int32_t askReleaseFeed(const QUrl &feed, const QString &application, const Version &installed,
                       std::chrono::milliseconds limit, Release *release)
{
    QByteArray body;
    const int32_t fetched = fetch(feed, limit, &body);
    return fetched == VXUTIL_NOT_NEWER ? readReleaseFeed(body, application, installed, release)
                                       : fetched;
}
