#include "nmos/RequestUrl.h"

#include <algorithm>

namespace {

// Splits ":port" off the end of an address, when what follows its last ':' is an integer.
QString takePort(QString *address)
{
    const int colon = address->lastIndexOf(QLatin1Char(':'));
    bool isNumber = false;
    const int port = address->mid(colon + 1).toInt(&isNumber);
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
    const bool isEncoded = !isIndex && zone.startsWith(QLatin1String("25"));
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

} // namespace

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

// A text with a scheme that does not parse would be guessed to mean the host "http", and a path a
// local file; nobody asked for either.
QUrl requestUrl(const QString &text)
{
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
