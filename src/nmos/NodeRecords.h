#pragma once

#include "nmos/NmosClient.h"

#include <QJsonArray>
#include <QList>
#include <QString>

// Reads the collections of a node (AMWA IS-04 v1.3, Node API). Each function is the part of the
// NmosClient operation of that name that needs no network. Malformed elements are skipped.
namespace NodeRecords {

QList<NmosClient::ReceiverConnection> listReceivers(const QJsonArray &receivers,
                                                    const QString &host, const QString &nodeName);
QList<NmosClient::SenderConnection> listSenders(const QJsonArray &flows, const QJsonArray &senders,
                                                const QString &host, const QString &nodeName);

// The record must have no id yet.
bool findReceiver(const QJsonArray &receivers, const QString &host, int kind,
                  NmosClient::ReceiverLookup *receiver, const QString &preferredId);

// The id of the first flow of the format kind; empty when there is none.
QString findFlow(const QJsonArray &flows, int kind);

// Looks for the first sender whose member of that name is exactly the wanted text. The record must
// have neither id nor manifestHref yet.
bool findSender(const QJsonArray &senders, const QString &host, QLatin1String key,
                const QString &wanted, NmosClient::SenderLookup *sender);

void fillDeviceReceivers(const QJsonArray &devices, const QJsonArray &receivers,
                         NmosClient::ReceiverLookup *receiver);
void fillDeviceSenders(const QJsonArray &devices, const QJsonArray &senders,
                       const QJsonArray &flows, NmosClient::SenderLookup *sender);

} // namespace NodeRecords
