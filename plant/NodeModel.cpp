#include "NodeModel.h"

#include "Json.h"
#include "TransportFile.h"

#include <QUuid>

#include <algorithm>

namespace {

// The ids of all simulated resources are named below this one. Any fixed UUID would do.
const QUuid idSpace(0x6b8f4d0e, 0x51c2, 0x4f7a, 0x9d, 0x3e, 0x2a, 0x70, 0xc4, 0x18, 0x5b, 0x96);

// The same in every run.
QString namedId(const QStringList &names)
{
    return QUuid::createUuidV5(idSpace, names.join(QLatin1Char('\n')))
        .toString(QUuid::WithoutBraces);
}

// What the resources of an essence say.
struct Shape {
    const char *format;
    const char *mediaType;
    const char *flow; // members that not every flow has
};

// In the order of Essence.
const Shape shapes[] = {
    {"urn:x-nmos:format:video", "video/raw",
     R"({"grain_rate": {"numerator": 50, "denominator": 1},
         "frame_width": 1920, "frame_height": 1080, "interlace_mode": "progressive",
         "colorspace": "BT709", "transfer_characteristic": "SDR",
         "components": [{"name": "Y", "width": 1920, "height": 1080, "bit_depth": 10},
                        {"name": "Cb", "width": 960, "height": 1080, "bit_depth": 10},
                        {"name": "Cr", "width": 960, "height": 1080, "bit_depth": 10}]})"},
    {"urn:x-nmos:format:audio", "audio/L24",
     R"({"sample_rate": {"numerator": 48000, "denominator": 1}, "bit_depth": 24})"},
    {"urn:x-nmos:format:data", "video/smpte291",
     R"({"grain_rate": {"numerator": 50, "denominator": 1},
         "DID_SDID": [{"DID": "0x61", "SDID": "0x01"}, {"DID": "0x60", "SDID": "0x60"}]})"},
};

const Shape &shapeOf(Essence essence)
{
    return shapes[static_cast<int>(essence)];
}

// A resource: the members that all have, and its own.
QJsonObject resourceOf(const QString &id, const QString &version, const QString &label,
                       const QJsonObject &own)
{
    return merged(own,
                  jsonObject({{"id", id},
                              {"version", version},
                              {"label", label},
                              {"description", label},
                              {"tags", QJsonObject()}}));
}

QString withoutZone(QHostAddress address)
{
    address.setScopeId(QString());
    return address.toString();
}

// A multicast group that only this sender has, the same in every run.
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

bool isEnabled(const ConnectionEndpoint &connection)
{
    return connection.active().value(QLatin1String("master_enable")).toBool();
}

// The id of the "source" or "flow" of a sender.
QString idOf(const char *kind, const QString &senderId)
{
    return namedId({senderId, QLatin1String(kind)});
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
    , nodeId(namedId({description.label}))
    , created(taiNow())
{
    for (const DeviceDescription &device : description.devices) {
        const QString place = QString::number(devices.size());
        devices.push_back({namedId({label, place, device.label}), device.label});
        addEndpoints(device.senders, Role::Sender);
        addEndpoints(device.receivers, Role::Receiver);
    }
}

void NodeModel::addEndpoints(const QVector<EndpointDescription> &descriptions, Role role)
{
    const QString &device = devices.back().id;
    const QString kind =
        role == Role::Sender ? QStringLiteral("sender") : QStringLiteral("receiver");
    for (int place = 0; place < descriptions.size(); ++place) {
        const EndpointDescription &description = descriptions.at(place);
        const QString id =
            namedId({label, device, kind, QString::number(place), description.label});
        endpoints.push_back({role,
                             description.essence,
                             id,
                             description.label,
                             device,
                             {role, description.essence, parameterDefaults(role, id)},
                             created,
                             sessionNumber(id)});
    }
}

QJsonObject NodeModel::parameterDefaults(Role role, const QString &id) const
{
    const QString own = withoutZone(address);
    if (role == Role::Receiver) {
        return jsonObject({{"source_ip", QJsonValue()},
                           {"multicast_ip", QJsonValue()},
                           {"interface_ip", own},
                           {"destination_port", 5004},
                           {"rtp_enabled", true}});
    }
    const bool isIpv6 = address.protocol() == QAbstractSocket::IPv6Protocol;
    return jsonObject({{"source_ip", own},
                       {"destination_ip", multicastGroup(id, isIpv6)},
                       {"source_port", 5004},
                       {"destination_port", 5004},
                       {"rtp_enabled", true}});
}

QStringList NodeModel::ids(Role role, std::optional<Essence> essence) const
{
    QStringList result;
    for (const Endpoint &endpoint : endpoints) {
        if (endpoint.role == role && (!essence || endpoint.essence == *essence)) {
            result.append(endpoint.id);
        }
    }
    return result;
}

const NodeModel::Endpoint *NodeModel::find(Role role, const QString &id) const
{
    const auto found =
        std::find_if(endpoints.begin(), endpoints.end(), [&](const Endpoint &endpoint) {
            return endpoint.role == role && endpoint.id == id;
        });
    return found == endpoints.end() ? nullptr : &*found;
}

QJsonObject NodeModel::active(Role role, const QString &id) const
{
    const Endpoint *const endpoint = find(role, id);
    return endpoint ? endpoint->connection.active() : QJsonObject();
}

QByteArray NodeModel::manifest(const QString &senderId) const
{
    const Endpoint *const sender = find(Role::Sender, senderId);
    if (!sender) {
        return {};
    }
    const QJsonObject parameters = firstLeg(sender->connection.active());
    const StreamAddress stream{
        parameters.value(QLatin1String("source_ip")).toString(),
        parameters.value(QLatin1String("destination_ip")).toString(),
        static_cast<quint16>(parameters.value(QLatin1String("destination_port")).toInt())};
    return writeTransportFile(QString(label + QLatin1String(": ") + sender->label), sender->essence,
                              stream, sessionNumber(sender->id), sender->sdpVersion);
}

QJsonObject NodeModel::self() const
{
    const QJsonObject apiEndpoint =
        jsonObject({{"host", withoutZone(address)}, {"port", port}, {"protocol", "http"}});
    const QJsonObject api = jsonObject(
        {{"versions", QJsonArray{QStringLiteral("v1.3")}}, {"endpoints", QJsonArray{apiEndpoint}}});
    const QJsonObject hardware = jsonObject(
        R"({"caps": {}, "services": [],
            "clocks": [{"name": "clk0", "ref_type": "ptp", "traceable": true,
                        "version": "IEEE1588-2008", "gmid": "08-00-11-ff-fe-21-e1-b0",
                        "locked": true}],
            "interfaces": [{"chassis_id": null, "port_id": "02-00-5e-10-00-01", "name": "eth0"}]})");
    return resourceOf(
        nodeId, created, label,
        merged(hardware, jsonObject({{"href", QString(base + QLatin1Char('/'))}, {"api", api}})));
}

QJsonObject NodeModel::deviceObject(const Device &device) const
{
    const QJsonObject control =
        jsonObject({{"href", QString(base + QLatin1String("/x-nmos/connection/v1.1/"))},
                    {"type", "urn:x-nmos:control:sr-ctrl/v1.1"}});
    QJsonArray senders;
    QJsonArray receivers;
    for (const Endpoint &endpoint : endpoints) {
        if (endpoint.deviceId == device.id) {
            (endpoint.role == Role::Sender ? senders : receivers).append(endpoint.id);
        }
    }
    return resourceOf(device.id, created, device.label,
                      jsonObject({{"type", "urn:x-nmos:device:generic"},
                                  {"node_id", nodeId},
                                  {"senders", senders},
                                  {"receivers", receivers},
                                  {"controls", QJsonArray{control}}}));
}

QJsonObject NodeModel::flowObject(const Endpoint &sender) const
{
    const Shape &shape = shapeOf(sender.essence);
    return resourceOf(idOf("flow", sender.id), created, sender.label,
                      merged(jsonObject(shape.flow),
                             jsonObject({{"source_id", idOf("source", sender.id)},
                                         {"device_id", sender.deviceId},
                                         {"parents", QJsonArray()},
                                         {"format", shape.format},
                                         {"media_type", shape.mediaType}})));
}

// What senders and receivers have in common.
QJsonObject NodeModel::endpointObject(const Endpoint &endpoint, const char *peerName,
                                      const QJsonValue &peer, const QJsonObject &own)
{
    const QJsonObject subscription =
        jsonObject({{peerName, peer}, {"active", isEnabled(endpoint.connection)}});
    return resourceOf(endpoint.id, endpoint.version, endpoint.label,
                      merged(own,
                             jsonObject({{"transport", "urn:x-nmos:transport:rtp.mcast"},
                                         {"device_id", endpoint.deviceId},
                                         {"interface_bindings", QJsonArray{QStringLiteral("eth0")}},
                                         {"subscription", subscription}})));
}

QJsonObject NodeModel::senderObject(const Endpoint &sender) const
{
    const QString href = base + QLatin1String("/x-nmos/connection/v1.1/single/senders/") + sender.id
        + QLatin1String("/transportfile");
    return endpointObject(
        sender, "receiver_id", sender.connection.peer(),
        jsonObject({{"flow_id", idOf("flow", sender.id)}, {"manifest_href", href}}));
}

QJsonObject NodeModel::receiverObject(const Endpoint &receiver) const
{
    const Shape &shape = shapeOf(receiver.essence);
    const QJsonArray mediaTypes{QLatin1String(shape.mediaType)};
    // A disabled receiver has no peer.
    const bool active = isEnabled(receiver.connection);
    return endpointObject(receiver, "sender_id", active ? receiver.connection.peer() : QJsonValue(),
                          jsonObject({{"format", shape.format},
                                      {"caps", jsonObject({{"media_types", mediaTypes}})}}));
}

QJsonValue NodeModel::resource(const QString &name) const
{
    if (name == QLatin1String("self")) {
        return self();
    }
    QJsonArray array;
    if (name == QLatin1String("devices")) {
        for (const Device &device : devices) {
            array.append(deviceObject(device));
        }
        return array;
    }
    const bool isOfReceivers = name == QLatin1String("receivers");
    const auto build = isOfReceivers       ? &NodeModel::receiverObject
        : name == QLatin1String("flows")   ? &NodeModel::flowObject
        : name == QLatin1String("senders") ? &NodeModel::senderObject
                                           : nullptr;
    if (!build) {
        return QJsonValue::Undefined;
    }
    for (const Endpoint &endpoint : endpoints) {
        if ((endpoint.role == Role::Receiver) == isOfReceivers) {
            array.append((this->*build)(endpoint));
        }
    }
    return array;
}
