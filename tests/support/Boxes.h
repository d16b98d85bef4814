#pragma once

#include <QAbstractButton>
#include <QApplication>
#include <QDialog>
#include <QMessageBox>
#include <QTimer>
#include <QtTest>

#include <functional>

// What a message box showed.
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

// Stands in for the operator while modal windows come up: records every message box and closes it
// with its first button, and hands any other dialog to the given function. A box that nobody
// asks for with take() fails the test.
class Boxes final : public QObject {
public:
    explicit Boxes(std::function<void(QDialog *)> answer = {})
        : answerDialog(std::move(answer))
    {
        QObject::connect(&timer, &QTimer::timeout, this, &Boxes::look);
        timer.start(5);
    }

    ~Boxes() override
    {
        for (const ShownBox &box : qAsConst(shown)) {
            QTest::qFail(
                qPrintable(QStringLiteral("unexpected box: %1 / %2").arg(box.title, box.text)),
                __FILE__, __LINE__);
        }
    }

    // The boxes since the last call, oldest first.
    QList<ShownBox> take()
    {
        QList<ShownBox> taken;
        taken.swap(shown);
        return taken;
    }

private:
    void look()
    {
        QWidget *modal = QApplication::activeModalWidget();
        if (auto *box = qobject_cast<QMessageBox *>(modal)) {
            if (box->textFormat() != Qt::PlainText) {
                QTest::qFail("a message box that guesses the format of its text", __FILE__,
                             __LINE__);
            }
            shown.append({box->windowTitle(), box->text(), box->icon()});
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

// For QCOMPARE to tell what it found.
inline char *toString(const ShownBox &box)
{
    return QTest::toString(box.title + QStringLiteral(" / ") + box.text + QStringLiteral(" / icon ")
                           + QString::number(box.icon));
}
