#include "nmos/NmosClient.h"

#include "nmos/NmosNames.h"
#include "nmos/NodeRecords.h"
#include "nmos/SyncHttp.h"

#include <QDebug>
#include <QNetworkAccessManager>

NmosClient::NmosClient(QObject *parent)
    : QObject(parent)
    , manager(new QNetworkAccessManager(this))
{
}

QJsonArray NmosClient::getJsonArray(const QString &url)
{
    int status = 0;
    QString error;
    const QByteArray body = syncGet(manager, url, &status, &error);
    if (!isSuccess(status)) {
        qWarning() << "Unable to connect:" << error;
        return {};
    }
    return NodeRecords::parse(body);
}

bool NmosClient::hasReceivers(const QString &host)
{
    return !getJsonArray(nodeApi(host, Resource::receivers)).isEmpty();
}

bool NmosClient::hasSenders(const QString &host)
{
    return !getJsonArray(nodeApi(host, Resource::senders)).isEmpty();
}
