#pragma once

#include "SimulatedNode.h"
#include "discovery/NMOSMdnsBrowser.h"
#include "support/Boxes.h"
#include "support/Window.h"

#include <QApplication>
#include <QComboBox>
#include <QDialog>
#include <QLineEdit>
#include <QListWidget>
#include <QSpinBox>
#include <QTimer>
#include <QUrl>

#include <functional>

// A main window whose nodes a test reports, adds and removes, also while the program waits.
struct IntakeWindow : Window {
    IntakeWindow()
    {
        look();
    }

    // What discovery says of a node once it has read its self resource.
    void report(const SimulatedNode &node, const QString &name)
    {
        const QUrl url(node.baseUrl() + QStringLiteral("/x-nmos/node/v1.3/self"));
        emit window.findChild<NMOSMdnsBrowser *>()->nodeSelfReady(name, url, {});
    }

    static void fillIn(QDialog *dialog, const QString &address, int port)
    {
        dialog->findChild<QLineEdit *>()->setText(address);
        dialog->findChild<QSpinBox *>()->setValue(port);
        dialog->accept();
    }

    void addDevice(const QString &address, int port)
    {
        device = [address, port](QDialog *dialog) {
            fillIn(dialog, address, port);
        };
        press(QStringLiteral("Add Device"));
    }

    void removeDevice(int row)
    {
        device = [row](QDialog *dialog) {
            dialog->findChild<QListWidget *>()->setCurrentRow(row);
            dialog->accept();
        };
        press(QStringLiteral("Remove Device"));
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
    return QStringLiteral("%1 (%2-%3)").arg(name, node.host(), label);
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

inline const QString sendersPath = SimulatedNode::collectionPath(QStringLiteral("senders"));
inline const QString receiversPath = SimulatedNode::collectionPath(QStringLiteral("receivers"));
