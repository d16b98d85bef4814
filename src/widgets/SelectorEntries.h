#pragma once

#include <QList>
#include <QString>
#include <QVariant>

#include <functional>

class QComboBox;

// The entries of an address selector: an editable combo box that the operator types into, while
// entries come and go. Each entry has a text of its own and carries a record as user-role data.
//
// What the selector shows belongs to the operator. Nothing here changes it, except that the field
// is emptied when the chosen entry is removed. The rows of an open list hold still: an entry that
// is added meanwhile can be found and chosen by the program at once, but is shown when the list is
// opened again; the row of an entry that is removed meanwhile stays, greyed, and cannot be picked.
namespace SelectorEntries {

struct Entry {
    QString text;
    QVariant record;
};

// Makes a combo box a selector: editable, never adding what is typed, with the placeholder, and
// offering the entries that match the typed text (see MatchList). It disregards the mouse wheel
// while its lists are closed, and tells a chosen text that its field cuts in a tooltip. When it is
// shown, its field takes over its accessible name.
void prepare(QComboBox *selector, const QString &placeholder);

// The record of the entry that the selector shows; invalid when it shows typed text. The current
// entry of a combo box outlives the typing of another text, so it counts only while its text
// stands.
QVariant currentRecord(const QComboBox *selector);

// The row of the entry with this text; -1 when there is none.
int find(const QComboBox *selector, const QString &text);

// Adds entries, each at its place in the ascending order of texts, unless its text is there already
// or comes earlier among them. All entries must have been added with this function.
void add(QComboBox *selector, QList<Entry> entries);

// Removes the entries whose record meets the condition; while the drop-down is open, their rows
// stay without a record until it closes. When the shown entry is among them, the selector is left
// empty (and says so with editTextChanged()) instead of passing on to a neighbour, and its record
// is returned; else an invalid one.
QVariant remove(QComboBox *selector, const std::function<bool(const QVariant &record)> &condition);

} // namespace SelectorEntries
