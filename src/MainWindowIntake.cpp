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

// Chooses the entry that names what the operator had chosen when its earlier entry was removed,
// unless they have put something else into the field since.
void chooseAgain(QComboBox *selector, const QString &host, const QString &id)
{
    if (id.isEmpty() || !selector->currentText().isEmpty()) {
        return;
    }
    for (int i = 0; i < selector->count(); ++i) {
        const NodeEndpoint endpoint = NodeEndpoint::of(selector->itemData(i));
        if (endpoint.host == host && endpoint.id == id) {
            selector->setCurrentIndex(i);
            return;
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
                 [this, serviceName, host] { takeInDiscovered(serviceName, host); });
    intakes->run();
}

void MainWindow::takeInDiscovered(const QString &serviceName, const QString &host)
{
    RemovedChoice removed;
    if (manualHosts.contains(host)) {
        removed = removeEntries(host);
        manualHosts.remove(host);
    }
    const QString checkedHost = host.section(QLatin1Char(' '), 0, 0);
    if (nmos->hasSenders(checkedHost)) {
        addEntries(txCombo, nmos->listSenders(host, serviceName));
        chooseAgain(txCombo, host, removed.senderId);
    }
    if (nmos->hasReceivers(checkedHost)) {
        addEntries(rxCombo, nmos->listReceivers(host, serviceName));
        chooseAgain(rxCombo, host, removed.receiverId);
    }
}

void MainWindow::probeManualDevices()
{
    // All have their place before the first one waits: the list may change meanwhile.
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
        // Discovery may have found the node meanwhile, and takes away what was added so far.
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
