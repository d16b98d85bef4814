#pragma once

#include "SimulatedNode.h"
#include "discovery/NMOSMdnsBrowser.h"
#include "support/Boxes.h"
#include "support/Window.h"

#include <QComboBox>
#include <QDialog>
#include <QLineEdit>
#include <QListWidget>
#include <QSpinBox>
#include <QTimer>
#include <QUrl>

#include <functional>

// A main window that nodes come to: by discovery's word, and by hand.
struct IntakeWindow : Window {
    // What discovery says of a node once it has read its self resource.
    void report(const SimulatedNode &node, const QString &name)
    {
        const QUrl url(node.baseUrl() + QStringLiteral("/x-nmos/node/v1.3/self"));
        emit window.findChild<NMOSMdnsBrowser *>()->nodeSelfReady(name, url, {});
    }

    void addDevice(const QString &address, int port)
    {
        device = [address, port](QDialog *dialog) {
            dialog->findChild<QLineEdit *>()->setText(address);
            dialog->findChild<QSpinBox *>()->setValue(port);
            dialog->accept();
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

    std::function<void(QDialog *)> device;
    Boxes boxes{[this](QDialog *dialog) {
        device(dialog);
    }};
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

inline const QString sendersPath = SimulatedNode::collectionPath(QStringLiteral("senders"));
inline const QString receiversPath = SimulatedNode::collectionPath(QStringLiteral("receivers"));

// Lets a node that hangs go on once the condition holds, or after half a minute. Whatever waits for
// the node has been called from the test's own wait, which cannot end before.
inline void release(QObject *context, SimulatedNode &node, const std::function<bool()> &condition)
{
    auto *poll = new QTimer(context);
    QObject::connect(poll, &QTimer::timeout, context,
                     [poll, &node, condition, left = 3000]() mutable {
                         if (condition() || --left == 0) {
                             poll->stop();
                             node.clearFaults();
                         }
                     });
    poll->start(10);
}

// Calls a function once, as soon as the node has been asked for the path.
inline void onceAsked(QObject *context, const SimulatedNode &node, const QString &path,
                      const std::function<void()> &function)
{
    auto *poll = new QTimer(context);
    QObject::connect(poll, &QTimer::timeout, context, [poll, &node, path, function] {
        const QStringList lines = node.requestLines();
        for (const QString &line : lines) {
            if (line.endsWith(path)) {
                poll->stop();
                function();
                return;
            }
        }
    });
    poll->start(2);
}
