#include "net/NodeRequest.h"

#include <QNetworkAccessManager>
#include <QNetworkCookie>
#include <QNetworkCookieJar>
#include <QNetworkInterface>
#include <QNetworkProxy>

#include <algorithm>

namespace {

class EmptyJar final : public QNetworkCookieJar {
    Q_DISABLE_COPY_MOVE(EmptyJar)

public:
    using QNetworkCookieJar::QNetworkCookieJar;

    QList<QNetworkCookie> cookiesForUrl(const QUrl & /*url*/) const override
    {
        return {};
    }

    bool setCookiesFromUrl(const QList<QNetworkCookie> & /*cookies*/, const QUrl & /*url*/) override
    {
        return false;
    }
};

// Splits ":port" off the end of an address, when what follows its last ':' is an integer.
QString takePort(QString *address)
{
    const int colon = address->lastIndexOf(QLatin1Char(':'));
    const QString tail = address->mid(colon + 1);
    bool isNumber = false;
    const int port = tail.toInt(&isNumber);
    if (colon < 0 || !isNumber) {
        return {};
    }
    address->truncate(colon);
    return QLatin1Char(':') + QString::number(port);
}

// The zone of "%zone", ready for a URL.
QString encodedZone(const QString &zone)
{
    const bool isIndex = std::all_of(zone.begin(), zone.end(), [](QChar c) { return c.isDigit(); });
    const bool isEncoded = !isIndex && zone.startsWith(QLatin1String("25"))
        && QNetworkInterface::interfaceIndexFromName(zone) == 0;
    return QLatin1String("%25") + (isEncoded ? zone.mid(2) : zone);
}

QString bracketed(QString authority)
{
    const int percent = authority.indexOf(QLatin1Char('%'));
    if (percent < 0) {
        const QString port = takePort(&authority);
        return QLatin1Char('[') + authority + QLatin1Char(']') + port;
    }
    QString zone = authority.mid(percent + 1);
    const QString port = takePort(&zone);
    return QLatin1Char('[') + authority.left(percent) + encodedZone(zone) + QLatin1Char(']') + port;
}

// The Host header for an address with a zone; empty for any other, whose header Qt gets right.
QByteArray hostWithoutZone(const QUrl &url)
{
    const QString host = url.host();
    const int zone = host.indexOf(QLatin1Char('%'));
    if (zone < 0 || !host.contains(QLatin1Char(':'))) {
        return {};
    }
    const QByteArray address = '[' + host.left(zone).toLatin1() + ']';
    return url.port() < 0 ? address : address + ':' + QByteArray::number(url.port());
}

} // namespace

void prepareForNodes(QNetworkAccessManager &manager)
{
    manager.setProxy(QNetworkProxy(QNetworkProxy::NoProxy));
    manager.setCookieJar(new EmptyJar(&manager));
}

QString normalizeUrl(const QString &url)
{
    const QLatin1String separator("://");
    const int schemeEnd = url.indexOf(separator);
    if (schemeEnd < 0) {
        return url;
    }
    const int start = schemeEnd + separator.size();
    int end = start;
    while (end < url.size() && !QStringLiteral("/?#").contains(url.at(end))) {
        ++end;
    }
    const QString authority = url.mid(start, end - start);
    if (!authority.contains(QLatin1String("::")) || authority.startsWith(QLatin1Char('['))) {
        return url;
    }
    return url.left(start) + bracketed(authority) + url.mid(end);
}

QUrl requestUrl(const QString &text)
{
    // fromUserInput() would take a malformed URL for the host "http", and a path for a local file.
    const QString normalized = normalizeUrl(text);
    if (normalized.contains(QLatin1String("://"))
        && !QUrl(normalized.trimmed(), QUrl::TolerantMode).isValid()) {
        return {};
    }
    const QUrl url = QUrl::fromUserInput(normalized);
    const bool isHttp =
        url.scheme() == QLatin1String("http") || url.scheme() == QLatin1String("https");
    return isHttp ? url : QUrl();
}

std::optional<QString> pathSegment(const QString &text)
{
    if (text == QLatin1String(".") || text == QLatin1String("..")) {
        return std::nullopt;
    }
    // Allowed unencoded in a segment (pchar, RFC 3986), besides what Qt never encodes.
    return QString::fromLatin1(QUrl::toPercentEncoding(text, "!$&'()*+,;=:@"));
}

QNetworkRequest nodeRequest(const QUrl &url)
{
    QUrl target = url;
    target.setUserInfo(QString());
    QNetworkRequest request(target);
    // The value that Qt sends by default. Setting it ourselves turns Qt's automatic decompression
    // off.
    request.setRawHeader("Accept-Encoding", "gzip, deflate");
    // Qt would answer NTLM without a user name.
    request.setAttribute(QNetworkRequest::AuthenticationReuseAttribute, QNetworkRequest::Manual);
    const QByteArray host = hostWithoutZone(target);
    if (!host.isEmpty()) {
        request.setRawHeader("Host", host);
    }
    return request;
}
