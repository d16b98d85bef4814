#pragma once

#include "SimulatedNode.h"
#include "discovery/NMOSMdnsBrowser.h"
#include "support/Boxes.h"
#include "support/EventCounter.h"
#include "support/ProgramTest.h"
#include "support/TestMain.h"
#include "support/Window.h"

#include <QApplication>
#include <QComboBox>
#include <QDialog>
#include <QDialogButtonBox>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QSpinBox>
#include <QTimer>
#include <QUrl>

#include <functional>

inline const QString connectCommand = "Connect (Tx->Rx)"_s;
inline const QString disconnectCommand = "Disconnect Rx"_s;
inline const QString addCommand = "Add Device"_s;
inline const QString removeCommand = "Remove Device"_s;
inline const QString showTx = "Transmitter IP: show SDP"_s;
inline const QString showRx = "Receiver IP: show SDP"_s;
inline const QString sendersPath = SimulatedNode::collectionPath("senders"_s);
inline const QString receiversPath = SimulatedNode::collectionPath("receivers"_s);
inline const QString devicesPath = SimulatedNode::collectionPath("devices"_s);
inline const QString local = "127.0.0.1"_s;

// A main window whose nodes a test reports, adds and removes, also while the program waits.
struct IntakeWindow : Window {
    IntakeWindow()
    {
        look();
    }

    // What discovery says of a node once it has read its self resource.
    void report(const SimulatedNode &node, const QString &name)
    {
        const QUrl url(node.baseUrl() + "/x-nmos/node/v1.3/self"_s);
        emit window.findChild<NMOSMdnsBrowser *>()->nodeSelfReady(name, url, {});
    }

    static void fillIn(QDialog *dialog, const QString &address, int port)
    {
        dialog->findChild<QLineEdit *>()->setText(address);
        dialog->findChild<QSpinBox *>()->setValue(port);
        click(dialog, QDialogButtonBox::Ok);
    }

    static void click(QDialog *dialog, QDialogButtonBox::StandardButton button)
    {
        dialog->findChild<QDialogButtonBox *>()->button(button)->click();
    }

    void addDevice(const QString &address, int port)
    {
        device = [address, port](QDialog *dialog) {
            fillIn(dialog, address, port);
        };
        press(addCommand);
    }

    void removeDevice(int row)
    {
        device = [row](QDialog *dialog) {
            dialog->findChild<QListWidget *>()->setCurrentRow(row);
            click(dialog, QDialogButtonBox::Ok);
        };
        press(removeCommand);
    }

    static QDialog *dialog()
    {
        return qobject_cast<QDialog *>(QApplication::activeModalWidget());
    }

    // Takes a step as soon as its condition holds and the steps before it have begun, from inside
    // whatever the program waits for by then.
    void when(const std::function<bool()> &condition, const std::function<void()> &step)
    {
        steps.append({condition, step});
    }

    // The same, as soon as the node has been asked for the path.
    void whenAsked(const SimulatedNode &node, const QString &path,
                   const std::function<void()> &step)
    {
        when([&node, path] { return !node.requestLines().filter(path).isEmpty(); }, step);
    }

    std::function<void(QDialog *)> device;
    Boxes boxes{[this](QDialog *shown) {
        if (device) {
            device(shown);
        }
    }};

private:
    void look()
    {
        // First: a step may wait, too.
        QTimer::singleShot(2, &window, [this] { look(); });
        if (!steps.isEmpty() && steps.constFirst().first()) {
            boxes.idle.start();
            steps.takeFirst().second();
        }
    }

    QList<QPair<std::function<bool()>, std::function<void()>>> steps;
};

inline QStringList entries(const QComboBox *selector)
{
    QStringList texts;
    for (int i = 0; i < selector->count(); ++i) {
        texts.append(selector->itemText(i));
    }
    return texts;
}

inline QString entry(const QString &name, const SimulatedNode &node, const QString &label)
{
    return "%1 (%2-%3)"_s.arg(name, node.host(), label);
}

inline QStringList storedDevices()
{
    QStringList hosts;
    QSettings store = settings();
    const auto devices = ManualDevices::read(store);
    for (const ManualDevice &device : devices) {
        hosts.append(device.host());
    }
    return hosts;
}

inline void storeDevices(const QList<ManualDevice> &devices)
{
    QSettings store = settings();
    ManualDevices::write(store, devices);
}
