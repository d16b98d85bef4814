#include "net/NodeAccess.h"

#include <QNetworkAccessManager>
#include <QNetworkCookie>
#include <QNetworkCookieJar>
#include <QNetworkProxy>
#include <QUrl>

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

} // namespace

void prepareForNodes(QNetworkAccessManager &manager)
{
    manager.setProxy(QNetworkProxy(QNetworkProxy::NoProxy));
    manager.setCookieJar(new EmptyJar(&manager));
}

std::optional<QString> pathSegment(const QString &text)
{
    if (text == QLatin1String(".") || text == QLatin1String("..")) {
        return std::nullopt;
    }
    // All that a segment may hold as it is, beside what is never encoded.
    return QString::fromLatin1(QUrl::toPercentEncoding(text, "!$&'()*+,;=:@"));
}
