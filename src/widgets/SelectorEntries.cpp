#include "widgets/SelectorEntries.h"

#include "widgets/DropDownList.h"
#include "widgets/MatchList.h"
#include "widgets/Placeholder.h"

#include <QComboBox>
#include <QHelpEvent>
#include <QLineEdit>
#include <QSignalBlocker>
#include <QStandardItemModel>
#include <QStyleOptionFrame>
#include <QTextDocument>
#include <QToolTip>

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

QStandardItem *itemAt(const QComboBox *selector, int row)
{
    return static_cast<QStandardItemModel *>(selector->model())->item(row);
}

// A row whose entry was removed while the drop-down showed it. It stays there, cannot be picked and
// carries no record. (A disabled row would not do: QComboBox takes a click on one for a click on
// the row that the pointer passed last.)
bool isGone(const QComboBox *selector, int row)
{
    return !(itemAt(selector, row)->flags() & Qt::ItemIsSelectable);
}

void setGone(QComboBox *selector, int row, bool gone)
{
    QStandardItem *item = itemAt(selector, row);
    item->setSelectable(!gone);
    item->setData(gone ? selector->palette().brush(QPalette::Disabled, QPalette::Text) : QVariant(),
                  Qt::ForegroundRole);
    if (gone) {
        item->setData(QVariant(), Qt::UserRole);
    }
}

// Takes the rows away that meet the condition; what the field shows stays.
void removeRows(QComboBox *selector, const std::function<bool(int row)> &condition)
{
    // Losing the current entry, or the last one of all, makes QComboBox rewrite the field.
    const QSignalBlocker blocker(selector);
    QLineEdit *field = selector->lineEdit();
    const QString text = field->text();
    const int cursor = field->cursorPosition();
    const bool open = selector->view()->isVisible();
    for (int row = selector->count() - 1; row >= 0; --row) {
        if (!condition(row)) {
            continue;
        }
        if (row == selector->currentIndex()) {
            selector->setCurrentIndex(-1);
        }
        if (open) {
            setGone(selector, row, true);
        } else {
            selector->removeItem(row);
        }
    }
    if (field->text() != text) {
        field->setText(text);
        field->setCursorPosition(cursor);
    }
}

void removeGone(QComboBox *selector)
{
    removeRows(selector, [selector](int row) { return isGone(selector, row); });
}

bool fits(const QLineEdit *field)
{
    constexpr int margins = 2 * 2; // beside the text, in every QLineEdit
    QStyleOptionFrame option;
    option.initFrom(field);
    option.rect = field->contentsRect();
    const QRect room = field->style()->subElementRect(QStyle::SE_LineEditContents, &option, field);
    return field->fontMetrics().horizontalAdvance(field->text()) <= room.width() - margins;
}

// What a selector does otherwise than a combo box, besides what its lists do.
class Manners final : public QObject {
public:
    explicit Manners(QComboBox *owner)
        : QObject(owner)
        , selector(owner)
    {
        owner->installEventFilter(this);
    }

    bool eventFilter(QObject *, QEvent *event) override
    {
        switch (event->type()) {
        case QEvent::Wheel:
            // It would choose the neighbour, even without the focus.
            event->ignore();
            return true;
        case QEvent::ToolTip:
            showWhole(static_cast<QHelpEvent *>(event));
            return true;
        case QEvent::Show:
            selector->lineEdit()->setAccessibleName(selector->accessibleName());
            return false;
        default:
            return false;
        }
    }

private:
    void showWhole(const QHelpEvent *event) const
    {
        constexpr int longest = 1000; // characters; much more would not fit the screen
        const bool cut =
            SelectorEntries::currentRecord(selector).isValid() && !fits(selector->lineEdit());
        // A tooltip guesses the format of its text.
        QToolTip::showText(event->globalPos(),
                           cut ? Qt::convertFromPlainText(selector->currentText().left(longest))
                               : QString(),
                           selector);
    }

    QComboBox *selector;
};

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
    // Completing inline, as a combo box does by itself, writes entries into the field.
    selector->setCompleter(nullptr);
    auto *dropDown = new DropDownList(selector);
    // cppcheck-suppress uninitdata
    QObject::connect(dropDown, &DropDownList::closed, selector,
                     [selector] { removeGone(selector); });
    new MatchList(selector);
    new Manners(selector);
    // The arrow is a triangle made of borders. Qt cuts the corners only between colours, and does
    // not take the named colour "transparent" for one.
    selector->setStyleSheet(
        QStringLiteral("QComboBox::down-arrow { border-left-color: rgba(34, 39, 46, 0);"
                       " border-right-color: rgba(34, 39, 46, 0); }"));
}

int find(const QComboBox *selector, const QString &text)
{
    const int row = lowerBound(selector, 0, text);
    const bool found = row < selector->count() && selector->itemText(row) == text;
    return found && !isGone(selector, row) ? row : -1;
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
        } else if (isGone(selector, index)) {
            setGone(selector, index, false);
            selector->setItemData(index, entry.record);
        }
    }
}

QVariant remove(QComboBox *selector, const std::function<bool(const QVariant &)> &condition)
{
    QVariant shown = currentRecord(selector);
    const bool shownGoes = shown.isValid() && condition(shown);
    removeRows(selector,
               [selector, &condition](int row) { return condition(selector->itemData(row)); });
    if (!shownGoes) {
        return {};
    }
    selector->clearEditText();
    return shown;
}

} // namespace SelectorEntries
