#include "widgets/SelectorEntries.h"

#include "widgets/Placeholder.h"

#include <QAbstractItemView>
#include <QComboBox>
#include <QCompleter>
#include <QLineEdit>
#include <QSignalBlocker>
#include <QSortFilterProxyModel>

#include <algorithm>
#include <limits>

namespace SelectorEntries {

namespace {

// The first entry from there on whose text is not less than the given one. Cheap when it is near.
int lowerBound(const QComboBox *selector, int first, const QString &text)
{
    int last = first;
    for (int step = 1; last < selector->count() && selector->itemText(last) < text; step *= 2) {
        first = last + 1;
        last += step;
    }
    last = std::min(last, selector->count());
    while (first < last) {
        const int middle = first + (last - first) / 2;
        if (selector->itemText(middle) < text) {
            first = middle + 1;
        } else {
            last = middle;
        }
    }
    return first;
}

// The completer is not given to the line edit: that would write every entry which the arrow keys
// pass over into the field. Nor does it search: it would look through all entries anew for each one
// that comes or goes, seconds for a node with thousands of senders; the filter looks at that one.
void offerMatches(QComboBox *selector)
{
    selector->setCompleter(nullptr);
    auto *matches = new QSortFilterProxyModel(selector);
    matches->setFilterCaseSensitivity(Qt::CaseInsensitive);
    auto *completer = new QCompleter(matches, selector);
    completer->setCompletionMode(QCompleter::UnfilteredPopupCompletion);
    completer->setWidget(selector->lineEdit());
    QObject::connect(selector->lineEdit(), &QLineEdit::textEdited, completer,
                     [selector, matches, completer](const QString &text) {
                         if (text.isEmpty()) {
                             matches->setSourceModel(nullptr);
                             completer->popup()->hide();
                             return;
                         }
                         matches->setFilterFixedString(text);
                         if (!matches->sourceModel()) {
                             matches->setSourceModel(selector->model());
                         }
                         // As wide as the selector, and below its border.
                         const QPoint corner = selector->lineEdit()->mapFromParent({0, 0});
                         completer->complete({corner, selector->size()});
                         // Else Enter would pick the first one.
                         completer->popup()->setCurrentIndex({});
                     });
    QObject::connect(completer, qOverload<const QModelIndex &>(&QCompleter::activated), selector,
                     [selector, matches, completer](const QModelIndex &index) {
                         const auto *offered =
                             qobject_cast<QAbstractProxyModel *>(completer->completionModel());
                         const QModelIndex match = offered->mapToSource(index);
                         const int row = matches->mapToSource(match).row();
                         selector->setCurrentIndex(row);
                         emit selector->activated(row);
                     });
}

} // namespace

void prepare(QComboBox *selector, const QString &placeholder)
{
    selector->setEditable(true);
    selector->setInsertPolicy(QComboBox::NoInsert);
    // Else a long entry is cut when it is chosen, and then not shown as the entry that it is.
    selector->lineEdit()->setMaxLength(std::numeric_limits<int>::max());
    // On the combo box it keeps the first entry from becoming the current one; on the line edit it
    // is seen.
    selector->setPlaceholderText(placeholder);
    setMutedPlaceholder(selector->lineEdit(), placeholder);
    offerMatches(selector);
    // The arrow is a triangle made of borders. The toolkit cuts the corners only between colours,
    // and the named colour "transparent" is none to it.
    selector->setStyleSheet(
        QStringLiteral("QComboBox::down-arrow { border-left-color: rgba(34, 39, 46, 0);"
                       " border-right-color: rgba(34, 39, 46, 0); }"));
}

QVariant currentRecord(const QComboBox *selector)
{
    const int index = selector->currentIndex();
    if (index < 0 || selector->currentText() != selector->itemText(index)) {
        return {};
    }
    return selector->itemData(index);
}

void add(QComboBox *selector, QList<Entry> entries)
{
    std::stable_sort(entries.begin(), entries.end(),
                     [](const Entry &a, const Entry &b) { return a.text < b.text; });
    // The entries of a node have their places side by side.
    int index = 0;
    for (const Entry &entry : qAsConst(entries)) {
        index = lowerBound(selector, index, entry.text);
        if (index == selector->count() || selector->itemText(index) != entry.text) {
            selector->insertItem(index, entry.text, entry.record);
        }
    }
}

QVariant remove(QComboBox *selector, const std::function<bool(const QVariant &)> &condition)
{
    QVariant shown = currentRecord(selector);
    const bool shownGoes = shown.isValid() && condition(shown);
    {
        // Losing the current entry, or the last one of all, makes the toolkit rewrite the field.
        const QSignalBlocker blocker(selector);
        QLineEdit *field = selector->lineEdit();
        const QString text = field->text();
        const int cursor = field->cursorPosition();
        if (condition(selector->currentData())) {
            selector->setCurrentIndex(-1);
        }
        for (int i = selector->count() - 1; i >= 0; --i) {
            if (condition(selector->itemData(i))) {
                selector->removeItem(i);
            }
        }
        if (field->text() != text) {
            field->setText(text);
            field->setCursorPosition(cursor);
        }
    }
    if (!shownGoes) {
        return {};
    }
    selector->clearEditText();
    return shown;
}

} // namespace SelectorEntries
