#pragma once

#include "discovery/ServiceMetaType.h"

#include <qmdnsengine/browser.h>
#include <qmdnsengine/cache.h>
#include <qmdnsengine/server.h>
#include <qmdnsengine/service.h>

#include <QAbstractListModel>
#include <QList>

// The services of one type (DNS-SD, RFC 6763) that are announced on the network, a row for each in
// order of arrival. Browses from construction to destruction.
//
// Services are identified by instance name alone; with several of one name, which takes a browse of
// all types, updates and removals apply to the first row.
class ServiceModel final : public QAbstractListModel {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(ServiceModel)

public:
    // type as QMdnsEngine::Browser takes it; a malformed one gives a model that stays empty. The
    // server must outlive the model.
    ServiceModel(QMdnsEngine::Server *server, const QByteArray &type);
    ~ServiceModel() override;

    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    // Qt::DisplayRole: "name (type)". Qt::UserRole: the QMdnsEngine::Service itself. Nothing else.
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;

    // The first row whose service has this instance name, byte for byte; -1 when there is none.
    int findService(const QByteArray &name) const;

private slots:
    void onServiceAdded(const QMdnsEngine::Service &service);
    void onServiceUpdated(const QMdnsEngine::Service &service);
    void onServiceRemoved(const QMdnsEngine::Service &service);

private:
    QMdnsEngine::Cache cache;
    QMdnsEngine::Browser browser;
    QList<QMdnsEngine::Service> services;
};
