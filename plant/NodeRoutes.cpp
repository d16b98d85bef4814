#include "NodeModel.h"

#include "Json.h"

#include <QJsonDocument>

namespace {

using Role = ConnectionEndpoint::Role;

const QLatin1String sendersName("senders");
const QLatin1String receiversName("receivers");

QByteArray toJson(const QJsonObject &object)
{
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

QByteArray toJson(const QJsonArray &array)
{
    return QJsonDocument(array).toJson(QJsonDocument::Compact);
}

// The list of what is found below a path, as every NMOS API gives it.
QByteArray listing(const QStringList &names)
{
    QJsonArray array;
    for (const QString &name : names) {
        array.append(QString(name + QLatin1Char('/')));
    }
    return toJson(array);
}

HttpAnswer errorAnswer(int code, const QString &message)
{
    HttpAnswer answer;
    answer.status = code;
    answer.body = toJson(nmosError(code, message));
    return answer;
}

HttpAnswer optionsAnswer()
{
    HttpAnswer answer;
    answer.headers = {{"Access-Control-Allow-Methods", "GET, PUT, POST, PATCH, HEAD, OPTIONS"},
                      {"Access-Control-Allow-Headers", "Content-Type, Accept"},
                      {"Access-Control-Max-Age", "3600"}};
    return answer;
}

// What exists, but not for reading: the bulk interface and the receivers' old target.
HttpAnswer notFound(const HttpRequest &request, const QStringList &segments)
{
    const bool isBulk = segments.size() == 5 && segments.at(3) == QLatin1String("bulk");
    const bool isTarget = segments.size() == 6 && segments.at(3) == receiversName
        && segments.at(5) == QLatin1String("target");
    if (!isBulk && !isTarget) {
        return errorAnswer(404, QStringLiteral("there is no such resource"));
    }
    if (request.method == "OPTIONS") {
        return optionsAnswer();
    }
    if (request.method == (isBulk ? "POST" : "PUT")) {
        return errorAnswer(501, QStringLiteral("not supported by this node"));
    }
    HttpAnswer answer = errorAnswer(405, QStringLiteral("this resource cannot be read"));
    answer.headers = {{"Allow", isBulk ? "OPTIONS, POST" : "OPTIONS, PUT"}};
    return answer;
}

std::optional<Role> roleOf(const QString &name)
{
    if (name == sendersName) {
        return Role::Sender;
    }
    return name == receiversName ? std::optional(Role::Receiver) : std::nullopt;
}

} // namespace

const QByteArray &NodeModel::resourceBody(const QString &name)
{
    QByteArray &body = bodies[name];
    if (body.isEmpty()) {
        const QJsonValue value = resource(name);
        body = value.isArray() ? toJson(value.toArray()) : toJson(value.toObject());
    }
    return body;
}

// Segments as in x-nmos/node/v1.3/senders/ID.
std::optional<QByteArray> NodeModel::nodeApi(const QStringList &segments)
{
    static const QStringList names{QStringLiteral("self"),    QStringLiteral("sources"),
                                   QStringLiteral("flows"),   QStringLiteral("devices"),
                                   QStringLiteral("senders"), QStringLiteral("receivers")};
    if (segments.size() == 2) {
        return listing({QStringLiteral("v1.3")});
    }
    if (segments.at(2) != QLatin1String("v1.3")) {
        return {};
    }
    if (segments.size() == 3) {
        return listing(names);
    }
    const QString &name = segments.at(3);
    if (segments.size() == 4 && names.contains(name)) {
        return resourceBody(name);
    }
    if (segments.size() == 5) {
        const QJsonArray array = resource(name).toArray();
        for (const QJsonValue &entry : array) {
            if (entry.toObject().value(QLatin1String("id")) == QJsonValue(segments.at(4))) {
                return toJson(entry.toObject());
            }
        }
    }
    return {};
}

// Segments as in x-nmos/connection/v1.1/single/senders/ID/staged.
std::optional<QByteArray> NodeModel::connectionApi(const QStringList &segments,
                                                   QByteArray *contentType)
{
    if (segments.size() == 2) {
        return listing({QStringLiteral("v1.1")});
    }
    if (segments.at(2) != QLatin1String("v1.1")) {
        return {};
    }
    if (segments.size() == 3) {
        return listing({QStringLiteral("bulk"), QStringLiteral("single")});
    }
    const bool isSingle = segments.at(3) == QLatin1String("single");
    if (!isSingle && segments.at(3) != QLatin1String("bulk")) {
        return {};
    }
    if (segments.size() == 4) {
        return listing({sendersName, receiversName});
    }
    const auto role = roleOf(segments.at(4));
    if (!isSingle || !role) {
        return {};
    }
    if (segments.size() == 5) {
        return listing(*role == Role::Sender ? senderIds({}) : receiverIds({}));
    }
    return singleEndpoint(segments, contentType);
}

std::optional<QByteArray> NodeModel::singleEndpoint(const QStringList &segments,
                                                    QByteArray *contentType) const
{
    const Role role = *roleOf(segments.at(4));
    const Endpoint *const endpoint = find(role, segments.at(5));
    if (!endpoint) {
        return {};
    }
    QStringList names{QStringLiteral("constraints"), QStringLiteral("staged"),
                      QStringLiteral("active"), QStringLiteral("transporttype")};
    if (role == Role::Sender) {
        names.append(QStringLiteral("transportfile"));
    }
    if (segments.size() == 6) {
        return listing(names);
    }
    const ConnectionEndpoint &connection = endpoint->connection;
    switch (segments.size() == 7 ? names.indexOf(segments.at(6)) : -1) {
    case 0:
        return toJson(connection.constraints());
    case 1:
        return toJson(connection.staged());
    case 2:
        return toJson(connection.active());
    case 3:
        return QByteArray("\"urn:x-nmos:transport:rtp\"");
    case 4:
        *contentType = "application/sdp";
        return manifest(endpoint->id);
    default:
        return {};
    }
}

std::optional<NodeModel::Outcome> NodeModel::patchStaged(const HttpRequest &request,
                                                         const QStringList &segments)
{
    if (request.method != "PATCH" || segments.size() != 7
        || segments.at(6) != QLatin1String("staged")) {
        return {};
    }
    const TaiTime now = taiNow();
    Endpoint *const endpoint = find(*roleOf(segments.at(4)), segments.at(5));
    const ConnectionEndpoint::Answer result = endpoint->connection.patch(request.body, now);
    Outcome outcome;
    outcome.answer.status = result.status;
    outcome.answer.body = toJson(result.body);
    if (result.activated) {
        noteActivation(*endpoint, now);
        outcome.activatedId = endpoint->id;
    } else if (result.status == 202) {
        ++scheduled;
    }
    return outcome;
}

NodeModel::Outcome NodeModel::answer(const HttpRequest &request)
{
    advance();
    const QStringList segments = request.path.split(QLatin1Char('/'), Qt::SkipEmptyParts);
    const QString api = segments.value(1);
    const bool isNodeApi = api == QLatin1String("node");
    const bool isConnectionApi = api == QLatin1String("connection");
    HttpAnswer found;
    std::optional<QByteArray> body;
    if (segments.value(0) != QLatin1String("x-nmos")) {
        body = {};
    } else if (segments.size() == 1) {
        body = listing({QStringLiteral("connection"), QStringLiteral("node")});
    } else if (isNodeApi) {
        body = nodeApi(segments);
    } else if (isConnectionApi) {
        body = connectionApi(segments, &found.contentType);
    }
    if (!body) {
        return {notFound(request, segments)};
    }
    if (request.method == "OPTIONS") {
        return {optionsAnswer()};
    }
    if (request.method == "GET" || request.method == "HEAD") {
        found.body = *body;
        return {found};
    }
    if (isConnectionApi) {
        if (const auto patched = patchStaged(request, segments)) {
            return *patched;
        }
    }
    return {errorAnswer(405, QStringLiteral("this resource cannot be changed"))};
}
