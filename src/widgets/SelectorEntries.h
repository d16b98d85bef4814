#pragma once

#include <QList>
#include <QString>
#include <QVariant>

#include <functional>

class QComboBox;

// The entries of an address selector: an editable combo box that the operator types into, while
// entries come and go. Each entry has a text of its own and carries a record as user-role data.
//
// What the selector shows belongs to the operator. Nothing here changes it, except that the entry
// he chose is taken away from him when it goes.
namespace SelectorEntries {

struct Entry {
    QString text;
    QVariant record;
};

// Makes a combo box a selector: editable, never adding what is typed, with the placeholder, and
// offering the entries that hold the typed text anywhere, in any letter case, in a pop-up list. The
// text stays as typed until one of them is picked, which then counts as activated.
void prepare(QComboBox *selector, const QString &placeholder);

// The record of the entry that the selector shows; invalid when it shows typed text. The current
// entry of a combo box outlives the typing of another text, so it counts only while its text
// stands.
QVariant currentRecord(const QComboBox *selector);

// Adds entries, each at its place in the ascending order of texts, unless its text is there already
// or comes earlier among them. All entries must have been added with this function.
void add(QComboBox *selector, QList<Entry> entries);

// Removes the entries whose record meets the condition. When the shown entry is among them, the
// selector is left empty (and says so with editTextChanged()) instead of passing on to a neighbour,
// and its record is returned; else an invalid one.
QVariant remove(QComboBox *selector, const std::function<bool(const QVariant &record)> &condition);

} // namespace SelectorEntries
