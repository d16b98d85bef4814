#include "widgets/ModalDialog.h"

#include "net/NestedWait.h"

#include <QDialog>

int runModal(QDialog *dialog)
{
    if (Closing::isUnderWay()) {
        return QDialog::Rejected;
    }
    NestedWait wait([dialog] { dialog->reject(); });
    const auto closed =
        QObject::connect(dialog, &QDialog::finished, dialog, [own = &wait] { own->noteAnswer(); });
    const int result = dialog->exec();
    QObject::disconnect(closed);
    if (!wait.isAnswered()) {
        Closing::noteQuitting();
    }
    return result;
}
