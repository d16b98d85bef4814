#include "support/Boxes.h"

#include "net/NestedWait.h"
#include "net/SyncHttp.h"

#include <QAbstractButton>
#include <QApplication>
#include <QtTest>

#include <utility>

Boxes::Boxes(std::function<void(QDialog *)> answer)
    : answerDialog(std::move(answer))
{
    QObject::connect(&timer, &QTimer::timeout, this, &Boxes::look);
    timer.start(5);
    idle.start();
}

Boxes::~Boxes()
{
    for (const QString &box : qAsConst(shown)) {
        QTest::qFail(qPrintable(QStringLiteral("unexpected box: ") + box), __FILE__, __LINE__);
    }
}

QStringList Boxes::take()
{
    return std::exchange(shown, {});
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
        const char *kinds[] = {"", "Information", "Warning", "Critical"};
        shown +=
            QStringList{QLatin1String(kinds[box->icon()]), box->windowTitle(), box->text()}.join(
                QLatin1String(": "));
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
