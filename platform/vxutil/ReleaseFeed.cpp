#include "ReleaseFeed.h"

#include "VxUtil.h"
#include "WebAnswer.h"

#include <QDeadlineTimer>
#include <QEventLoop>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkProxy>
#include <QSslSocket>
#include <QTimer>

#include <algorithm>
#include <optional>

namespace {

constexpr int maximumAnswer = 64 * 1024;
constexpr int maximumRedirects = 3;

const QLatin1String http("http");
const QLatin1String https("https");

// Where a request goes. https: to the server, through the socket's proxy. http with an HTTP proxy:
// to the proxy with the full URL, because many refuse CONNECT to port 80.
struct Route {
    QString host;
    quint16 port;
    QNetworkProxy proxy; // one that the socket talks to, or none
    bool asksProxy;
    QByteArray credentials; // for a proxy that is asked
};

Route routeTo(const QUrl &address)
{
    const bool isSecure = address.scheme() == https;
    const QNetworkProxy proxy =
        QNetworkProxyFactory::systemProxyForQuery(QNetworkProxyQuery(address)).value(0);
    const bool isHttp =
        proxy.type() == QNetworkProxy::HttpProxy || proxy.type() == QNetworkProxy::HttpCachingProxy;
    if (!isHttp || isSecure) {
        const auto port = static_cast<quint16>(address.port(isSecure ? 443 : 80));
        return {address.host(), port, proxy, false, {}};
    }
    QByteArray credentials;
    if (!proxy.user().isEmpty()) {
        const QString pair = proxy.user() + QLatin1Char(':') + proxy.password();
        credentials = pair.toUtf8().toBase64();
    }
    return {proxy.hostName(), proxy.port(), QNetworkProxy::NoProxy, true, credentials};
}

QByteArray requestFor(const QUrl &address, const Route &route)
{
    constexpr auto notAuthority =
        QUrl::RemoveScheme | QUrl::RemoveUserInfo | QUrl::RemovePath | QUrl::RemoveQuery;
    QUrl target = address.adjusted(QUrl::RemoveUserInfo | QUrl::RemoveFragment);
    if (target.path().isEmpty()) {
        target.setPath(QStringLiteral("/"));
    }
    const QByteArray host = target.toEncoded(notAuthority).mid(2);
    const QByteArray name = route.asksProxy
        ? target.toEncoded()
        : target.toEncoded(QUrl::RemoveScheme | QUrl::RemoveAuthority);
    const QByteArray authorization = route.credentials.isEmpty()
        ? QByteArray()
        : "Proxy-Authorization: Basic " + route.credentials + "\r\n";
    return "GET " + name + " HTTP/1.1\r\nHost: " + host + "\r\n" + authorization
        + "User-Agent: VxUtil/1\r\nAccept: application/json\r\nAccept-Encoding: identity\r\n"
          "Connection: close\r\n\r\n";
}

// Sends one request and returns what came back, at the latest when the time is over: the whole
// answer, or as much of it as came, or more than the maximum.
//
// On sockets of the calling thread, because QNetworkAccessManager reads an answer on a thread that
// cannot be stopped, and works off the fields of its head on the calling one: its destructor waits
// five seconds for a thread that reads an endless head, and 20,000 cookies take 80 seconds.
QByteArray exchange(const QUrl &address, const QDeadlineTimer &deadline, bool *isClosed)
{
    const Route route = routeTo(address);
    QSslSocket socket;
    QEventLoop loop;
    QByteArray received;
    const auto send = [&socket, &address, &route] {
        socket.write(requestFor(address, route));
    };
    const bool isSecure = address.scheme() == https;
    if (isSecure) {
        QObject::connect(&socket, &QSslSocket::encrypted, &loop, send);
    } else {
        QObject::connect(&socket, &QSslSocket::connected, &loop, send);
    }
    QObject::connect(&socket, &QSslSocket::readyRead, &loop, [&socket, &loop, &received] {
        received += socket.read(maximumAnswer + 1 - received.size());
        if (received.size() > maximumAnswer || readWebAnswer(received, false)) {
            loop.quit();
        }
    });
    QObject::connect(&socket, &QSslSocket::disconnected, &loop, &QEventLoop::quit);
    QObject::connect(&socket, &QSslSocket::errorOccurred, &loop, &QEventLoop::quit);
    QTimer timer;
    timer.setTimerType(Qt::PreciseTimer);
    QObject::connect(&timer, &QTimer::timeout, &loop, &QEventLoop::quit);
    timer.start(std::chrono::milliseconds(deadline.remainingTime()));

    socket.setProxy(route.proxy);
    socket.setReadBufferSize(maximumAnswer);
    // From within the loop: an immediate failure would quit() before exec().
    QTimer::singleShot(0, &socket, [&socket, &route, isSecure] {
        isSecure ? socket.connectToHostEncrypted(route.host, route.port)
                 : socket.connectToHost(route.host, route.port);
    });
    // The caller's window is still under construction.
    loop.exec(QEventLoop::ExcludeUserInputEvents);
    *isClosed = socket.error() == QAbstractSocket::RemoteHostClosedError;
    socket.disconnect(&loop);
    return received;
}

// Where the answer redirects to; an invalid address when it is no redirect, or one that is not
// followed: from https to http, or to another protocol.
QUrl redirection(const QUrl &from, const WebAnswer &answer)
{
    constexpr std::array redirects = {301, 302, 303, 307, 308};
    const bool isRedirect = !answer.location.isEmpty()
        && std::find(redirects.begin(), redirects.end(), answer.status) != redirects.end();
    const QUrl to = from.resolved(QUrl::fromEncoded(answer.location, QUrl::StrictMode));
    const bool isFollowed = to.scheme() == https || (to.scheme() == http && from.scheme() == http);
    return isRedirect && isFollowed && !to.host().isEmpty() ? to : QUrl();
}

// The feed's text; nothing, and the reason in failure, when there is none.
std::optional<QByteArray> fetch(QUrl address, std::chrono::milliseconds limit, int32_t *failure)
{
    const QDeadlineTimer deadline(limit, Qt::PreciseTimer);
    *failure = VXUTIL_REFUSED;
    for (int redirects = 0; redirects <= maximumRedirects && address.isValid(); ++redirects) {
        bool isClosed = false;
        const QByteArray received = exchange(address, deadline, &isClosed);
        const std::optional<WebAnswer> answer = readWebAnswer(received, isClosed);
        if (answer && answer->status / 100 != 2) {
            address = redirection(address, *answer);
            continue;
        }
        if (answer && received.size() <= maximumAnswer) {
            return answer->body;
        }
        *failure = received.size() > maximumAnswer ? VXUTIL_BAD_FEED : VXUTIL_NO_ANSWER;
        break;
    }
    return std::nullopt;
}

// Nothing for any other text than one to four numbers with dots between them. The characters are
// looked at one by one, because QString::toInt() takes signs and blanks along.
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
    const bool web = url.scheme() == http || url.scheme() == https;
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
    int32_t failure = VXUTIL_NO_ANSWER;
    const std::optional<QByteArray> body = fetch(feed, limit, &failure);
    return body ? readReleaseFeed(*body, application, installed, release) : failure;
}
