#include "NodeModel.h"

#include "Json.h"
#include "TransportFile.h"

#include <QUuid>

namespace {

// Any fixed UUID does: the ids of all simulated resources are named below it.
const QUuid idSpace(0x6b8f4d0e, 0x51c2, 0x4f7a, 0x9d, 0x3e, 0x2a, 0x70, 0xc4, 0x18, 0x5b, 0x96);

QString namedId(const QStringList &names)
{
    return QUuid::createUuidV5(idSpace, names.join(QLatin1Char('\n')))
        .toString(QUuid::WithoutBraces);
}

// In the order of Essence.
const QLatin1String essenceNames[] = {QLatin1String("video"), QLatin1String("audio"),
                                      QLatin1String("data")};
const QLatin1String mediaTypes[] = {QLatin1String("video/raw"), QLatin1String("audio/L24"),
                                    QLatin1String("video/smpte291")};

QString formatUrn(Essence essence)
{
    return QString(QStringLiteral("urn:x-nmos:format:") + essenceNames[static_cast<int>(essence)]);
}

QJsonValue mediaType(Essence essence)
{
    return mediaTypes[static_cast<int>(essence)];
}

QJsonObject rate(int numerator)
{
    return jsonObject({{"numerator", numerator}, {"denominator", 1}});
}

QJsonObject core(const QString &id, const QString &version, const QString &label)
{
    return jsonObject({{"id", id},
                       {"version", version},
                       {"label", label},
                       {"description", label},
                       {"tags", QJsonObject()}});
}

void extend(QJsonObject *object, const QJsonObject &members)
{
    for (auto member = members.begin(); member != members.end(); ++member) {
        object->insert(member.key(), member.value());
    }
}

QJsonObject component(const char *name, int width)
{
    return jsonObject({{"name", name}, {"width", width}, {"height", 1080}, {"bit_depth", 10}});
}

QJsonObject ancillaryType(const char *did, const char *sdid)
{
    return jsonObject({{"DID", did}, {"SDID", sdid}});
}

// What a flow has beside the members that every flow has.
QJsonObject flowMembers(Essence essence)
{
    switch (essence) {
    case Essence::Video:
        return jsonObject(
            {{"grain_rate", rate(50)},
             {"frame_width", 1920},
             {"frame_height", 1080},
             {"interlace_mode", "progressive"},
             {"colorspace", "BT709"},
             {"transfer_characteristic", "SDR"},
             {"components",
              QJsonArray{component("Y", 1920), component("Cb", 960), component("Cr", 960)}}});
    case Essence::Audio:
        return jsonObject({{"sample_rate", rate(48000)}, {"bit_depth", 24}});
    case Essence::Data:
        return jsonObject(
            {{"grain_rate", rate(50)},
             {"DID_SDID",
              QJsonArray{ancillaryType("0x61", "0x01"), ancillaryType("0x60", "0x60")}}});
    }
    return {};
}

QString withoutZone(QHostAddress address)
{
    address.setScopeId(QString());
    return address.toString();
}

// A multicast group of the sender's own, and other numbers that are the same in every run.
QString multicastGroup(const QString &id, bool isIpv6)
{
    const QByteArray bytes = QUuid::fromString(id).toRfc4122();
    const auto byte = [&bytes](int place) {
        return static_cast<quint8>(bytes.at(place));
    };
    if (isIpv6) {
        // Source-specific, and in the range that hosts may take by themselves (RFC 4607).
        return QStringLiteral("ff3e::8%1:%2")
            .arg(byte(0), 3, 16, QLatin1Char('0'))
            .arg(byte(1) * 256 + byte(2) + 1, 0, 16);
    }
    return QStringLiteral("239.%1.%2.%3").arg(byte(0)).arg(byte(1)).arg(byte(2) % 254 + 1);
}

quint32 sessionNumber(const QString &id)
{
    return QUuid::fromString(id).data1;
}

} // namespace

QString NodeModel::baseUrl(const QHostAddress &address, quint16 port)
{
    QString host = address.toString();
    if (address.protocol() == QAbstractSocket::IPv6Protocol) {
        host.replace(QLatin1Char('%'), QLatin1String("%25"));
        host = QLatin1Char('[') + host + QLatin1Char(']');
    }
    return QString(QStringLiteral("http://") + host + QLatin1Char(':') + QString::number(port));
}

NodeModel::NodeModel(const NodeDescription &description, const QHostAddress &nodeAddress,
                     quint16 nodePort)
    : label(description.label)
    , address(nodeAddress)
    , port(nodePort)
    , base(baseUrl(nodeAddress, nodePort))
    , id(namedId({description.label}))
    , created(taiText(taiNow()))
{
    for (const DeviceDescription &device : description.devices) {
        const QString place = QString::number(devices.size());
        devices.push_back({namedId({label, place, device.label}), device.label, {}, {}});
        for (int at = 0; at < device.senders.size(); ++at) {
            addEndpoint(device.senders.at(at), ConnectionEndpoint::Role::Sender, at);
        }
        for (int at = 0; at < device.receivers.size(); ++at) {
            addEndpoint(device.receivers.at(at), ConnectionEndpoint::Role::Receiver, at);
        }
    }
}

void NodeModel::addEndpoint(const EndpointDescription &description, ConnectionEndpoint::Role role,
                            int place)
{
    const bool isSender = role == ConnectionEndpoint::Role::Sender;
    Device &device = devices.back();
    const QString kind = isSender ? QStringLiteral("sender") : QStringLiteral("receiver");
    const QString endpointId = description.id.isEmpty()
        ? namedId({label, device.id, kind, QString::number(place), description.label})
        : description.id;
    Endpoint endpoint{role,
                      description.essence,
                      endpointId,
                      description.label,
                      static_cast<int>(devices.size()) - 1,
                      {role, description.essence, parameterDefaults(role, endpointId)},
                      created,
                      sessionNumber(endpointId)};
    if (isSender) {
        endpoint.sourceId = namedId({endpointId, QStringLiteral("source")});
        endpoint.flowId = namedId({endpointId, QStringLiteral("flow")});
    }
    (isSender ? device.senders : device.receivers).append(endpointId);
    Endpoints &endpoints = isSender ? senders : receivers;
    (isSender ? senderPlaces : receiverPlaces)
        .insert(endpointId, static_cast<int>(endpoints.size()));
    endpoints.push_back(endpoint);
}

QJsonObject NodeModel::parameterDefaults(ConnectionEndpoint::Role role,
                                         const QString &endpointId) const
{
    const QString own = withoutZone(address);
    if (role == ConnectionEndpoint::Role::Receiver) {
        return jsonObject({{"source_ip", QJsonValue()},
                           {"multicast_ip", QJsonValue()},
                           {"interface_ip", own},
                           {"destination_port", 5004},
                           {"rtp_enabled", true}});
    }
    const bool isIpv6 = address.protocol() == QAbstractSocket::IPv6Protocol;
    return jsonObject({{"source_ip", own},
                       {"destination_ip", multicastGroup(endpointId, isIpv6)},
                       {"source_port", 5004},
                       {"destination_port", 5004},
                       {"rtp_enabled", true}});
}

const QString &NodeModel::nodeId() const
{
    return id;
}

QStringList NodeModel::deviceIds() const
{
    QStringList ids;
    for (const Device &device : devices) {
        ids.append(device.id);
    }
    return ids;
}

QStringList NodeModel::senderIds(std::optional<Essence> essence) const
{
    QStringList ids;
    for (const Endpoint &sender : senders) {
        if (!essence || sender.essence == *essence) {
            ids.append(sender.id);
        }
    }
    return ids;
}

QStringList NodeModel::receiverIds(std::optional<Essence> essence) const
{
    QStringList ids;
    for (const Endpoint &receiver : receivers) {
        if (!essence || receiver.essence == *essence) {
            ids.append(receiver.id);
        }
    }
    return ids;
}

const NodeModel::Endpoint *NodeModel::find(ConnectionEndpoint::Role role,
                                           const QString &endpointId) const
{
    const bool isSender = role == ConnectionEndpoint::Role::Sender;
    const int place = (isSender ? senderPlaces : receiverPlaces).value(endpointId, -1);
    return place < 0 ? nullptr : &(isSender ? senders : receivers)[static_cast<size_t>(place)];
}

NodeModel::Endpoint *NodeModel::find(ConnectionEndpoint::Role role, const QString &endpointId)
{
    return const_cast<Endpoint *>(std::as_const(*this).find(role, endpointId));
}

const ConnectionEndpoint *NodeModel::sender(const QString &endpointId) const
{
    const Endpoint *const endpoint = find(ConnectionEndpoint::Role::Sender, endpointId);
    return endpoint ? &endpoint->connection : nullptr;
}

const ConnectionEndpoint *NodeModel::receiver(const QString &endpointId) const
{
    const Endpoint *const endpoint = find(ConnectionEndpoint::Role::Receiver, endpointId);
    return endpoint ? &endpoint->connection : nullptr;
}

QByteArray NodeModel::manifest(const QString &senderId) const
{
    const Endpoint *const sender = find(ConnectionEndpoint::Role::Sender, senderId);
    if (!sender) {
        return {};
    }
    const QJsonObject parameters = sender->connection.activeParameters();
    const StreamAddress stream{
        parameters.value(QLatin1String("source_ip")).toString(),
        parameters.value(QLatin1String("destination_ip")).toString(),
        static_cast<quint16>(parameters.value(QLatin1String("destination_port")).toInt())};
    return writeTransportFile(QString(label + QLatin1String(": ") + sender->label), sender->essence,
                              stream, sessionNumber(sender->id), sender->sdpVersion);
}

void NodeModel::noteActivation(Endpoint &endpoint, TaiTime time)
{
    endpoint.version = taiText(time);
    ++endpoint.sdpVersion;
    bodies.clear();
}

void NodeModel::advance()
{
    if (scheduled == 0) {
        return;
    }
    const TaiTime now = taiNow();
    for (Endpoints *endpoints : {&senders, &receivers}) {
        for (Endpoint &endpoint : *endpoints) {
            if (endpoint.connection.activateIfDue(now)) {
                noteActivation(endpoint, now);
                --scheduled;
            }
        }
    }
}

QJsonObject NodeModel::self() const
{
    const QJsonObject apiEndpoint =
        jsonObject({{"host", withoutZone(address)}, {"port", port}, {"protocol", "http"}});
    const QJsonObject clock = jsonObject({{"name", "clk0"},
                                          {"ref_type", "ptp"},
                                          {"traceable", true},
                                          {"version", "IEEE1588-2008"},
                                          {"gmid", "08-00-11-ff-fe-21-e1-b0"},
                                          {"locked", true}});
    const QJsonObject interface = jsonObject(
        {{"chassis_id", QJsonValue()}, {"port_id", "02-00-5e-10-00-01"}, {"name", "eth0"}});
    QJsonObject node = core(id, created, label);
    extend(&node,
           jsonObject({{"href", QString(base + QLatin1Char('/'))},
                       {"caps", QJsonObject()},
                       {"api",
                        jsonObject({{"versions", QJsonArray{QStringLiteral("v1.3")}},
                                    {"endpoints", QJsonArray{apiEndpoint}}})},
                       {"services", QJsonArray()},
                       {"clocks", QJsonArray{clock}},
                       {"interfaces", QJsonArray{interface}}}));
    return node;
}

QJsonObject NodeModel::deviceObject(const Device &device) const
{
    const QJsonObject control =
        jsonObject({{"href", QString(base + QLatin1String("/x-nmos/connection/v1.1/"))},
                    {"type", "urn:x-nmos:control:sr-ctrl/v1.1"}});
    QJsonObject object = core(device.id, created, device.label);
    extend(&object,
           jsonObject({{"type", "urn:x-nmos:device:generic"},
                       {"node_id", id},
                       {"senders", QJsonArray::fromStringList(device.senders)},
                       {"receivers", QJsonArray::fromStringList(device.receivers)},
                       {"controls", QJsonArray{control}}}));
    return object;
}

QJsonObject NodeModel::sourceObject(const Endpoint &sender) const
{
    QJsonObject object = core(sender.sourceId, created, sender.label);
    extend(&object,
           jsonObject({{"caps", QJsonObject()},
                       {"device_id", devices[static_cast<size_t>(sender.device)].id},
                       {"parents", QJsonArray()},
                       {"clock_name", "clk0"},
                       {"format", formatUrn(sender.essence)}}));
    if (sender.essence == Essence::Audio) {
        const QJsonObject left = jsonObject({{"label", "Left"}, {"symbol", "L"}});
        const QJsonObject right = jsonObject({{"label", "Right"}, {"symbol", "R"}});
        object.insert(QLatin1String("channels"), QJsonArray{left, right});
    } else {
        object.insert(QLatin1String("grain_rate"), rate(50));
    }
    return object;
}

QJsonObject NodeModel::flowObject(const Endpoint &sender) const
{
    QJsonObject object = core(sender.flowId, created, sender.label);
    extend(&object,
           jsonObject({{"source_id", sender.sourceId},
                       {"device_id", devices[static_cast<size_t>(sender.device)].id},
                       {"parents", QJsonArray()},
                       {"format", formatUrn(sender.essence)},
                       {"media_type", mediaType(sender.essence)}}));
    extend(&object, flowMembers(sender.essence));
    return object;
}

QJsonObject NodeModel::senderObject(const Endpoint &sender) const
{
    const QString href = base + QLatin1String("/x-nmos/connection/v1.1/single/senders/") + sender.id
        + QLatin1String("/transportfile");
    QJsonObject object = core(sender.id, sender.version, sender.label);
    extend(&object,
           jsonObject({{"flow_id", sender.flowId},
                       {"transport", "urn:x-nmos:transport:rtp.mcast"},
                       {"device_id", devices[static_cast<size_t>(sender.device)].id},
                       {"manifest_href", href},
                       {"interface_bindings", QJsonArray{QStringLiteral("eth0")}},
                       {"subscription",
                        jsonObject({{"receiver_id", sender.connection.peer()},
                                    {"active", sender.connection.isEnabled()}})}}));
    return object;
}

QJsonObject NodeModel::receiverObject(const Endpoint &receiver) const
{
    // The peer counts only while something is received from it.
    const bool active = receiver.connection.isEnabled();
    const QJsonValue peer = active ? receiver.connection.peer() : QJsonValue();
    QJsonObject object = core(receiver.id, receiver.version, receiver.label);
    extend(&object,
           jsonObject(
               {{"transport", "urn:x-nmos:transport:rtp.mcast"},
                {"device_id", devices[static_cast<size_t>(receiver.device)].id},
                {"interface_bindings", QJsonArray{QStringLiteral("eth0")}},
                {"format", formatUrn(receiver.essence)},
                {"caps", jsonObject({{"media_types", QJsonArray{mediaType(receiver.essence)}}})},
                {"subscription", jsonObject({{"sender_id", peer}, {"active", active}})}}));
    return object;
}

QJsonValue NodeModel::resource(const QString &name) const
{
    const auto listOf = [this](const Endpoints &endpoints, auto build) {
        QJsonArray array;
        for (const Endpoint &endpoint : endpoints) {
            array.append((this->*build)(endpoint));
        }
        return array;
    };
    if (name == QLatin1String("self")) {
        return self();
    }
    if (name == QLatin1String("devices")) {
        QJsonArray array;
        for (const Device &device : devices) {
            array.append(deviceObject(device));
        }
        return array;
    }
    if (name == QLatin1String("sources")) {
        return listOf(senders, &NodeModel::sourceObject);
    }
    if (name == QLatin1String("flows")) {
        return listOf(senders, &NodeModel::flowObject);
    }
    if (name == QLatin1String("senders")) {
        return listOf(senders, &NodeModel::senderObject);
    }
    if (name == QLatin1String("receivers")) {
        return listOf(receivers, &NodeModel::receiverObject);
    }
    return QJsonValue::Undefined;
}
