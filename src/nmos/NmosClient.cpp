#include "nmos/NmosClient.h"

#include "net/JsonText.h"
#include "net/NodeRequest.h"
#include "net/SyncHttp.h"
#include "net/Utf8.h"
#include "nmos/NmosNames.h"
#include "nmos/NodeRecords.h"

#include <QDebug>
#include <QJsonObject>
#include <QLoggingCategory>
#include <QNetworkAccessManager>

namespace {

// Off by default: a message box tells the operator.
Q_LOGGING_CATEGORY(requestLog, "nodepatch.requests", QtWarningMsg)

const QLatin1String noSdp("Failed to fetch Sender SDP.");
const QLatin1String immediately("activate_immediate");

void setError(QString *error, QLatin1String text)
{
    if (error) {
        *error = text;
    }
}

QJsonObject immediateActivation()
{
    return {{Key::mode, immediately}, {Key::requestedTime, QJsonValue::Null}};
}

QJsonObject transportFile(const QJsonValue &data, const QJsonValue &type)
{
    return {{Key::data, data}, {Key::type, type}};
}

} // namespace

NmosClient::NmosClient(QObject *parent)
    : QObject(parent)
    , manager(new QNetworkAccessManager(this))
{
    prepareForNodes(*manager);
}

QJsonArray NmosClient::getJsonArray(const QString &url)
{
    int status = 0;
    QString error;
    const QByteArray body = syncGet(manager, url, &status, &error);
    if (!isSuccess(status)) {
        qWarning() << "Unable to connect:" << error;
        return {};
    }
    return parseJson(body).array();
}

bool NmosClient::hasReceivers(const QString &host)
{
    return !getJsonArray(nodeApi(host, Resource::receivers)).isEmpty();
}

bool NmosClient::hasSenders(const QString &host)
{
    return !getJsonArray(nodeApi(host, Resource::senders)).isEmpty();
}

QList<NmosClient::ReceiverConnection> NmosClient::listReceivers(const QString &host,
                                                                const QString &nodeName)
{
    const QJsonArray receivers = getJsonArray(nodeApi(host, Resource::receivers));
    return NodeRecords::listReceivers(receivers, host, nodeName);
}

QList<NmosClient::SenderConnection> NmosClient::listSenders(const QString &host,
                                                            const QString &nodeName)
{
    const QJsonArray flows = getJsonArray(nodeApi(host, Resource::flows));
    const QJsonArray senders = getJsonArray(nodeApi(host, Resource::senders));
    return NodeRecords::listSenders(flows, senders, host, nodeName);
}

bool NmosClient::findReceiver(const QString &host, int kind, ReceiverLookup *receiver,
                              const QString &preferredId)
{
    receiver->id.clear();
    const QJsonArray receivers = getJsonArray(nodeApi(host, Resource::receivers));
    return NodeRecords::findReceiver(receivers, host, kind, receiver, preferredId);
}

bool NmosClient::findSender(const QString &host, int kind, SenderLookup *sender,
                            const QString &preferredId)
{
    sender->id.clear();
    sender->manifestHref.clear();
    QLatin1String key = Key::id;
    QString wanted = preferredId;
    if (preferredId.isEmpty()) {
        key = Key::flowId;
        const QJsonArray flows = getJsonArray(nodeApi(host, Resource::flows));
        if (flows.isEmpty()) {
            return false;
        }
        wanted = NodeRecords::findFlow(flows, kind);
    }
    const QJsonArray senders = getJsonArray(nodeApi(host, Resource::senders));
    return NodeRecords::findSender(senders, host, key, wanted, sender);
}

bool NmosClient::fillDeviceReceivers(ReceiverLookup *receiver)
{
    const QString host = receiver->host;
    const QJsonArray devices = getJsonArray(nodeApi(host, Resource::devices));
    if (devices.isEmpty()) {
        return false;
    }
    const QJsonArray receivers = getJsonArray(nodeApi(host, Resource::receivers));
    if (receivers.isEmpty()) {
        return false;
    }
    NodeRecords::fillDeviceReceivers(devices, receivers, receiver);
    return true;
}

bool NmosClient::fillDeviceSenders(SenderLookup *sender)
{
    const QString host = sender->host;
    const QJsonArray devices = getJsonArray(nodeApi(host, Resource::devices));
    if (devices.isEmpty()) {
        return false;
    }
    const QJsonArray senders = getJsonArray(nodeApi(host, Resource::senders));
    if (senders.isEmpty()) {
        return false;
    }
    const QJsonArray flows = getJsonArray(nodeApi(host, Resource::flows));
    NodeRecords::fillDeviceSenders(devices, senders, flows, sender);
    return true;
}

bool NmosClient::patchStaged(const QString &host, QLatin1String collection, const QString &id,
                             const QJsonObject &body, QString *error)
{
    const QString endpoint = stagedEndpoint(host, collection, id);
    int status = 0;
    QString reason = QStringLiteral("The id cannot be part of an address: %1").arg(id);
    bool isAnswered = false;
    if (!endpoint.isEmpty()) {
        reason.clear();
        const QUrl url(normalizeUrl(endpoint), QUrl::TolerantMode);
        isAnswered = syncPatchJson(manager, url, body, &status, &reason);
    }
    if (isAnswered && isSuccess(status)) {
        return true;
    }
    qCInfo(requestLog, "PATCH %s status %d: %s", qUtf8Printable(endpoint), status,
           qUtf8Printable(reason.simplified()));
    if (!isAnswered && error) {
        *error = reason;
    }
    return false;
}

bool NmosClient::fetchSenderSdp(const SenderLookup &sender, QString *sdp)
{
    int status = 0;
    const QByteArray body = syncGetWithCredentials(manager, sender.manifestHref, &status);
    if (!isSuccess(status) || body.isEmpty()) {
        return false;
    }
    *sdp = utf8Text(body);
    return true;
}

bool NmosClient::activateSender(const SenderLookup &sender, QString *error)
{
    const QJsonObject body{{Key::activation, QJsonObject{{Key::mode, immediately}}}};
    if (patchStaged(sender.host, Resource::senders, sender.id, body, nullptr)) {
        return true;
    }
    setError(error, noSdp);
    return false;
}

bool NmosClient::connectReceiver(const SenderLookup &sender, const ReceiverLookup &receiver,
                                 QString *error)
{
    QString sdp;
    // Many senders publish their SDP only once they are active.
    const bool fetched = fetchSenderSdp(sender, &sdp)
        || (activateSender(sender, error) && fetchSenderSdp(sender, &sdp));
    if (!fetched) {
        setError(error, noSdp);
        return false;
    }
    const QJsonObject body{
        {Key::senderId, sender.id},
        {Key::masterEnable, true},
        {Key::transportFile, transportFile(sdp, QStringLiteral("application/sdp"))},
        {Key::activation, immediateActivation()}};
    return patchStaged(receiver.host, Resource::receivers, receiver.id, body, error);
}

bool NmosClient::disconnectReceiver(const ReceiverLookup &receiver, QString *error)
{
    const QJsonObject body{{Key::masterEnable, false},
                           {Key::transportFile, transportFile(QJsonValue::Null, QJsonValue::Null)},
                           {Key::activation, immediateActivation()}};
    return patchStaged(receiver.host, Resource::receivers, receiver.id, body, error);
}

bool NmosClient::fetchReceiverSdp(const ReceiverLookup &receiver, QString *sdp)
{
    int status = 0;
    QString error;
    const QByteArray body = syncGet(
        manager, stagedEndpoint(receiver.host, Resource::receivers, receiver.id), &status, &error);
    QJsonObject staged;
    if (isSuccess(status)) {
        staged = parseJson(body).object();
    } else {
        qWarning() << "Unable to connect:" << error;
    }
    if (staged.isEmpty()) {
        return false;
    }
    const QJsonValue data = staged.value(Key::transportFile).toObject().value(Key::data);
    if (data.isNull()) {
        return false;
    }
    *sdp = data.toString();
    return true;
}
