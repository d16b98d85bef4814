#include "widgets/DropDownList.h"

#include <QComboBox>
#include <QScreen>

DropDownList::DropDownList(QComboBox *owner)
    : selector(owner)
{
}

QSize DropDownList::minimumSizeHint() const
{
    const int room =
        selector->screen()->availableGeometry().right() - selector->mapToGlobal(QPoint(0, 0)).x();
    return {qMin(wantedWidth(), room), 0};
}

void DropDownList::rowsInserted(const QModelIndex &parent, int start, int end)
{
    EntryList::rowsInserted(parent, start, end);
    if (!isVisible()) {
        updateGeometry();
        return;
    }
    for (int row = start; row <= end; ++row) {
        setRowHidden(row, true);
    }
    holding = true;
}

void DropDownList::rowsAboutToBeRemoved(const QModelIndex &parent, int start, int end)
{
    EntryList::rowsAboutToBeRemoved(parent, start, end);
    updateGeometry();
}

void DropDownList::currentChanged(const QModelIndex &current, const QModelIndex &previous)
{
    // Typing also finds hidden rows.
    if (current.isValid() && isRowHidden(current.row())) {
        setCurrentIndex(previous);
        return;
    }
    EntryList::currentChanged(current, previous);
}

void DropDownList::hideEvent(QHideEvent *event)
{
    EntryList::hideEvent(event);
    // QComboBox closes the list before it chooses the row.
    QMetaObject::invokeMethod(this, &DropDownList::settle, Qt::QueuedConnection);
}

void DropDownList::settle()
{
    if (isVisible()) {
        return;
    }
    for (int row = 0; holding && row < model()->rowCount(); ++row) {
        setRowHidden(row, false);
    }
    holding = false;
    updateGeometry();
    emit closed();
}
