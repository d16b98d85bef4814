#include "widgets/DeviceDialogs.h"

#include "widgets/ModalDialog.h"
#include "widgets/Placeholder.h"

#include <QAbstractButton>
#include <QDialog>
#include <QDialogButtonBox>
#include <QFocusEvent>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QSpinBox>
#include <QVBoxLayout>

#include <utility>

namespace DeviceDialogs {

namespace {

// OK accepts, Cancel rejects.
QDialogButtonBox *okAndCancel(QDialog *dialog)
{
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, dialog);
    QObject::connect(buttons, &QDialogButtonBox::accepted, dialog, &QDialog::accept);
    QObject::connect(buttons, &QDialogButtonBox::rejected, dialog, &QDialog::reject);
    const auto all = buttons->buttons();
    for (QAbstractButton *button : all) {
        // Some desktop themes add icons.
        button->setIcon({});
    }
    return buttons;
}

QLineEdit *newAddressField(QWidget *parent)
{
    auto *address = new QLineEdit(parent);
    const QString example = QStringLiteral("e.g. 10.0.0.5 or mydevice.local");
    setMutedPlaceholder(address, example);
    // Wide enough for the example and the frame.
    address->setMinimumWidth(
        address->fontMetrics().horizontalAdvance(example + QLatin1String("MMM")));
    address->setToolTip(
        QStringLiteral("The address or host name only. The port has a field of its own."));
    return address;
}

// Selects its text when it gets the focus, so that what is typed replaces it. The mouse press that
// brings the focus does no more than that: a line edit would place the cursor and deselect.
class PortField final : public QSpinBox {
public:
    explicit PortField(QWidget *parent)
        : QSpinBox(parent)
    {
        lineEdit()->installEventFilter(this);
    }

protected:
    void focusInEvent(QFocusEvent *event) override
    {
        QSpinBox::focusInEvent(event);
        if (event->reason() != Qt::ActiveWindowFocusReason
            && event->reason() != Qt::PopupFocusReason) {
            selectAll();
            isBeingClicked = event->reason() == Qt::MouseFocusReason;
        }
    }

    bool eventFilter(QObject *watched, QEvent *event) override
    {
        switch (event->type()) {
        case QEvent::MouseButtonPress:
        case QEvent::MouseMove:
            return isBeingClicked;
        case QEvent::MouseButtonRelease:
            return std::exchange(isBeingClicked, false);
        default:
            return QSpinBox::eventFilter(watched, event);
        }
    }

private:
    bool isBeingClicked = false;
};

QSpinBox *newPortField(QWidget *parent)
{
    auto *port = new PortField(parent);
    port->setRange(1, 65535);
    port->setValue(80);
    // No arrows: the style sheet paints them dark on dark.
    port->setButtonSymbols(QAbstractSpinBox::NoButtons);
    return port;
}

} // namespace

std::optional<Answer> askForDevice(QWidget *parent, const QString &title)
{
    QDialog dialog(parent);
    dialog.setWindowTitle(title);
    QLineEdit *address = newAddressField(&dialog);
    QSpinBox *port = newPortField(&dialog);
    auto *form = new QFormLayout;
    form->addRow(QStringLiteral("Address:"), address);
    form->addRow(QStringLiteral("Port:"), port);
    auto *layout = new QVBoxLayout(&dialog);
    layout->addLayout(form);
    layout->addWidget(okAndCancel(&dialog));
    if (runModal(&dialog) != QDialog::Accepted) {
        return {};
    }
    return Answer{address->text().trimmed(), port->value()};
}

std::optional<QString> askWhichToRemove(QWidget *parent, const QString &title,
                                        const QStringList &hosts)
{
    QDialog dialog(parent);
    dialog.setWindowTitle(title);
    auto *label = new QLabel(QStringLiteral("Select a device to remove:"), &dialog);
    auto *list = new QListWidget(&dialog);
    list->addItems(hosts);
    list->setCurrentRow(0);
    QObject::connect(list, &QListWidget::itemDoubleClicked, &dialog, &QDialog::accept);
    auto *layout = new QVBoxLayout(&dialog);
    layout->addWidget(label);
    layout->addWidget(list);
    layout->addWidget(okAndCancel(&dialog));
    const int result = runModal(&dialog);
    // The current row would name a line whose mark the operator has taken away.
    const auto marked = list->selectedItems();
    if (result != QDialog::Accepted || marked.isEmpty()) {
        return {};
    }
    return marked.constFirst()->text();
}

} // namespace DeviceDialogs
