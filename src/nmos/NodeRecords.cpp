#include "nmos/NodeRecords.h"

#include "nmos/NmosNames.h"

#include <QHash>
#include <QJsonObject>
#include <QSet>

namespace {

QString text(const QJsonObject &resource, QLatin1String key)
{
    return resource.value(key).toString();
}

// A missing or null member matches nothing, not even empty text.
bool isText(const QJsonObject &resource, QLatin1String key, const QString &wanted)
{
    const QJsonValue value = resource.value(key);
    return value.isString() && value.toString() == wanted;
}

bool isFormat(const QJsonObject &resource, QLatin1String format)
{
    return resource.value(Key::format).toString() == format;
}

QLatin1String formatOf(int kind)
{
    switch (kind) {
    case NmosClient::Audio:
        return Format::audio;
    case NmosClient::Data:
        return Format::data;
    default:
        return Format::video;
    }
}

QString displayNameFor(const QString &nodeName, const QString &host, const QString &label)
{
    return nodeName % QLatin1String(" (") % host % QLatin1Char('-') % label % QLatin1Char(')');
}

// The given list of the first device that contains id.
QSet<QString> deviceMembers(const QJsonArray &devices, QLatin1String list, const QString &id)
{
    for (const QJsonValue &device : devices) {
        const QJsonArray members = device.toObject().value(list).toArray();
        if (!members.contains(id)) {
            continue;
        }
        QSet<QString> ids;
        for (const QJsonValue &member : members) {
            if (member.isString()) {
                ids.insert(member.toString());
            }
        }
        return ids;
    }
    return {};
}

bool isMember(const QSet<QString> &ids, const QJsonObject &resource)
{
    const QJsonValue id = resource.value(Key::id);
    return id.isString() && ids.contains(id.toString());
}

} // namespace

QList<NmosClient::ReceiverConnection> NodeRecords::listReceivers(const QJsonArray &receivers,
                                                                 const QString &host,
                                                                 const QString &nodeName)
{
    QList<NmosClient::ReceiverConnection> connections;
    QSet<QString> labels;
    for (const QJsonValue &value : receivers) {
        const QJsonObject receiver = value.toObject();
        const QString label = text(receiver, Key::label);
        if (label.isEmpty() || labels.contains(label)) {
            continue;
        }
        labels.insert(label);
        if (isFormat(receiver, Format::video)) {
            connections.append(
                {text(receiver, Key::id), label, host, displayNameFor(nodeName, host, label)});
        }
    }
    return connections;
}

QList<NmosClient::SenderConnection> NodeRecords::listSenders(const QJsonArray &flows,
                                                             const QJsonArray &senders,
                                                             const QString &host,
                                                             const QString &nodeName)
{
    QSet<QString> videoFlows;
    for (const QJsonValue &value : flows) {
        const QJsonObject flow = value.toObject();
        if (isFormat(flow, Format::video)) {
            videoFlows.insert(text(flow, Key::id));
        }
    }

    QList<NmosClient::SenderConnection> connections;
    QSet<QString> labels;
    for (const QJsonValue &value : senders) {
        const QJsonObject sender = value.toObject();
        if (!videoFlows.contains(text(sender, Key::flowId))) {
            continue;
        }
        const QString label = text(sender, Key::label);
        if (label.isEmpty() || labels.contains(label)) {
            continue;
        }
        labels.insert(label);
        connections.append({text(sender, Key::id), label, text(sender, Key::manifestHref), host,
                            displayNameFor(nodeName, host, label)});
    }
    return connections;
}

bool NodeRecords::findReceiver(const QJsonArray &receivers, const QString &host, int kind,
                               NmosClient::ReceiverLookup *receiver, const QString &preferredId)
{
    for (const QJsonValue &value : receivers) {
        const QJsonObject candidate = value.toObject();
        const QString id = text(candidate, Key::id);
        if (isFormat(candidate, formatOf(kind)) && (preferredId.isEmpty() || id == preferredId)) {
            receiver->id = id;
            receiver->label = text(candidate, Key::label);
            receiver->host = host;
            break;
        }
    }
    return !receiver->id.isEmpty();
}

QString NodeRecords::findFlow(const QJsonArray &flows, int kind)
{
    for (const QJsonValue &value : flows) {
        const QJsonObject flow = value.toObject();
        if (isFormat(flow, formatOf(kind))) {
            return text(flow, Key::id);
        }
    }
    return {};
}

bool NodeRecords::findSender(const QJsonArray &senders, const QString &host, QLatin1String key,
                             const QString &wanted, NmosClient::SenderLookup *sender)
{
    for (const QJsonValue &value : senders) {
        const QJsonObject candidate = value.toObject();
        if (isText(candidate, key, wanted)) {
            sender->id = text(candidate, Key::id);
            sender->label = text(candidate, Key::label);
            sender->manifestHref = text(candidate, Key::manifestHref);
            sender->host = host;
            break;
        }
    }
    return !sender->id.isEmpty() && !sender->manifestHref.isEmpty();
}

void NodeRecords::fillDeviceReceivers(const QJsonArray &devices, const QJsonArray &receivers,
                                      NmosClient::ReceiverLookup *receiver)
{
    const QSet<QString> members = deviceMembers(devices, Resource::receivers, receiver->id);
    for (const QJsonValue &value : receivers) {
        const QJsonObject candidate = value.toObject();
        if (!isMember(members, candidate)) {
            continue;
        }
        if (isFormat(candidate, Format::audio)) {
            receiver->audioReceiverId = text(candidate, Key::id);
        } else if (isFormat(candidate, Format::data)) {
            receiver->dataReceiverId = text(candidate, Key::id);
        }
    }
}

void NodeRecords::fillDeviceSenders(const QJsonArray &devices, const QJsonArray &senders,
                                    const QJsonArray &flows, NmosClient::SenderLookup *sender)
{
    const QSet<QString> members = deviceMembers(devices, Resource::senders, sender->id);
    QHash<QString, QString> senderOfFlow;
    for (const QJsonValue &value : senders) {
        const QJsonObject candidate = value.toObject();
        if (isMember(members, candidate)) {
            senderOfFlow.insert(text(candidate, Key::flowId), text(candidate, Key::id));
        }
    }
    QString audio;
    QString data;
    for (const QJsonValue &value : flows) {
        const QJsonObject flow = value.toObject();
        const auto found = senderOfFlow.constFind(text(flow, Key::id));
        if (found == senderOfFlow.constEnd()) {
            continue;
        }
        if (isFormat(flow, Format::audio)) {
            audio = *found;
        } else if (isFormat(flow, Format::data)) {
            data = *found;
        }
        if (!audio.isEmpty() && !data.isEmpty()) {
            break;
        }
    }
    sender->audioSenderId = audio;
    sender->dataSenderId = data;
}
