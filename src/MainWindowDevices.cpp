// Manual devices: nodes that the operator adds by address and port.

#include "MainWindow.h"

#include "net/SyncHttp.h"
#include "nmos/IntakeQueue.h"
#include "widgets/DeviceDialogs.h"
#include "widgets/MessageBox.h"

#include <QSettings>
#include <QTimer>

#include <algorithm>

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
    // An added device is asked at once, and queued only when the request layer would refuse the
    // request.
    if (isRequestRefused()) {
        queueProbe(device);
        intakes->run();
    } else {
        probeManualDevice(device);
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
    const auto host = DeviceDialogs::askWhichToRemove(this, title, hosts);
    if (!host) {
        return;
    }
    const auto device =
        std::find_if(manualDevices.begin(), manualDevices.end(),
                     [&host](const ManualDevice &other) { return other.host() == *host; });
    if (device == manualDevices.end()) {
        return;
    }
    removeEntries(*host);
    manualHosts.remove(*host);
    manualDevices.erase(device);
    if (!saveManualDevices()) {
        showMessage(this,
                    {QMessageBox::Warning, title,
                     QStringLiteral("This device will be back at the next start: the settings "
                                    "cannot be written.")});
    }
}
