#include "NodeModel.h"

#include "Json.h"

#include <algorithm>

namespace {

NodeModel::Outcome refusal(int code, const char *reason)
{
    return {{code, toJson(nmosError(code, QLatin1String(reason)))}};
}

} // namespace

// The answer to a GET of the path, given without its slashes; nothing when it does not exist.
std::optional<HttpAnswer> NodeModel::read(const QStringList &segments)
{
    const QString api = segments.mid(0, 4).join(QLatin1Char('/'));
    if (api == QLatin1String("x-nmos/connection/v1.1/single") && segments.size() == 7) {
        return endpoint(segments.at(4), segments.at(5), segments.at(6));
    }
    if (api.startsWith(QLatin1String("x-nmos/node/v1.3/")) && segments.size() == 4) {
        QByteArray &body = bodies[segments.at(3)];
        if (body.isEmpty()) {
            const QJsonValue value = resource(segments.at(3));
            if (value.isUndefined()) {
                return {};
            }
            body = value.isArray() ? toJson(value.toArray()) : toJson(value.toObject());
        }
        return HttpAnswer{200, body};
    }
    return {};
}

std::optional<HttpAnswer> NodeModel::endpoint(const QString &kind, const QString &id,
                                              const QString &name) const
{
    const bool isSender = kind == QLatin1String("senders");
    const Endpoint *const found = find(isSender ? Role::Sender : Role::Receiver, id);
    if (!found || (!isSender && kind != QLatin1String("receivers"))) {
        return {};
    }
    if (name == QLatin1String("staged")) {
        return HttpAnswer{200, toJson(found->connection.staged())};
    }
    if (name == QLatin1String("active")) {
        return HttpAnswer{200, toJson(found->connection.active())};
    }
    if (isSender && name == QLatin1String("transportfile")) {
        return HttpAnswer{200, manifest(id), "application/sdp"};
    }
    return {};
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
