#pragma once

#include "discovery/ServiceMetaType.h"
#include "net/RequestGate.h"

#include <qmdnsengine/browser.h>
#include <qmdnsengine/cache.h>
#include <qmdnsengine/server.h>
#include <qmdnsengine/service.h>

#include <QHostAddress>
#include <QJsonDocument>
#include <QMap>
#include <QNetworkAccessManager>
#include <QObject>
#include <QString>
#include <QUrl>

#include <memory>

class ResponseBody;

// Finds the NMOS nodes of the local network: browses DNS-SD for "_nmos-node._tcp.local.", resolves
// what is announced (AMWA IS-04, "Discovery: Peer to Peer Operation") and asks each address for the
// node's self resource. Nothing blocks; every signal comes from the event loop.
//
// There is no de-duplication: each announcement and each change of one leads to a further
// resolution and further requests, so that a listener may hear of one node many times. The requests
// begin in the order in which the addresses are found, as RequestGate lets them.
class NMOSMdnsBrowser final : public QObject {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(NMOSMdnsBrowser)

public:
    // Starts nothing.
    explicit NMOSMdnsBrowser(QObject *parent = nullptr);
    // Stops, and drops the requests in flight without a signal.
    ~NMOSMdnsBrowser() override;

    // Begins browsing; does nothing while it is started. May be called again after stop.
    void start();
    // Stops browsing; does nothing unless it is started. Requests in flight still report; queued
    // ones are dropped.
    void stop();

    // The API version to use with a node whose "api_ver" attribute is text, a comma-separated list:
    // the greatest "v<major>.<minor>" of it by number, the first entry if none has that form,
    // "v1.3" if there is no entry at all.
    static QString selectApiVersion(const QString &text);

signals:
    // A node was announced, or its announcement changed; before anything is resolved. hostname has
    // the trailing dot; a bare key of txt has an empty value.
    void nodeDiscovered(const QString &serviceName, const QString &hostname, quint16 port,
                        const QMap<QString, QString> &txt);
    // A node answered at url, the address that was requested. selfDoc is null when its answer is
    // not JSON; its content is not checked.
    void nodeSelfReady(const QString &serviceName, const QUrl &url, const QJsonDocument &selfDoc);
    // The request to url failed; errorString is the text of the network layer. Also comes for an
    // "api_proto" attribute other than http and https, and for an API version "." or "..": such an
    // address is never requested; and for a response body of more than 1 MiB, as sent or unpacked,
    // as soon as that much is here.
    void nodeError(const QString &serviceName, const QUrl &url, const QString &errorString);
    // The announcement is gone. Results of requests in flight may still come.
    void nodeRemoved(const QString &serviceName);

private slots:
    void onServiceAdded(const QMdnsEngine::Service &svc);
    void onServiceUpdated(const QMdnsEngine::Service &svc);
    void onServiceRemoved(const QMdnsEngine::Service &svc);

private:
    void resolveAndFetch(const QMdnsEngine::Service &svc);
    void fetchSelf(const QHostAddress &address, const QString &scheme, const QString &version,
                   const QMdnsEngine::Service &svc);
    QNetworkReply *sendRequest(const QUrl &url, const QMdnsEngine::Service &svc);
    void handleSelfReply(QNetworkReply *reply, ResponseBody *body, const QUrl &url,
                         const QMdnsEngine::Service &svc);
    void dropSelfReply(QNetworkReply *reply, const ResponseBody *body, const QUrl &url,
                       const QMdnsEngine::Service &svc);
    void reportFailure(const QMdnsEngine::Service &svc, const QUrl &url,
                       const QString &errorString);

    std::unique_ptr<QMdnsEngine::Server> server;
    std::unique_ptr<QMdnsEngine::Cache> cache;
    std::unique_ptr<QMdnsEngine::Browser> browser;
    QNetworkAccessManager network;
    bool started = false;
    RequestGate requests;
};
