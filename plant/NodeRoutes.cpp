#include "NodeModel.h"

#include "Json.h"

#include <QRegularExpression>

#include <algorithm>

namespace {

HttpAnswer errorAnswer(int code, const QString &message)
{
    return {code, toJson(nmosError(code, message))};
}

// For browsers, which ask what they may send to another host before they send it.
HttpAnswer optionsAnswer()
{
    HttpAnswer answer;
    answer.headers = {{"Access-Control-Allow-Methods", "GET, PUT, POST, PATCH, HEAD, OPTIONS"},
                      {"Access-Control-Allow-Headers", "Content-Type, Accept"},
                      {"Access-Control-Max-Age", "3600"}};
    return answer;
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

const QStringList &resourceNames()
{
    static const QStringList names{QStringLiteral("self"),    QStringLiteral("sources"),
                                   QStringLiteral("flows"),   QStringLiteral("devices"),
                                   QStringLiteral("senders"), QStringLiteral("receivers")};
    return names;
}

// What is found below the paths that are the same for every node.
const QHash<QString, QStringList> &commonPaths()
{
    static const QStringList both{QStringLiteral("senders"), QStringLiteral("receivers")};
    static const QHash<QString, QStringList> paths{
        {QStringLiteral("x-nmos"), {QStringLiteral("connection"), QStringLiteral("node")}},
        {QStringLiteral("x-nmos/node"), {QStringLiteral("v1.3")}},
        {QStringLiteral("x-nmos/node/v1.3"), resourceNames()},
        {QStringLiteral("x-nmos/connection"), {QStringLiteral("v1.1")}},
        {QStringLiteral("x-nmos/connection/v1.1"),
         {QStringLiteral("bulk"), QStringLiteral("single")}},
        {QStringLiteral("x-nmos/connection/v1.1/bulk"), both},
        {QStringLiteral("x-nmos/connection/v1.1/single"), both},
    };
    return paths;
}

} // namespace

std::optional<HttpAnswer> NodeModel::read(const QStringList &segments)
{
    const auto common = commonPaths().constFind(segments.join(QLatin1Char('/')));
    if (common != commonPaths().constEnd()) {
        return listing(*common);
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
    if (!resourceNames().contains(name)) {
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
    QStringList names{QStringLiteral("constraints"), QStringLiteral("staged"),
                      QStringLiteral("active"), QStringLiteral("transporttype")};
    if (role == Role::Sender) {
        names.append(QStringLiteral("transportfile"));
    }
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
    // Optional in IS-05; a controller falls back on single requests.
    static const QRegularExpression bulk(
        QStringLiteral("^/x-nmos/connection/v1.1/bulk/(senders|receivers)/?$"));
    const bool isBulk = bulk.match(request.resource).hasMatch();
    const auto found = isBulk ? HttpAnswer() : read(segments);
    if (!found) {
        return {errorAnswer(404, QStringLiteral("there is no such resource"))};
    }
    if (request.method == QLatin1String("OPTIONS")) {
        return {optionsAnswer()};
    }
    if (isBulk && request.method == QLatin1String("POST")) {
        return {errorAnswer(501, QStringLiteral("bulk requests are not supported"))};
    }
    if (!isBulk
        && (request.method == QLatin1String("GET") || request.method == QLatin1String("HEAD"))) {
        return {*found};
    }
    if (request.method == QLatin1String("PATCH") && segments.value(6) == QLatin1String("staged")) {
        return patch(request, segments);
    }
    return {errorAnswer(405, QStringLiteral("this resource has no such method"))};
}
