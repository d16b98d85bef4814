#include "ConnectionEndpoint.h"

#include "Json.h"
#include "TransportFile.h"

#include <QHostAddress>
#include <QJsonDocument>
#include <QRegularExpression>

#include <algorithm>
#include <chrono>

namespace {

constexpr qint64 second = 1000000000;

struct Parameter {
    enum class Kind {
        Address,
        Interface, // an address of the node's own
        Port,
        Flag,
    };

    QLatin1String name;
    Kind kind;
    bool mayBeNull;
    bool mayBeAuto;
};

const QVector<Parameter> &parametersOf(ConnectionEndpoint::Role role)
{
    using Kind = Parameter::Kind;
    static const QVector<Parameter> ofSender{
        {QLatin1String("source_ip"), Kind::Interface, false, true},
        {QLatin1String("destination_ip"), Kind::Address, false, true},
        {QLatin1String("source_port"), Kind::Port, false, true},
        {QLatin1String("destination_port"), Kind::Port, false, true},
        {QLatin1String("rtp_enabled"), Kind::Flag, false, false},
    };
    static const QVector<Parameter> ofReceiver{
        {QLatin1String("source_ip"), Kind::Address, true, false},
        {QLatin1String("multicast_ip"), Kind::Address, true, false},
        {QLatin1String("interface_ip"), Kind::Interface, false, true},
        {QLatin1String("destination_port"), Kind::Port, false, true},
        {QLatin1String("rtp_enabled"), Kind::Flag, false, false},
    };
    return role == ConnectionEndpoint::Role::Sender ? ofSender : ofReceiver;
}

bool isValid(const Parameter &parameter, const QJsonValue &value, const QJsonValue &ownAddress)
{
    if ((parameter.mayBeNull && value.isNull())
        || (parameter.mayBeAuto && value == QJsonValue(QLatin1String("auto")))) {
        return true;
    }
    switch (parameter.kind) {
    case Parameter::Kind::Address:
        return !QHostAddress(value.toString()).isNull();
    case Parameter::Kind::Interface:
        return value == ownAddress;
    case Parameter::Kind::Port:
        return value.toInt() >= 1 && value.toInt() <= 65535;
    case Parameter::Kind::Flag:
        return value.isBool();
    }
    return false;
}

bool isIdOrNull(const QJsonValue &value)
{
    static const QRegularExpression id(QStringLiteral(
        "^[0-9a-f]{8}-[0-9a-f]{4}-[1-5][0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}$"));
    return value.isNull() || (value.isString() && id.match(value.toString()).hasMatch());
}

bool isActivation(const QJsonValue &value)
{
    static const QStringList modes{QStringLiteral("activate_immediate"),
                                   QStringLiteral("activate_scheduled_absolute"),
                                   QStringLiteral("activate_scheduled_relative")};
    const QJsonObject object = value.toObject();
    const QJsonValue mode = object.value(QLatin1String("mode"));
    const QJsonValue time = object.value(QLatin1String("requested_time"));
    const QStringList keys = object.keys();
    const bool known = std::all_of(keys.begin(), keys.end(), [](const QString &key) {
        return key == QLatin1String("mode") || key == QLatin1String("requested_time");
    });
    const bool scheduled = mode.isString() && mode.toString() != modes.first();
    return known && (mode.isNull() || modes.contains(mode.toString()))
        && (scheduled ? taiFromText(time.toString()).has_value()
                      : time.isNull() || time.isUndefined() || taiFromText(time.toString()));
}

bool isTransportFile(const QJsonValue &value)
{
    const QJsonObject object = value.toObject();
    const QJsonValue data = object.value(QLatin1String("data"));
    const QJsonValue type = object.value(QLatin1String("type"));
    return object.size() == 2
        && ((data.isNull() && type.isNull()) || (data.isString() && type.isString()));
}

QJsonObject activationObject(const QJsonValue &mode = {}, const QJsonValue &requested = {},
                             const QJsonValue &time = {})
{
    return jsonObject({{"mode", mode}, {"requested_time", requested}, {"activation_time", time}});
}

QString inQuotes(const QString &text)
{
    return QLatin1Char('\'') + text + QLatin1Char('\'');
}

} // namespace

TaiTime taiNow()
{
    constexpr qint64 leapSeconds = 37;
    static_assert(std::chrono::system_clock::period::den <= second);
    const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::nanoseconds>(sinceEpoch).count()
        + leapSeconds * second;
}

QString taiText(TaiTime time)
{
    return QStringLiteral("%1:%2").arg(QString::number(time / second),
                                       QString::number(time % second));
}

std::optional<TaiTime> taiFromText(const QString &text)
{
    static const QRegularExpression form(QStringLiteral("^([0-9]{1,10}):([0-9]{1,9})$"));
    const QRegularExpressionMatch match = form.match(text);
    if (!match.hasMatch()) {
        return {};
    }
    // Far enough off for anybody, and two of them can be added up.
    constexpr qint64 latest = 4000000000;
    const qint64 seconds = match.captured(1).toLongLong();
    if (seconds > latest) {
        return {};
    }
    return seconds * second + match.captured(2).toLongLong();
}

QJsonObject nmosError(int code, const QString &message)
{
    return jsonObject({{"code", code}, {"error", message}, {"debug", QJsonValue()}});
}

ConnectionEndpoint::ConnectionEndpoint(Role endpointRole, Essence endpointEssence,
                                       const QJsonObject &parameterDefaults)
    : role(endpointRole)
    , essence(endpointEssence)
    , defaults(parameterDefaults)
{
    const bool isSender = role == Role::Sender;
    stagedObject = jsonObject({{isSender ? "receiver_id" : "sender_id", QJsonValue()},
                               {"master_enable", isSender},
                               {"activation", activationObject()},
                               {"transport_params", QJsonArray{defaults}}});
    if (!isSender) {
        stagedObject.insert(QLatin1String("transport_file"),
                            jsonObject({{"data", QJsonValue()}, {"type", QJsonValue()}}));
    }
    activeObject = stagedObject;
}

const QJsonObject &ConnectionEndpoint::staged() const
{
    return stagedObject;
}

const QJsonObject &ConnectionEndpoint::active() const
{
    return activeObject;
}

QJsonArray ConnectionEndpoint::constraints() const
{
    QJsonObject leg;
    for (const Parameter &parameter : parametersOf(role)) {
        QJsonObject constraint;
        if (parameter.kind == Parameter::Kind::Interface) {
            constraint = jsonObject({{"enum", QJsonArray{defaults.value(parameter.name)}}});
        }
        leg.insert(parameter.name, constraint);
    }
    return {leg};
}

bool ConnectionEndpoint::isEnabled() const
{
    return activeObject.value(QLatin1String("master_enable")).toBool();
}

QJsonValue ConnectionEndpoint::peer() const
{
    return activeObject.value(QLatin1String(role == Role::Sender ? "receiver_id" : "sender_id"));
}

QJsonObject ConnectionEndpoint::activeParameters() const
{
    return activeObject.value(QLatin1String("transport_params")).toArray().first().toObject();
}

QString ConnectionEndpoint::invalidParameters(const QJsonValue &value) const
{
    const QJsonArray legs = value.toArray();
    if (legs.size() != 1 || !legs.first().isObject()) {
        return QStringLiteral("'transport_params' must be an array of one object");
    }
    const QJsonObject leg = legs.first().toObject();
    const QVector<Parameter> &known = parametersOf(role);
    for (auto member = leg.begin(); member != leg.end(); ++member) {
        const auto parameter =
            std::find_if(known.begin(), known.end(),
                         [&](const Parameter &entry) { return entry.name == member.key(); });
        if (parameter == known.end()) {
            return QString(QStringLiteral("unknown transport parameter ") + inQuotes(member.key()));
        }
        if (!isValid(*parameter, member.value(), defaults.value(parameter->name))) {
            return QString(QStringLiteral("invalid transport parameter ") + inQuotes(member.key()));
        }
    }
    return {};
}

QString ConnectionEndpoint::invalidMember(const QJsonObject &request) const
{
    const bool isReceiver = role == Role::Receiver;
    const QLatin1String peerName(isReceiver ? "sender_id" : "receiver_id");
    for (auto member = request.begin(); member != request.end(); ++member) {
        const QString key = member.key();
        bool valid = true;
        if (key == peerName) {
            valid = isIdOrNull(member.value());
        } else if (key == QLatin1String("master_enable")) {
            valid = member.value().isBool();
        } else if (key == QLatin1String("activation")) {
            valid = isActivation(member.value());
        } else if (key == QLatin1String("transport_file") && isReceiver) {
            valid = isTransportFile(member.value());
        } else if (key == QLatin1String("transport_params")) {
            QString reason = invalidParameters(member.value());
            if (!reason.isEmpty()) {
                return reason;
            }
        } else {
            return QString(QStringLiteral("unknown member ") + inQuotes(key));
        }
        if (!valid) {
            return QString(QStringLiteral("invalid value of ") + inQuotes(key));
        }
    }
    return {};
}

QString ConnectionEndpoint::stageTransportFile(const QJsonObject &file,
                                               QJsonObject *parameters) const
{
    if (file.value(QLatin1String("data")).isNull()) {
        return {};
    }
    if (file.value(QLatin1String("type")) != QJsonValue(QLatin1String("application/sdp"))) {
        return QStringLiteral("the type of the transport file is not supported");
    }
    const auto offer = readTransportFile(file.value(QLatin1String("data")).toString());
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

// Puts everything but the activation of a valid request into the parameters to be staged.
QString ConnectionEndpoint::stage(const QJsonObject &request, QJsonObject *next) const
{
    const QLatin1String parametersName("transport_params");
    QJsonObject parameters = next->value(parametersName).toArray().first().toObject();
    for (auto member = request.begin(); member != request.end(); ++member) {
        if (member.key() != QLatin1String("activation") && member.key() != parametersName) {
            next->insert(member.key(), member.value());
        }
    }
    const QJsonObject file = request.value(QLatin1String("transport_file")).toObject();
    if (!file.isEmpty()) {
        QString reason = stageTransportFile(file, &parameters);
        if (!reason.isEmpty()) {
            return reason;
        }
    }
    // Parameters override the transport file that comes with them.
    const QJsonObject wanted = request.value(parametersName).toArray().first().toObject();
    for (auto member = wanted.begin(); member != wanted.end(); ++member) {
        parameters.insert(member.key(), member.value());
    }
    next->insert(parametersName, QJsonArray{parameters});
    return {};
}

ConnectionEndpoint::Answer ConnectionEndpoint::patch(const QByteArray &body, TaiTime now)
{
    const auto refuse = [](int code, const QString &reason) {
        return Answer{code, nmosError(code, reason), false};
    };
    const QJsonDocument document = QJsonDocument::fromJson(body);
    if (!document.isObject()) {
        return refuse(400, QStringLiteral("the request is not a JSON object"));
    }
    const QJsonObject request = document.object();
    QString reason = invalidMember(request);
    if (!reason.isEmpty()) {
        return refuse(400, reason);
    }
    const QJsonValue activation = request.value(QLatin1String("activation"));
    const QJsonValue mode = activation.toObject().value(QLatin1String("mode"));
    const bool unlocks = activation.isObject() && mode.isNull();
    if (due && !unlocks) {
        return refuse(423, QStringLiteral("locked by a scheduled activation"));
    }
    QJsonObject next = stagedObject;
    reason = stage(request, &next);
    if (!reason.isEmpty()) {
        return refuse(400, reason);
    }
    if (mode.isString()) {
        return schedule(next, mode.toString(), activation.toObject(), now);
    }
    if (unlocks) {
        due.reset();
        next.insert(QLatin1String("activation"), activationObject());
    }
    stagedObject = next;
    return {200, stagedObject, false};
}

ConnectionEndpoint::Answer ConnectionEndpoint::schedule(const QJsonObject &next,
                                                        const QString &mode,
                                                        const QJsonObject &activation, TaiTime now)
{
    const bool isImmediate = mode == QLatin1String("activate_immediate");
    const bool isRelative = mode == QLatin1String("activate_scheduled_relative");
    const QJsonValue requested = activation.value(QLatin1String("requested_time"));
    const TaiTime at =
        isImmediate ? now : taiFromText(requested.toString()).value_or(0) + (isRelative ? now : 0);
    const QJsonObject shown =
        activationObject(mode, isImmediate ? QJsonValue() : requested, taiText(at));
    QJsonObject answer = next;
    answer.insert(QLatin1String("activation"), shown);
    if (isImmediate) {
        activate(next, shown);
        return {200, answer, true};
    }
    stagedObject = answer;
    due = at;
    return {202, answer, false};
}

bool ConnectionEndpoint::activateIfDue(TaiTime now)
{
    if (!due || *due > now) {
        return false;
    }
    due.reset();
    activate(stagedObject, stagedObject.value(QLatin1String("activation")).toObject());
    return true;
}

void ConnectionEndpoint::activate(const QJsonObject &next, const QJsonObject &activation)
{
    stagedObject = next;
    stagedObject.insert(QLatin1String("activation"), activationObject());

    QJsonObject parameters =
        next.value(QLatin1String("transport_params")).toArray().first().toObject();
    for (const Parameter &parameter : parametersOf(role)) {
        if (parameters.value(parameter.name) == QJsonValue(QLatin1String("auto"))) {
            parameters.insert(parameter.name, defaults.value(parameter.name));
        }
    }
    activeObject = next;
    activeObject.insert(QLatin1String("transport_params"), QJsonArray{parameters});
    activeObject.insert(QLatin1String("activation"), activation);
}
