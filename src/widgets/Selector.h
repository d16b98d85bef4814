#pragma once

#include <QList>
#include <QObject>
#include <QString>
#include <QVariant>

#include <functional>

class DropDownList;
class QComboBox;
class QHelpEvent;
class QStandardItem;

// Makes a combo box an address selector: a field that the operator types into, with a list of
// entries that come and go. Each entry has a text of its own and carries a record as user-role
// data. The combo box becomes editable, never adds what is typed, and offers the entries that match
// the typed text (see MatchPopup). It ignores the mouse wheel while its lists are closed, shows an
// entry that its field cuts in a tooltip, and passes its accessible name to its field when it is
// shown.
//
// The field's text is the operator's. It is never changed here, except that the field is emptied
// when the chosen entry is removed. The rows of an open list do not move: an entry that is added
// meanwhile can be found and chosen by the program at once, but is shown when the list is opened
// again; the row of a removed entry stays, greyed, and cannot be picked.
class Selector final : public QObject {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(Selector)

public:
    struct Entry {
        QString text;
        QVariant record;
    };

    // Becomes a child of the combo box, which must be empty. The placeholder shows in its empty
    // field.
    Selector(QComboBox *owner, const QString &placeholder);
    ~Selector() override = default;

    // The selector that a combo box was made; null when it was not.
    static Selector *of(const QComboBox *combo);

    // The record of the entry that the field shows. Invalid when the field shows typed text: a
    // combo box keeps its current index while other text is typed, so the current entry counts only
    // while the field shows its text.
    QVariant currentRecord() const;

    // The row of the entry with this text; -1 when there is none.
    int find(const QString &text) const;

    // Adds entries, each at its place in the ascending order of texts, unless its text is there
    // already or comes earlier among them. The combo box must get all its entries here.
    void add(QList<Entry> entries);

    // Removes the entries whose record meets the condition. While the drop-down is open their rows
    // stay, without a record, until it closes. When the shown entry is among them, the field is
    // emptied (with one editTextChanged()) and the entry's record is returned; else an invalid one.
    QVariant remove(const std::function<bool(const QVariant &record)> &condition);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void showWholeText(const QHelpEvent *event) const;
    int lowerBound(int first, const QString &text) const;
    QStandardItem *itemAt(int row) const;
    bool isGone(int row) const;
    void setGone(int row, bool gone);
    void removeRows(const std::function<bool(int row)> &condition);

    QComboBox *combo;
    DropDownList *dropDown;
};
