#include "NodeModel.h"

#include "Json.h"

#include <algorithm>

namespace {

NodeModel::Outcome refusal(int code, const char *reason)
{
    return {{code, toJson(nmosError(code, QLatin1String(reason)))}};
}

// What is found below a path, as every NMOS API lists it.
HttpAnswer listing(const QStringList &names)
{
    QJsonArray array;
    for (const QString &name : names) {
        array.append(QString(name + QLatin1Char('/')));
    }
    return {200, toJson(array)};
}

constexpr char resourceNames[] = "self sources flows devices senders receivers";

QStringList words(const char *text)
{
    return QString::fromLatin1(text).split(QLatin1Char(' '));
}

// What is found below a path that is the same for every node; empty for any other.
QStringList namesBelow(const QString &path)
{
    static const std::pair<const char *, const char *> common[] = {
        {"x-nmos", "connection node"},
        {"x-nmos/node", "v1.3"},
        {"x-nmos/node/v1.3", resourceNames},
        {"x-nmos/connection", "v1.1"},
        {"x-nmos/connection/v1.1", "single"},
        {"x-nmos/connection/v1.1/single", "senders receivers"},
    };
    for (const auto &[place, names] : common) {
        if (path == QLatin1String(place)) {
            return words(names);
        }
    }
    return {};
}

} // namespace

std::optional<HttpAnswer> NodeModel::read(const QStringList &segments)
{
    const QStringList names = namesBelow(segments.join(QLatin1Char('/')));
    if (!names.isEmpty()) {
        return listing(names);
    }
    const QString api = segments.mid(0, 4).join(QLatin1Char('/'));
    const QString name = segments.value(4);
    if (api == QLatin1String("x-nmos/connection/v1.1/single")) {
        if (name == QLatin1String("senders") || name == QLatin1String("receivers")) {
            return endpoint(name == QLatin1String("senders") ? Role::Sender : Role::Receiver,
                            segments.mid(5));
        }
    } else if (api.startsWith(QLatin1String("x-nmos/node/v1.3/")) && segments.size() <= 5) {
        if (const auto body = resourceBody(segments.at(3), name)) {
            return HttpAnswer{200, *body};
        }
    }
    return {};
}

// A resource as a whole, or the one of that id.
std::optional<QByteArray> NodeModel::resourceBody(const QString &name, const QString &id)
{
    if (!words(resourceNames).contains(name)) {
        return {};
    }
    if (id.isEmpty()) {
        QByteArray &body = bodies[name];
        if (body.isEmpty()) {
            const QJsonValue value = resource(name);
            body = value.isArray() ? toJson(value.toArray()) : toJson(value.toObject());
        }
        return body;
    }
    const QJsonArray array = resource(name).toArray();
    for (const QJsonValue &entry : array) {
        if (entry.toObject().value(QLatin1String("id")) == QJsonValue(id)) {
            return toJson(entry.toObject());
        }
    }
    return {};
}

// Segments as in ID/staged.
std::optional<HttpAnswer> NodeModel::endpoint(Role role, const QStringList &segments) const
{
    if (segments.isEmpty()) {
        return listing(ids(role));
    }
    const Endpoint *const found = find(role, segments.first());
    if (!found || segments.size() > 2) {
        return {};
    }
    const QStringList names =
        words(role == Role::Sender ? "constraints staged active transporttype transportfile"
                                   : "constraints staged active transporttype");
    if (segments.size() == 1) {
        return listing(names);
    }
    const ConnectionEndpoint &connection = found->connection;
    switch (names.indexOf(segments.at(1))) {
    case 0:
        return HttpAnswer{200, toJson(connection.constraints())};
    case 1:
        return HttpAnswer{200, toJson(connection.staged())};
    case 2:
        return HttpAnswer{200, toJson(connection.active())};
    case 3:
        return HttpAnswer{200, "\"urn:x-nmos:transport:rtp\""};
    case 4:
        return HttpAnswer{200, manifest(found->id), "application/sdp"};
    default:
        return {};
    }
}

// Segments as in x-nmos/connection/v1.1/single/senders/ID/staged, which exists.
NodeModel::Outcome NodeModel::patch(const HttpRequest &request, const QStringList &segments)
{
    const auto patched =
        std::find_if(endpoints.begin(), endpoints.end(),
                     [&](const Endpoint &endpoint) { return endpoint.id == segments.at(5); });
    const ConnectionEndpoint::Answer result = patched->connection.patch(request.body);
    Outcome outcome{{result.status, toJson(result.body)}};
    if (result.activated) {
        patched->version = taiNow();
        ++patched->sdpVersion;
        bodies.clear();
        outcome.activatedId = patched->id;
    }
    return outcome;
}

NodeModel::Outcome NodeModel::answer(const HttpRequest &request)
{
    const QStringList segments = request.resource.split(QLatin1Char('/'), Qt::SkipEmptyParts);
    const auto found = read(segments);
    if (!found) {
        return refusal(404, "there is no such resource");
    }
    if (request.method == QLatin1String("GET") || request.method == QLatin1String("HEAD")) {
        return {*found};
    }
    if (request.method == QLatin1String("PATCH") && segments.value(6) == QLatin1String("staged")) {
        return patch(request, segments);
    }
    return refusal(405, "this resource has no such method");
}
