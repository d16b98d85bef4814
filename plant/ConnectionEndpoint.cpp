#include "ConnectionEndpoint.h"

#include "Json.h"
#include "TransportFile.h"

#include <QHostAddress>
#include <QJsonDocument>
#include <QUuid>

#include <chrono>

namespace {

bool isAuto(const QJsonValue &value)
{
    return value == QJsonValue(QLatin1String("auto"));
}

bool isIdOrNull(const QJsonValue &value)
{
    return value.isNull() || !QUuid::fromString(value.toString()).isNull();
}

bool isActivation(const QJsonObject &activation)
{
    const QJsonValue mode = activation.value(QLatin1String("mode"));
    const QJsonValue requested = activation.value(QLatin1String("requested_time"));
    return activation.size() == (requested.isUndefined() ? 1 : 2)
        && (mode.isNull() || mode == QJsonValue(QLatin1String("activate_immediate")))
        && (requested.isNull() || requested.isUndefined());
}

bool isTransportFile(const QJsonObject &file)
{
    const QJsonValue data = file.value(QLatin1String("data"));
    const QJsonValue type = file.value(QLatin1String("type"));
    return file.size() == 2
        && ((data.isNull() && type.isNull()) || (data.isString() && type.isString()));
}

QJsonObject activationObject(const QJsonValue &mode, const QJsonValue &time)
{
    return jsonObject(
        {{"mode", mode}, {"requested_time", QJsonValue()}, {"activation_time", time}});
}

} // namespace

QJsonObject firstLeg(const QJsonObject &object)
{
    return object.value(QLatin1String("transport_params")).toArray().first().toObject();
}

QString taiNow()
{
    constexpr std::chrono::seconds leapSeconds(37);
    const std::chrono::nanoseconds time =
        std::chrono::system_clock::now().time_since_epoch() + leapSeconds;
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time);
    return QStringLiteral("%1:%2").arg(seconds.count()).arg((time - seconds).count());
}

ConnectionEndpoint::ConnectionEndpoint(Role endpointRole, Essence endpointEssence,
                                       const QJsonObject &parameterDefaults)
    : role(endpointRole)
    , essence(endpointEssence)
    , defaults(parameterDefaults)
{
    const bool isSender = role == Role::Sender;
    stagedObject = jsonObject({{"master_enable", isSender},
                               {"activation", activationObject({}, {})},
                               {"transport_params", QJsonArray{defaults}}});
    stagedObject.insert(peerName(), QJsonValue());
    if (!isSender) {
        stagedObject.insert(QLatin1String("transport_file"),
                            jsonObject({{"data", QJsonValue()}, {"type", QJsonValue()}}));
    }
    activeObject = stagedObject;
}

// The parameter whose only values are "auto" and the node's own address.
QLatin1String ConnectionEndpoint::ownAddress() const
{
    return QLatin1String(role == Role::Sender ? "source_ip" : "interface_ip");
}

QJsonArray ConnectionEndpoint::constraints() const
{
    QJsonObject leg;
    const QStringList names = defaults.keys();
    for (const QString &name : names) {
        leg.insert(name, QJsonObject());
    }
    leg.insert(ownAddress(), jsonObject({{"enum", QJsonArray{defaults.value(ownAddress())}}}));
    return {leg};
}

bool ConnectionEndpoint::isValidParameter(const QString &name, const QJsonValue &value) const
{
    if (name == QLatin1String("rtp_enabled")) {
        return value.isBool();
    }
    if (name.endsWith(QLatin1String("_port"))) {
        return isAuto(value) || (value.toInt() >= 1 && value.toInt() <= 65535);
    }
    if (name == ownAddress()) {
        return isAuto(value) || value == defaults.value(name);
    }
    // The other end of the stream: a sender can choose it, a receiver can do without.
    return (role == Role::Sender ? isAuto(value) : value.isNull())
        || !QHostAddress(value.toString()).isNull();
}

// The first parameter that is unknown or whose value is not valid; empty when there is none.
QString ConnectionEndpoint::invalidParameter(const QJsonArray &legs) const
{
    if (legs.size() != 1 || !legs.first().isObject()) {
        return QStringLiteral("transport_params");
    }
    const QJsonObject leg = legs.first().toObject();
    for (auto member = leg.begin(); member != leg.end(); ++member) {
        if (!defaults.contains(member.key()) || !isValidParameter(member.key(), member.value())) {
            return member.key();
        }
    }
    return {};
}

bool ConnectionEndpoint::isValid(const QString &member, const QJsonValue &value) const
{
    if (member == peerName()) {
        return isIdOrNull(value);
    }
    if (member == QLatin1String("master_enable")) {
        return value.isBool();
    }
    if (member == QLatin1String("activation")) {
        return isActivation(value.toObject());
    }
    return role == Role::Receiver && member == QLatin1String("transport_file")
        && isTransportFile(value.toObject());
}

// The first member or parameter of the kind that invalidParameter() describes.
QString ConnectionEndpoint::invalidMember(const QJsonObject &request) const
{
    for (auto member = request.begin(); member != request.end(); ++member) {
        const bool hasParameters = member.key() == QLatin1String("transport_params");
        const QString parameter =
            hasParameters ? invalidParameter(member.value().toArray()) : QString();
        if (!parameter.isEmpty() || (!hasParameters && !isValid(member.key(), member.value()))) {
            return hasParameters ? parameter : member.key();
        }
    }
    return {};
}

// The reason why the file cannot be used; empty when it can.
QString ConnectionEndpoint::stageTransportFile(const QJsonObject &file,
                                               QJsonObject *parameters) const
{
    const QJsonValue data = file.value(QLatin1String("data"));
    if (!data.isString()) {
        return {};
    }
    if (file.value(QLatin1String("type")) != QJsonValue(QLatin1String("application/sdp"))) {
        return QStringLiteral("the type of the transport file is not supported");
    }
    const auto offer = readTransportFile(data.toString());
    if (!offer) {
        return QStringLiteral("the transport file is not a usable SDP");
    }
    if (offer->essence != essence) {
        return QStringLiteral("the transport file describes another format");
    }
    const StreamAddress &stream = offer->stream;
    const bool isMulticast = QHostAddress(stream.destination).isMulticast();
    parameters->insert(QLatin1String("multicast_ip"),
                       isMulticast ? QJsonValue(stream.destination) : QJsonValue());
    parameters->insert(QLatin1String("source_ip"),
                       stream.source.isEmpty() ? QJsonValue() : QJsonValue(stream.source));
    parameters->insert(QLatin1String("destination_port"), stream.port);
    parameters->insert(QLatin1String("rtp_enabled"), true);
    return {};
}

// Puts everything but the activation of a valid request into the parameters to be staged. Returns
// as stageTransportFile() does.
QString ConnectionEndpoint::stage(const QJsonObject &request, QJsonObject *next) const
{
    QJsonObject parameters = firstLeg(*next);
    const QJsonValue activation = next->value(QLatin1String("activation"));
    QString reason =
        stageTransportFile(request.value(QLatin1String("transport_file")).toObject(), &parameters);
    // Parameters override the transport file that comes with them.
    parameters = merged(parameters, firstLeg(request));
    *next = merged(*next, request);
    next->insert(QLatin1String("activation"), activation);
    next->insert(QLatin1String("transport_params"), QJsonArray{parameters});
    return reason;
}

ConnectionEndpoint::Answer ConnectionEndpoint::patch(const QByteArray &body)
{
    const auto refuse = [](int code, const QString &reason) {
        return Answer{code, nmosError(code, reason)};
    };
    const QJsonDocument document = QJsonDocument::fromJson(body);
    if (!document.isObject()) {
        return refuse(400, QStringLiteral("the request is not a JSON object"));
    }
    const QJsonObject request = document.object();
    const QJsonValue mode =
        request.value(QLatin1String("activation")).toObject().value(QLatin1String("mode"));
    if (mode.toString().startsWith(QLatin1String("activate_scheduled"))) {
        return refuse(501, QStringLiteral("scheduled activations are not supported"));
    }
    const QString invalid = invalidMember(request);
    if (!invalid.isEmpty()) {
        return refuse(400, QStringLiteral("unknown, or its value is not valid: ") + invalid);
    }
    QJsonObject next = stagedObject;
    const QString reason = stage(request, &next);
    if (!reason.isEmpty()) {
        return refuse(400, reason);
    }
    stagedObject = next;
    return mode.isString() ? activate() : Answer{200, stagedObject};
}

ConnectionEndpoint::Answer ConnectionEndpoint::activate()
{
    QJsonObject answer = stagedObject;
    answer.insert(QLatin1String("activation"),
                  activationObject(QLatin1String("activate_immediate"), taiNow()));
    QJsonObject parameters = firstLeg(stagedObject);
    for (auto parameter = parameters.begin(); parameter != parameters.end(); ++parameter) {
        if (isAuto(*parameter)) {
            *parameter = defaults.value(parameter.key());
        }
    }
    activeObject = answer;
    activeObject.insert(QLatin1String("transport_params"), QJsonArray{parameters});
    return {200, answer, true};
}
