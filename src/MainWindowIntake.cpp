// Node intake: fills the selectors with what the nodes have.

#include "MainWindow.h"

#include "discovery/NMOSMdnsBrowser.h"
#include "nmos/IntakeQueue.h"
#include "nmos/NodeEndpoint.h"
#include "widgets/Selector.h"

#include <QComboBox>
#include <QDebug>
#include <QUrl>

namespace {

std::function<bool(const QVariant &)> isOfHost(const QString &host)
{
    return [host](const QVariant &record) {
        return NodeEndpoint::of(record).host == host;
    };
}

template <typename Connection>
void addEntries(QComboBox *selector, const QList<Connection> &connections)
{
    QList<Selector::Entry> entries;
    for (const Connection &connection : connections) {
        entries.append({connection.displayName, QVariant::fromValue(connection)});
    }
    Selector::of(selector)->add(entries);
}

// Chooses the new entry of a sender or receiver whose chosen entry was removed, unless the field
// has text again.
void chooseAgain(QComboBox *selector, const QString &host, const QString &id)
{
    const auto isRemoved = [&host, &id](const QVariant &record) {
        const NodeEndpoint endpoint = NodeEndpoint::of(record);
        return endpoint.host == host && endpoint.id == id;
    };
    if (id.isEmpty()) {
        return;
    }
    if (isRemoved(Selector::of(selector)->currentRecord())) {
        // Chosen by an earlier run of this intake, which may have been interrupted in the check.
        emit selector->activated(selector->currentIndex());
        return;
    }
    for (int i = 0; i < selector->count() && selector->currentText().isEmpty(); ++i) {
        if (isRemoved(selector->itemData(i))) {
            selector->setCurrentIndex(i);
        }
    }
}

} // namespace

void MainWindow::startDiscovery()
{
    mdns = new NMOSMdnsBrowser(this);
    connect(mdns, &NMOSMdnsBrowser::nodeSelfReady, this, &MainWindow::onMdnsDeviceFound);
    mdns->start();
}

void MainWindow::onMdnsDeviceFound(const QString &serviceName, const QUrl &url,
                                   const QJsonDocument & /*selfDoc*/)
{
    qDebug() << "mDNS found NMOS Node:" << serviceName << url.toString();
    const QString host =
        url.host(QUrl::FullyDecoded) + QLatin1Char(':') + QString::number(url.port());
    discoveredHosts.insert(host);
    intakes->add(host, serviceName, IntakeQueue::Source::Discovery,
                 [this, serviceName, host, removed = RemovedChoice()]() mutable {
                     takeInDiscovered(serviceName, host, &removed);
                 });
    intakes->run();
}

void MainWindow::takeInDiscovered(const QString &serviceName, const QString &host,
                                  RemovedChoice *removed)
{
    if (manualHosts.remove(host)) {
        *removed = removeEntries(host);
    }
    const QString checkedHost = host.section(QLatin1Char(' '), 0, 0);
    if (nmos->hasSenders(checkedHost)) {
        addEntries(txCombo, nmos->listSenders(host, serviceName));
        chooseAgain(txCombo, host, removed->senderId);
    }
    if (nmos->hasReceivers(checkedHost)) {
        addEntries(rxCombo, nmos->listReceivers(host, serviceName));
        chooseAgain(rxCombo, host, removed->receiverId);
    }
}

void MainWindow::probeManualDevices()
{
    // Queue all first: the list may change while one waits.
    for (const ManualDevice &device : qAsConst(manualDevices)) {
        queueProbe(device);
    }
    intakes->run();
}

void MainWindow::queueProbe(const ManualDevice &device)
{
    if (!discoveredHosts.contains(device.host())) {
        intakes->add(device.host(), device.address, IntakeQueue::Source::Stored,
                     [this, device] { probeManualDevice(device); });
    }
}

void MainWindow::probeManualDevice(const ManualDevice &device)
{
    const QString host = device.host();
    // While the device waited in the queue, discovery may have found it, or the operator may have
    // removed it.
    if (discoveredHosts.contains(host) || !manualDevices.contains(device)) {
        return;
    }
    qDebug() << "Probing manual device:" << host;
    const auto addUnlessDiscovered = [this, &host](QComboBox *selector, const auto &connections) {
        // If discovery has found the node meanwhile, it removes what this probe has added.
        if (!discoveredHosts.contains(host)) {
            addEntries(selector, connections);
            manualHosts.insert(host);
        }
    };
    if (nmos->hasSenders(host)) {
        addUnlessDiscovered(txCombo, nmos->listSenders(host, device.address));
    }
    if (nmos->hasReceivers(host)) {
        addUnlessDiscovered(rxCombo, nmos->listReceivers(host, device.address));
    }
}

MainWindow::RemovedChoice MainWindow::removeEntries(const QString &host)
{
    const QVariant sender = Selector::of(txCombo)->remove(isOfHost(host));
    const QVariant receiver = Selector::of(rxCombo)->remove(isOfHost(host));
    return {NodeEndpoint::of(sender).id, NodeEndpoint::of(receiver).id};
}
