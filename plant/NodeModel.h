#pragma once

#include "ConnectionEndpoint.h"
#include "HttpServer.h"
#include "NodeDescription.h"

#include <QHash>
#include <QHostAddress>
#include <QJsonArray>
#include <QJsonObject>
#include <QStringList>

#include <optional>
#include <vector>

// The resources of a node and what it answers to a request, without sockets and not for several
// threads at a time.
class NodeModel final {
public:
    using Role = ConnectionEndpoint::Role;

    NodeModel(const NodeDescription &description, const QHostAddress &address, quint16 port);

    struct Outcome {
        HttpAnswer answer;
        QString activatedId = {}; // the sender or receiver that the request activated; empty: none
    };
    Outcome answer(const HttpRequest &request);

    // "http://127.0.0.1:8010"
    static QString baseUrl(const QHostAddress &address, quint16 port);

    // Of one essence, or all.
    QStringList ids(Role role, std::optional<Essence> essence = {}) const;

    // Empty for an unknown id.
    QJsonObject active(Role role, const QString &id) const;
    QByteArray manifest(const QString &senderId) const;

    // "self" is an object; "devices", "flows", "senders" and "receivers" are arrays. Undefined for
    // any other name.
    QJsonValue resource(const QString &name) const;

private:
    struct Endpoint {
        Role role;
        Essence essence;
        QString id;
        QString label;
        QString deviceId;
        ConnectionEndpoint connection;
        QString version;
        quint32 sdpVersion;
    };

    struct Device {
        QString id;
        QString label;
    };

    void addEndpoints(const QVector<EndpointDescription> &descriptions, Role role);
    QJsonObject parameterDefaults(Role role, const QString &id) const;
    const Endpoint *find(Role role, const QString &id) const;

    QJsonObject self() const;
    QJsonObject deviceObject(const Device &device) const;
    QJsonObject flowObject(const Endpoint &sender) const;
    static QJsonObject endpointObject(const Endpoint &endpoint, const char *peerName,
                                      const QJsonValue &peer, const QJsonObject &own);
    QJsonObject senderObject(const Endpoint &sender) const;
    QJsonObject receiverObject(const Endpoint &receiver) const;

    std::optional<HttpAnswer> read(const QStringList &segments);
    std::optional<HttpAnswer> endpoint(const QString &kind, const QString &id,
                                       const QString &name) const;
    Outcome patch(const HttpRequest &request, const QStringList &segments);

    QString label;
    QHostAddress address;
    quint16 port;
    QString base;
    QString nodeId;
    QString created;
    std::vector<Device> devices;
    std::vector<Endpoint> endpoints;
    QHash<QString, QByteArray> bodies; // serialised resources, emptied by activations
};
