// Manual devices: nodes that the operator adds by address and port.

#include "MainWindow.h"

#include "net/SyncHttp.h"
#include "nmos/IntakeQueue.h"
#include "widgets/DeviceDialogs.h"
#include "widgets/MessageBox.h"

#include <QSettings>
#include <QTimer>

using namespace std::chrono_literals;

namespace {

constexpr std::chrono::milliseconds startUpProbeDelay = 4000ms;

} // namespace

void MainWindow::startManualDevices()
{
    loadManualDevices();
    if (!manualDevices.isEmpty()) {
        QTimer::singleShot(startUpProbeDelay, this, &MainWindow::probeManualDevices);
    }
}

void MainWindow::loadManualDevices()
{
    manualDevices = ManualDevices::read(*settings);
}

bool MainWindow::saveManualDevices()
{
    return ManualDevices::write(*settings, manualDevices);
}

void MainWindow::doAddDevice()
{
    const QString title = QStringLiteral("Add Device");
    const auto answer = DeviceDialogs::askForDevice(this, title);
    if (!answer || answer->address.isEmpty()) {
        return;
    }
    const ManualDevice device{answer->address, answer->port};
    if (manualDevices.contains(device)) {
        showMessage(this,
                    {QMessageBox::Information, title,
                     QStringLiteral("This device is already in the manual device list.")});
        return;
    }
    manualDevices.append(device);
    if (!saveManualDevices()) {
        showMessage(this,
                    {QMessageBox::Warning, title,
                     QStringLiteral("This device will not be remembered: the settings cannot be "
                                    "written.")});
    }
    // A command of the operator does not queue up behind the intakes. Where the request layer would
    // refuse it, it gets a place in the queue after all.
    if (requestActivity().depth < maximumRequestDepth) {
        const IntakeQueue::OperatorCommand command(intakes);
        probeManualDevice(device);
    } else {
        queueProbe(device);
        intakes->run();
    }
}

void MainWindow::doRemoveDevice()
{
    const QString title = QStringLiteral("Remove Device");
    if (manualDevices.isEmpty()) {
        showMessage(this,
                    {QMessageBox::Information, title,
                     QStringLiteral("No manual devices have been added.")});
        return;
    }
    QStringList hosts;
    for (const ManualDevice &device : qAsConst(manualDevices)) {
        hosts.append(device.host());
    }
    const auto row = DeviceDialogs::askWhichToRemove(this, title, hosts);
    if (!row || *row >= manualDevices.size()) {
        return;
    }
    const QString host = manualDevices.at(*row).host();
    removeEntries(host);
    manualHosts.remove(host);
    manualDevices.removeAt(*row);
    if (!saveManualDevices()) {
        showMessage(this,
                    {QMessageBox::Warning, title,
                     QStringLiteral("This device will be back at the next start: the settings "
                                    "cannot be written.")});
    }
}
