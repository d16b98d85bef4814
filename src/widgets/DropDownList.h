#pragma once

#include "widgets/EntryList.h"

class QComboBox;

// The list in the drop-down of a selector. Rows do not move while it is open: added ones are in the
// combo box's model at once, but are hidden until the list is opened again. Rows that leave the
// model are not held back (see Selector::remove()).
//
// A press beside the open list closes it and does what it would do without the list, unless it
// falls on the arrow that opened it. QComboBox keeps such a press to itself.
class DropDownList final : public EntryList {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(DropDownList)

public:
    // For the combo box's setView(), which makes it the list's owner.
    explicit DropDownList(QComboBox *owner);

    // As wide as the longest entry needs, but no wider than from the field's left edge to that of
    // the screen.
    QSize minimumSizeHint() const override;

signals:
    // The list has closed, and what was picked from it has been chosen. Comes from the event loop.
    void closed();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;
    void rowsInserted(const QModelIndex &parent, int start, int end) override;
    void currentChanged(const QModelIndex &current, const QModelIndex &previous) override;
    void focusInEvent(QFocusEvent *event) override;
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;

private:
    bool closesOn(const QPoint &globalPosition) const;
    void settle();

    bool holding = false; // whether rows are held back
};
