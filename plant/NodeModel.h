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
    NodeModel(const NodeDescription &description, const QHostAddress &address, quint16 port);

    // The sender or receiver that a staged endpoint belongs to, when its PATCH activated it.
    struct Outcome {
        HttpAnswer answer;
        QString activatedId = {};
    };
    Outcome answer(const HttpRequest &request);

    // "http://127.0.0.1:8010"
    static QString baseUrl(const QHostAddress &address, quint16 port);

    const QString &nodeId() const;
    QStringList deviceIds() const;
    QStringList senderIds(std::optional<Essence> essence) const;
    QStringList receiverIds(std::optional<Essence> essence) const;

    // Do the scheduled activations that are due, so that what follows shows the present state.
    void advance();

    // Null for an unknown id.
    const ConnectionEndpoint *sender(const QString &id) const;
    const ConnectionEndpoint *receiver(const QString &id) const;

    // Empty for an unknown id.
    QByteArray manifest(const QString &senderId) const;

    // "self" is an object, "devices", "sources", "flows", "senders" and "receivers" are arrays; all
    // else is undefined.
    QJsonValue resource(const QString &name) const;

private:
    struct Endpoint {
        ConnectionEndpoint::Role role;
        Essence essence;
        QString id;
        QString label;
        int device;
        ConnectionEndpoint connection;
        QString version;
        quint32 sdpVersion;
        QString sourceId = {}; // of senders only, as the next
        QString flowId = {};
    };
    using Endpoints = std::vector<Endpoint>;

    struct Device {
        QString id;
        QString label;
        QStringList senders;
        QStringList receivers;
    };

    void addEndpoint(const EndpointDescription &description, ConnectionEndpoint::Role role,
                     int place);
    QJsonObject parameterDefaults(ConnectionEndpoint::Role role, const QString &id) const;
    const Endpoint *find(ConnectionEndpoint::Role role, const QString &id) const;
    Endpoint *find(ConnectionEndpoint::Role role, const QString &id);
    void noteActivation(Endpoint &endpoint, TaiTime time);

    QJsonObject self() const;
    QJsonObject deviceObject(const Device &device) const;
    QJsonObject sourceObject(const Endpoint &sender) const;
    QJsonObject flowObject(const Endpoint &sender) const;
    QJsonObject senderObject(const Endpoint &sender) const;
    QJsonObject receiverObject(const Endpoint &receiver) const;

    const QByteArray &resourceBody(const QString &name);
    std::optional<QByteArray> nodeApi(const QStringList &segments);
    std::optional<QByteArray> connectionApi(const QStringList &segments, QByteArray *contentType);
    std::optional<QByteArray> singleEndpoint(const QStringList &segments,
                                             QByteArray *contentType) const;
    std::optional<Outcome> patchStaged(const HttpRequest &request, const QStringList &segments);

    QString label;
    QHostAddress address;
    quint16 port;
    QString base;
    QString id;
    QString created;
    std::vector<Device> devices;
    Endpoints senders;
    Endpoints receivers;
    QHash<QString, int> senderPlaces;
    QHash<QString, int> receiverPlaces;
    QHash<QString, QByteArray> bodies; // serialised resources, emptied by activations
    int scheduled = 0; // activations to come, and those taken back
};
