#include "discovery/NMOSMdnsBrowser.h"

#include "discovery/MdnsServer.h"
#include "net/JsonText.h"
#include "net/NodeRequest.h"
#include "net/ResponseBody.h"
#include "net/Utf8.h"

#include <QCoreApplication>
#include <QDebug>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QPointer>
#include <QRegularExpression>

namespace {

const char nodeServiceType[] = "_nmos-node._tcp.local.";

// A self resource has a few kilobytes; with hundreds of interfaces and clocks it stays below 100.
constexpr qint64 maximumSelfBody = 1024 * 1024;

QMap<QString, QString> decoded(const QMap<QByteArray, QByteArray> &attributes)
{
    QMap<QString, QString> txt;
    for (auto it = attributes.cbegin(); it != attributes.cend(); ++it) {
        txt.insert(utf8Text(it.key()), utf8Text(it.value()));
    }
    return txt;
}

// Why a URL of that scheme and with that path segment is not requested; null when it is. The scheme
// is an unknown sender's text: QNetworkAccessManager would open local files, resources and other
// protocols just as well, so those fail with its words for a protocol that it does not know.
QString refusal(const QString &scheme, const std::optional<QString> &segment)
{
    if (scheme != QLatin1String("http") && scheme != QLatin1String("https")) {
        return QCoreApplication::translate("QNetworkReply", "Protocol \"%1\" is unknown")
            .arg(scheme);
    }
    return segment ? QString() : QStringLiteral("The API version cannot be part of an address");
}

} // namespace

NMOSMdnsBrowser::NMOSMdnsBrowser(QObject *parent)
    : QObject(parent)
{
    prepareForNodes(network);
}

NMOSMdnsBrowser::~NMOSMdnsBrowser()
{
    stop();
}

void NMOSMdnsBrowser::start()
{
    if (started) {
        return;
    }
    server = std::make_unique<MdnsServer>();
    cache = std::make_unique<QMdnsEngine::Cache>();
    browser =
        std::make_unique<QMdnsEngine::Browser>(server.get(), nodeServiceType, cache.get(), this);
    connect(browser.get(), &QMdnsEngine::Browser::serviceAdded, this,
            &NMOSMdnsBrowser::onServiceAdded);
    connect(browser.get(), &QMdnsEngine::Browser::serviceUpdated, this,
            &NMOSMdnsBrowser::onServiceUpdated);
    connect(browser.get(), &QMdnsEngine::Browser::serviceRemoved, this,
            &NMOSMdnsBrowser::onServiceRemoved);
    started = true;
    qInfo().noquote() << "Browsing for" << nodeServiceType;
}

void NMOSMdnsBrowser::stop()
{
    if (!started) {
        return;
    }
    // Delete resolvers first: they use the server and the cache.
    qDeleteAll(findChildren<QMdnsEngine::Resolver *>(QString(), Qt::FindDirectChildrenOnly));
    requests.clear();
    browser.reset();
    cache.reset();
    server.reset();
    started = false;
}

QString NMOSMdnsBrowser::selectApiVersion(const QString &text)
{
    static const QRegularExpression pattern(QStringLiteral("^v(\\d+)\\.(\\d+)$"));
    const auto number = [](const QRegularExpressionMatch &match) {
        return qMakePair(match.captured(1).toInt(), match.captured(2).toInt());
    };
    QString best;
    const QStringList parts = text.split(QLatin1Char(','), Qt::SkipEmptyParts);
    for (const QString &part : parts) {
        const QString version = part.trimmed();
        if (best.isEmpty()) {
            best = version;
            continue;
        }
        const auto match = pattern.match(version);
        const auto bestMatch = pattern.match(best);
        if (match.hasMatch() && (!bestMatch.hasMatch() || number(match) > number(bestMatch))) {
            best = version;
        }
    }
    return best.isEmpty() ? QStringLiteral("v1.3") : best;
}

void NMOSMdnsBrowser::onServiceAdded(const QMdnsEngine::Service &svc)
{
    onServiceUpdated(svc);
}

void NMOSMdnsBrowser::onServiceUpdated(const QMdnsEngine::Service &svc)
{
    const QPointer<NMOSMdnsBrowser> self(this);
    emit nodeDiscovered(utf8Text(svc.name()), utf8Text(svc.hostname()), svc.port(),
                        decoded(svc.attributes()));
    // A listener may have stopped or destroyed this object.
    if (self && started) {
        resolveAndFetch(svc);
    }
}

void NMOSMdnsBrowser::onServiceRemoved(const QMdnsEngine::Service &svc)
{
    emit nodeRemoved(utf8Text(svc.name()));
}

void NMOSMdnsBrowser::resolveAndFetch(const QMdnsEngine::Service &svc)
{
    const auto attributes = svc.attributes();
    const QString scheme = utf8Text(attributes.value("api_proto", "http"));
    const QString version = selectApiVersion(utf8Text(attributes.value("api_ver", "v1.3")));
    auto *const resolver = new MdnsResolver(server.get(), svc.hostname(), cache.get(), this);
    connect(resolver, &MdnsResolver::resolved, this,
            [this, scheme, version, svc](const QHostAddress &address) {
                fetchSelf(address, scheme, version, svc);
            });
}

void NMOSMdnsBrowser::fetchSelf(const QHostAddress &address, const QString &scheme,
                                const QString &version, const QMdnsEngine::Service &svc)
{
    QUrl url;
    url.setScheme(scheme);
    url.setHost(address.toString(), QUrl::DecodedMode);
    url.setPort(svc.port());
    const std::optional<QString> segment = pathSegment(version);
    url.setPath(QStringLiteral("/x-nmos/node/%1/self").arg(segment.value_or(version)),
                QUrl::TolerantMode);
    const QString reason = refusal(url.scheme(), segment);
    if (!reason.isNull()) {
        // Later, as any other failure.
        QMetaObject::invokeMethod(
            this, [this, svc, url, reason] { reportFailure(svc, url, reason); },
            Qt::QueuedConnection);
        return;
    }
    requests.enqueue(url, [this, url, svc] { return sendRequest(url, svc); });
}

QNetworkReply *NMOSMdnsBrowser::sendRequest(const QUrl &url, const QMdnsEngine::Service &svc)
{
    QNetworkReply *const reply = network.get(nodeRequest(url));
    auto *const body = new ResponseBody(reply, maximumSelfBody, reply);
    connect(reply, &QNetworkReply::finished, this,
            [this, reply, body, url, svc] { handleSelfReply(reply, body, url, svc); });
    connect(body, &ResponseBody::tooLarge, this,
            [this, reply, body, url, svc] { dropSelfReply(reply, body, url, svc); });
    return reply;
}

void NMOSMdnsBrowser::dropSelfReply(QNetworkReply *reply, const ResponseBody *body, const QUrl &url,
                                    const QMdnsEngine::Service &svc)
{
    // The result is known; ignore what abort() emits.
    reply->disconnect(this);
    reply->abort();
    reply->deleteLater();
    reportFailure(svc, url, body->failure());
}

void NMOSMdnsBrowser::handleSelfReply(QNetworkReply *reply, ResponseBody *body, const QUrl &url,
                                      const QMdnsEngine::Service &svc)
{
    // Schedule first: a listener may destroy this object.
    reply->deleteLater();
    const QByteArray text = body->text();
    if (reply->error() != QNetworkReply::NoError) {
        reportFailure(svc, url, reply->errorString());
        return;
    }
    if (!body->failure().isNull()) {
        reportFailure(svc, url, body->failure());
        return;
    }
    const QJsonDocument document = parseJson(text);
    emit nodeSelfReady(utf8Text(svc.name()), url, document);
    qInfo().noquote() << (document.isNull() ? "OK (non-JSON)" : "OK") << url.toString();
}

void NMOSMdnsBrowser::reportFailure(const QMdnsEngine::Service &svc, const QUrl &url,
                                    const QString &errorString)
{
    emit nodeError(utf8Text(svc.name()), url, errorString);
    qWarning().noquote() << "GET" << url.toString() << "failed:" << errorString;
}
