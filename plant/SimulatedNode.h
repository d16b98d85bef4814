#pragma once

#include "Fault.h"
#include "HttpServer.h"
#include "NodeDescription.h"

#include <QHostAddress>
#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>
#include <optional>

using LoggedRequest = HttpRequest;

// An NMOS node on real sockets: what a controller uses of the AMWA IS-04 v1.3 Node API (self,
// devices, flows, senders, receivers) and the IS-05 v1.1 Connection API (staged, active, transport
// file) at one address and port, as the AMWA schemas have it, with SDP manifests as SMPTE ST
// 2110-20, -30 and -40 senders publish them. Listings, sources, single resources and constraints
// are left out.
//
// Requests are served on threads of the node's own, so the thread that made the node may run an
// event loop or wait. Every member may be called from any thread at any time.
//
// A receiver that is patched with a transport file takes addresses and port from it, and refuses
// (400) what is no SDP or one of another essence. Senders are active from the start, receivers are
// not. Nodes of the same label have the same ids, in every run. An immediate activation takes
// effect before its PATCH is answered; scheduled activations and transport parameters are refused
// (400).
class SimulatedNode final {
public:
    // Listens at once. Port 0 takes a free one. A link-local address needs its scope id. When it
    // cannot listen there, isListening() is false and nothing is served.
    explicit SimulatedNode(const NodeDescription &description = NodeDescription::transmitter(),
                           const QHostAddress &address = QHostAddress::LocalHost, quint16 port = 0);
    // Ends every connection, also those with requests that hang, at once.
    ~SimulatedNode();
    Q_DISABLE_COPY_MOVE(SimulatedNode)

    bool isListening() const;
    QHostAddress address() const;
    quint16 port() const;
    QString label() const;

    // "127.0.0.1:8010"; an IPv6 address stands without brackets, with its zone: "::1:8010".
    QString host() const;

    // "http://127.0.0.1:8010", an IPv6 address in brackets, a zone as %25zone (RFC 6874); no slash
    // at the end.
    QString baseUrl() const;

    // Closes all connections and the port. Connecting is refused until start().
    void stop();

    // Listens again, on the same port, with all state kept. False when the port is taken.
    bool start();

    // Ids in the order of the description; of one essence, or all.
    QStringList senderIds(std::optional<Essence> essence = {}) const;
    QStringList receiverIds(std::optional<Essence> essence = {}) const;

    // Paths, for faults, resources and comparing with the request log.
    static QString collectionPath(const QString &name); // "/x-nmos/node/v1.3/senders/"
    static QString receiverStagedPath(const QString &id);
    static QString senderStagedPath(const QString &id);
    static QString manifestPath(const QString &senderId); // where manifest_href points to

    // The receiver's active endpoint of the Connection API as it is now; empty for an unknown id.
    QJsonObject receiverActive(const QString &id) const;

    // The SDP that the sender offers now.
    QByteArray manifest(const QString &senderId) const;

    // The Node API's collection "devices", "flows", "senders" or "receivers" as the
    // node's state gives it, whatever setCollection() put in its place.
    QJsonArray collection(const QString &name) const;

    // Serves this in place of the collection, with and without trailing slash, be it JSON or not.
    // Single resources and the Connection API stay as they are.
    void setCollection(const QString &name, const QByteArray &body);

    // Serves a body for GET requests of any path (without query), known to the node or not.
    void setResource(const QString &path, const QByteArray &body,
                     const QByteArray &contentType = "application/json");

    // Switches a fault on for a path (without query, its trailing slash not compared); a path that
    // ends in '*' stands for every path that begins with what precedes the '*'. Replaces the
    // fault of the same path and method. When several match, the one set last acts.
    void setFault(const QString &path, const Fault &fault);
    // Removes the faults of this path, or all; requests that hang on one get their answer.
    void clearFaults(const QString &path = {});

    // Milliseconds that every answer takes, in addition to any fault; 0 from the start.
    void setResponseDelay(int milliseconds);

    // Every request since the start or since clearRequests(), in order of arrival. A request is in
    // here before any of its answer is sent. With a method: the requests of that one only.
    QList<LoggedRequest> requests(const QString &method = {}) const;
    // "GET /x-nmos/node/v1.3/senders/"
    QStringList requestLines() const;
    void clearRequests();

    // Called for every request after it was logged, on the thread that serves it. It must not stop
    // the node.
    void setRequestObserver(const std::function<void(const LoggedRequest &)> &observer);

private:
    struct Private;
    const std::unique_ptr<Private> d;
};
