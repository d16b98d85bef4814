#include "widgets/Selector.h"

#include "widgets/DropDownList.h"
#include "widgets/MatchPopup.h"
#include "widgets/Placeholder.h"

#include <QComboBox>
#include <QHelpEvent>
#include <QLineEdit>
#include <QStandardItemModel>
#include <QTextDocument>
#include <QToolTip>

#include <algorithm>
#include <limits>

Selector::Selector(QComboBox *owner, const QString &placeholder)
    : QObject(owner)
    , combo(owner)
    , dropDown(new DropDownList(owner))
{
    combo->setEditable(true);
    combo->setInsertPolicy(QComboBox::NoInsert);
    // Otherwise a long entry is cut when it is chosen and no longer matches its text.
    combo->lineEdit()->setMaxLength(std::numeric_limits<int>::max());
    // On the combo box it keeps the first entry from becoming the current one; on the line edit it
    // is seen.
    combo->setPlaceholderText(placeholder);
    setMutedPlaceholder(combo->lineEdit(), placeholder);
    // QComboBox's own completer writes entries into the field.
    combo->setCompleter(nullptr);

    // When a row goes or changes, QComboBox writes the current entry into the field, or the
    // neighbour of one that went. Its current index follows the rows without that.
    QAbstractItemModel *rows = combo->model();
    disconnect(rows, &QAbstractItemModel::rowsRemoved, combo, nullptr);
    disconnect(rows, &QAbstractItemModel::dataChanged, combo, nullptr);

    combo->setMaxVisibleItems(EntryList::visibleRows);
    combo->setView(dropDown);
    // setView() has set a policy that ignores the width hint.
    dropDown->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Ignored);
    connect(dropDown, &DropDownList::closed, this,
            [this] { removeRows([this](int row) { return isGone(row); }); });
    new MatchPopup(combo, [this](const QString &text) { return find(text); });
    combo->installEventFilter(this);
    // The arrow is a triangle made of borders. Qt mitres borders only between colours and does not
    // count "transparent" as one, but it does count a colour with alpha 0.
    combo->setStyleSheet(
        QStringLiteral("QComboBox::down-arrow { border-left-color: rgba(34, 39, 46, 0);"
                       " border-right-color: rgba(34, 39, 46, 0); }"));
}

Selector *Selector::of(const QComboBox *combo)
{
    return combo->findChild<Selector *>(QString(), Qt::FindDirectChildrenOnly);
}

QVariant Selector::currentRecord() const
{
    const int row = combo->currentIndex();
    if (row < 0 || combo->currentText() != combo->itemText(row)) {
        return {};
    }
    return combo->itemData(row);
}

int Selector::find(const QString &text) const
{
    const int row = lowerBound(0, text);
    const bool found = row < combo->count() && combo->itemText(row) == text;
    return found && !isGone(row) ? row : -1;
}

void Selector::add(QList<Entry> entries)
{
    std::stable_sort(entries.begin(), entries.end(),
                     [](const Entry &a, const Entry &b) { return a.text < b.text; });
    // Entries of one node are neighbours.
    int row = 0;
    for (const Entry &entry : qAsConst(entries)) {
        row = lowerBound(row, entry.text);
        if (row == combo->count() || combo->itemText(row) != entry.text) {
            combo->insertItem(row, entry.text, entry.record);
        } else if (isGone(row)) {
            setGone(row, false);
            combo->setItemData(row, entry.record);
        }
    }
}

QVariant Selector::remove(const std::function<bool(const QVariant &)> &condition)
{
    QVariant shown = currentRecord();
    const bool shownGoes = shown.isValid() && condition(shown);
    removeRows([this, &condition](int row) { return condition(combo->itemData(row)); });
    if (!shownGoes) {
        return {};
    }
    combo->setCurrentIndex(-1);
    return shown;
}

bool Selector::eventFilter(QObject * /*watched*/, QEvent *event)
{
    switch (event->type()) {
    case QEvent::Wheel:
        // QComboBox would choose the next entry.
        event->ignore();
        return true;
    case QEvent::ToolTip:
        showWholeText(static_cast<QHelpEvent *>(event));
        return true;
    case QEvent::Show:
        combo->lineEdit()->setAccessibleName(combo->accessibleName());
        return false;
    default:
        return false;
    }
}

void Selector::showWholeText(const QHelpEvent *event) const
{
    constexpr int longest = 1000; // characters; much more would not fit the screen
    const int width = combo->lineEdit()->fontMetrics().horizontalAdvance(combo->currentText());
    const bool cut = currentRecord().isValid() && width > EntryList::fieldText(combo).width();
    // A tooltip guesses the format of its text.
    QToolTip::showText(
        event->globalPos(),
        cut ? Qt::convertFromPlainText(combo->currentText().left(longest)) : QString(), combo);
}

// The first row from there on whose text is not less than the given one. Cheap when it is near.
int Selector::lowerBound(int first, const QString &text) const
{
    int last = first;
    for (int step = 1; last < combo->count() && combo->itemText(last) < text; step *= 2) {
        first = last + 1;
        last += step;
    }
    last = std::min(last, combo->count());
    while (first < last) {
        const int middle = first + (last - first) / 2;
        if (combo->itemText(middle) < text) {
            first = middle + 1;
        } else {
            last = middle;
        }
    }
    return first;
}

QStandardItem *Selector::itemAt(int row) const
{
    return static_cast<QStandardItemModel *>(combo->model())->item(row);
}

// Whether the entry of a row was removed while the drop-down showed it. (The row is not disabled:
// QComboBox takes a click on a disabled row for a click on the row that the pointer passed last.)
bool Selector::isGone(int row) const
{
    return !(itemAt(row)->flags() & Qt::ItemIsSelectable);
}

void Selector::setGone(int row, bool gone)
{
    QStandardItem *item = itemAt(row);
    item->setSelectable(!gone);
    item->setData(gone ? combo->palette().brush(QPalette::Disabled, QPalette::Text) : QVariant(),
                  Qt::ForegroundRole);
    if (gone) {
        item->setData(QVariant(), Qt::UserRole);
    }
}

// Removes the rows that meet the condition, or marks them while the drop-down shows them.
void Selector::removeRows(const std::function<bool(int row)> &condition)
{
    const bool open = dropDown->isVisible();
    for (int row = combo->count() - 1; row >= 0; --row) {
        if (!condition(row)) {
            continue;
        }
        if (open) {
            setGone(row, true);
        } else {
            combo->removeItem(row);
        }
    }
}
