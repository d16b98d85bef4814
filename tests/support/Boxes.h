#pragma once

#include "net/NestedWait.h"
#include "net/SyncHttp.h"

#include <QAbstractButton>
#include <QApplication>
#include <QDialog>
#include <QElapsedTimer>
#include <QMessageBox>
#include <QTimer>
#include <QtTest>

#include <chrono>
#include <functional>

// A message box that was shown.
struct ShownBox {
    QString title;
    QString text;
    QMessageBox::Icon icon;

    bool operator==(const ShownBox &other) const
    {
        return title == other.title && text == other.text && icon == other.icon;
    }
};

Q_DECLARE_METATYPE(ShownBox)

// Answers modal windows in place of the operator. Records each message box and presses its first
// button; hands any other dialog to answer(), or rejects it when there is no such function. A box
// that the test did not take() fails the test, and so does a box whose text is not plain text, and
// a wait in which nothing happens for 15 s: it is ended.
class Boxes final : public QObject {
public:
    explicit Boxes(std::function<void(QDialog *)> answer = {})
        : answerDialog(std::move(answer))
    {
        QObject::connect(&timer, &QTimer::timeout, this, &Boxes::look);
        timer.start(5);
        idle.start();
    }

    ~Boxes() override
    {
        for (const ShownBox &box : qAsConst(shown)) {
            QTest::qFail(
                qPrintable(QStringLiteral("unexpected box: %1 / %2").arg(box.title, box.text)),
                __FILE__, __LINE__);
        }
    }

    // The boxes that were shown since the last call, oldest first.
    QList<ShownBox> take()
    {
        QList<ShownBox> taken;
        taken.swap(shown);
        return taken;
    }

    // Looks at a message box before it is closed.
    std::function<void(QMessageBox *)> inspect;
    bool keepsOpen = false; // message boxes are left alone for the time being
    QElapsedTimer idle; // to be restarted when something happens

private:
    void look()
    {
        QWidget *modal = QApplication::activeModalWidget();
        auto *box = qobject_cast<QMessageBox *>(modal);
        if (requestActivity().levels == 0 && !modal) {
            idle.start();
        } else if (idle.hasExpired(15000)) {
            QTest::qFail("the program waits without end", __FILE__, __LINE__);
            Closing::begin();
        } else if (box && keepsOpen) {
            return;
        } else if (box) {
            if (box->textFormat() != Qt::PlainText) {
                QTest::qFail("a message box that guesses the format of its text", __FILE__,
                             __LINE__);
            }
            shown.append({box->windowTitle(), box->text(), box->icon()});
            if (inspect) {
                inspect(box);
            }
            box->buttons().constFirst()->click();
        } else if (auto *dialog = qobject_cast<QDialog *>(modal)) {
            if (answerDialog) {
                answerDialog(dialog);
            } else {
                dialog->reject();
            }
        }
    }

    std::function<void(QDialog *)> answerDialog;
    QList<ShownBox> shown;
    QTimer timer;
};

// Lets QCOMPARE print boxes that differ.
inline char *toString(const ShownBox &box)
{
    return QTest::toString(box.title + QStringLiteral(" / ") + box.text + QStringLiteral(" / icon ")
                           + QString::number(box.icon));
}
