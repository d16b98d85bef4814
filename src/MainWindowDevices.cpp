// Manual devices: nodes that the operator adds by address and port.

#include "MainWindow.h"

#include "widgets/Placeholder.h"

#include <QDialog>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QSettings>
#include <QSpinBox>
#include <QTimer>

namespace {

constexpr int startUpProbeDelay = 4000; // milliseconds

const QLatin1String devicesKey("manualDevices");
const QLatin1String addressKey("address");
const QLatin1String portKey("port");

// OK accepts, Cancel rejects.
QDialogButtonBox *okAndCancel(QDialog *dialog)
{
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, dialog);
    QObject::connect(buttons, &QDialogButtonBox::accepted, dialog, &QDialog::accept);
    QObject::connect(buttons, &QDialogButtonBox::rejected, dialog, &QDialog::reject);
    return buttons;
}

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
    const int count = settings->beginReadArray(devicesKey);
    for (int i = 0; i < count; ++i) {
        settings->setArrayIndex(i);
        const QString address = settings->value(addressKey, QString()).toString();
        const int port = settings->value(portKey, 80).toInt();
        if (!address.isEmpty()) {
            manualDevices.append({address, port});
        }
    }
    settings->endArray();
}

void MainWindow::saveManualDevices()
{
    settings->beginWriteArray(devicesKey);
    for (int i = 0; i < manualDevices.size(); ++i) {
        settings->setArrayIndex(i);
        settings->setValue(addressKey, manualDevices.at(i).address);
        settings->setValue(portKey, manualDevices.at(i).port);
    }
    settings->endArray();
}

void MainWindow::doAddDevice()
{
    const QString title = QStringLiteral("Add Device");
    QDialog dialog(this);
    dialog.setWindowTitle(title);
    auto *address = new QLineEdit(&dialog);
    const QString example = QStringLiteral("e.g. 10.0.0.5 or mydevice.local");
    setMutedPlaceholder(address, example);
    // All of the example is seen, and the frame has room.
    address->setMinimumWidth(
        address->fontMetrics().horizontalAdvance(example + QLatin1String("MMM")));
    auto *port = new QSpinBox(&dialog);
    port->setRange(1, 65535);
    port->setValue(80);
    // Ports are typed. The style sheet leaves the arrows dark on dark.
    port->setButtonSymbols(QAbstractSpinBox::NoButtons);
    auto *form = new QFormLayout;
    form->addRow(QStringLiteral("Address:"), address);
    form->addRow(QStringLiteral("Port:"), port);
    auto *layout = new QVBoxLayout(&dialog);
    layout->addLayout(form);
    layout->addWidget(okAndCancel(&dialog));
    if (dialog.exec() != QDialog::Accepted) {
        return;
    }

    const ManualDevice device{address->text().trimmed(), port->value()};
    if (device.address.isEmpty()) {
        return;
    }
    if (manualDevices.contains(device)) {
        showMessage(QMessageBox::Information, title,
                    QStringLiteral("This device is already in the manual device list."));
        return;
    }
    manualDevices.append(device);
    saveManualDevices();
    probeManualDevice(device);
}

void MainWindow::doRemoveDevice()
{
    const QString title = QStringLiteral("Remove Device");
    if (manualDevices.isEmpty()) {
        showMessage(QMessageBox::Information, title,
                    QStringLiteral("No manual devices have been added."));
        return;
    }
    QDialog dialog(this);
    dialog.setWindowTitle(title);
    auto *label = new QLabel(QStringLiteral("Select a device to remove:"), &dialog);
    auto *list = new QListWidget(&dialog);
    for (const ManualDevice &device : qAsConst(manualDevices)) {
        list->addItem(device.host());
    }
    list->setCurrentRow(0);
    auto *layout = new QVBoxLayout(&dialog);
    layout->addWidget(label);
    layout->addWidget(list);
    layout->addWidget(okAndCancel(&dialog));
    const bool accepted = dialog.exec() == QDialog::Accepted;

    const int row = list->currentRow();
    if (!accepted || row < 0 || row >= manualDevices.size()) {
        return;
    }
    const QString host = manualDevices.at(row).host();
    removeEntries(host);
    manualHosts.remove(host);
    manualDevices.removeAt(row);
    saveManualDevices();
}
