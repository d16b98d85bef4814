// The IS-05 operations.

#include "JsonText.h"
#include "nmos/NmosClient.h"
#include "nmos/NmosNames.h"
#include "nmos/SyncHttp.h"

#include <QDebug>
#include <QJsonObject>
#include <QUrl>

namespace {

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

bool NmosClient::patchStaged(const QString &host, QLatin1String collection, const QString &id,
                             const QJsonObject &body, QString *error)
{
    const QUrl url(normalizeUrl(stagedEndpoint(host, collection, id)), QUrl::TolerantMode);
    int status = 0;
    return syncPatchJson(manager, url, body, &status, error) && isSuccess(status);
}

bool NmosClient::fetchSenderSdp(const SenderLookup &sender, QString *sdp)
{
    int status = 0;
    const QByteArray body = syncGet(manager, sender.manifestHref, &status);
    if (!isSuccess(status) || body.isEmpty()) {
        return false;
    }
    *sdp = QString::fromUtf8(body);
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
