#include "discovery/ServiceModel.h"

#include "net/Utf8.h"

#include <algorithm>

ServiceModel::ServiceModel(QMdnsEngine::Server *server, const QByteArray &type)
    : browser(server, type, &cache)
{
    qRegisterMetaType<QMdnsEngine::Service>("QMdnsEngine::Service");
    connect(&browser, &QMdnsEngine::Browser::serviceAdded, this, &ServiceModel::onServiceAdded);
    connect(&browser, &QMdnsEngine::Browser::serviceUpdated, this, &ServiceModel::onServiceUpdated);
    connect(&browser, &QMdnsEngine::Browser::serviceRemoved, this, &ServiceModel::onServiceRemoved);
}

ServiceModel::~ServiceModel() = default;

int ServiceModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : services.size();
}

QVariant ServiceModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.row() < 0 || index.row() >= services.size()) {
        return {};
    }
    const QMdnsEngine::Service &service = services.at(index.row());
    switch (role) {
    case Qt::DisplayRole:
        return QStringLiteral("%1 (%2)").arg(utf8Text(service.name()), utf8Text(service.type()));
    case Qt::UserRole:
        return QVariant::fromValue(service);
    default:
        return {};
    }
}

int ServiceModel::findService(const QByteArray &name) const
{
    const auto found =
        std::find_if(services.cbegin(), services.cend(),
                     [&name](const auto &service) { return service.name() == name; });
    return found == services.cend() ? -1 : static_cast<int>(found - services.cbegin());
}

void ServiceModel::onServiceAdded(const QMdnsEngine::Service &service)
{
    beginInsertRows({}, services.size(), services.size());
    services.append(service);
    endInsertRows();
}

void ServiceModel::onServiceUpdated(const QMdnsEngine::Service &service)
{
    const int row = findService(service.name());
    if (row >= 0) {
        services[row] = service;
        emit dataChanged(index(row), index(row));
    }
}

void ServiceModel::onServiceRemoved(const QMdnsEngine::Service &service)
{
    const int row = findService(service.name());
    if (row >= 0) {
        beginRemoveRows({}, row, row);
        services.removeAt(row);
        endRemoveRows();
    }
}
