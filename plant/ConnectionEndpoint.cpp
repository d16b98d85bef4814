#include "ConnectionEndpoint.h"

#include "Json.h"
#include "TransportFile.h"

#include <QHostAddress>
#include <QJsonDocument>
#include <QUuid>

#include <chrono>

namespace {

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
                                       const QJsonObject &parameters)
    : role(endpointRole)
    , essence(endpointEssence)
    , stagedObject(jsonObject({{"master_enable", role == Role::Sender},
                               {"activation", activationObject({}, {})},
                               {"transport_params", QJsonArray{parameters}}}))
{
    stagedObject.insert(peerName(), QJsonValue());
    if (role == Role::Receiver) {
        stagedObject.insert(QLatin1String("transport_file"),
                            jsonObject({{"data", QJsonValue()}, {"type", QJsonValue()}}));
    }
    activeObject = stagedObject;
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

ConnectionEndpoint::Answer ConnectionEndpoint::patch(const QByteArray &body)
{
    const auto refuse = [](const QString &reason) {
        return Answer{400, nmosError(400, reason)};
    };
    const QJsonDocument document = QJsonDocument::fromJson(body);
    if (!document.isObject()) {
        return refuse(QStringLiteral("the request is not a JSON object"));
    }
    const QJsonObject request = document.object();
    for (auto member = request.begin(); member != request.end(); ++member) {
        if (!isValid(member.key(), member.value())) {
            return refuse(QStringLiteral("unknown, or not valid: ") + member.key());
        }
    }
    QJsonObject parameters = firstLeg(stagedObject);
    const QString reason =
        stageTransportFile(request.value(QLatin1String("transport_file")).toObject(), &parameters);
    if (!reason.isEmpty()) {
        return refuse(reason);
    }
    const QJsonValue activation = stagedObject.value(QLatin1String("activation"));
    stagedObject = merged(stagedObject, request);
    stagedObject.insert(QLatin1String("activation"), activation);
    stagedObject.insert(QLatin1String("transport_params"), QJsonArray{parameters});
    const QJsonValue mode =
        request.value(QLatin1String("activation")).toObject().value(QLatin1String("mode"));
    if (!mode.isString()) {
        return {200, stagedObject};
    }
    activeObject = stagedObject;
    activeObject.insert(QLatin1String("activation"), activationObject(mode, taiNow()));
    return {200, activeObject, true};
}
