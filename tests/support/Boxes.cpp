#include "support/Boxes.h"

#include "net/NestedWait.h"
#include "net/SyncHttp.h"

#include <QAbstractButton>
#include <QApplication>
#include <QtTest>

Boxes::Boxes(std::function<void(QDialog *)> answer)
    : answerDialog(std::move(answer))
{
    QObject::connect(&timer, &QTimer::timeout, this, &Boxes::look);
    timer.start(5);
    idle.start();
}

Boxes::~Boxes()
{
    for (const ShownBox &box : qAsConst(shown)) {
        QTest::qFail(qPrintable(QStringLiteral("unexpected box: %1 / %2").arg(box.title, box.text)),
                     __FILE__, __LINE__);
    }
}

QList<ShownBox> Boxes::take()
{
    QList<ShownBox> taken;
    taken.swap(shown);
    return taken;
}

void Boxes::look()
{
    QWidget *modal = QApplication::activeModalWidget();
    auto *box = qobject_cast<QMessageBox *>(modal);
    if (requestActivity().levels == 0 && !modal) {
        idle.start();
    } else if (idle.hasExpired(15000)) {
        QTest::qFail("the program waits without end", __FILE__, __LINE__);
        Closing::begin();
        idle.start();
    } else if (box && keepsOpen) {
        return;
    } else if (box) {
        if (box->textFormat() != Qt::PlainText) {
            QTest::qFail("a message box that guesses the format of its text", __FILE__, __LINE__);
        }
        shown.append({box->windowTitle(), box->text(), box->icon()});
        if (inspect) {
            inspect(box);
        }
        if (box->isVisible()) {
            box->buttons().constFirst()->click();
        }
    } else if (auto *dialog = qobject_cast<QDialog *>(modal)) {
        if (answerDialog) {
            answerDialog(dialog);
        } else {
            dialog->reject();
        }
    }
}

char *toString(const ShownBox &box)
{
    return QTest::toString(box.title + QStringLiteral(" / ") + box.text + QStringLiteral(" / icon ")
                           + QString::number(box.icon));
}
