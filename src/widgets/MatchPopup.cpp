#include "widgets/MatchPopup.h"

#include <QAbstractListModel>
#include <QApplication>
#include <QComboBox>
#include <QKeyEvent>
#include <QLineEdit>
#include <QScreen>
#include <QStringMatcher>

// A copy of the texts that matched, so that changes of the selector move no row.
class MatchModel final : public QAbstractListModel {
public:
    MatchModel(QObject *owner, MatchPopup::Find findRow)
        : QAbstractListModel(owner)
        , find(std::move(findRow))
    {
    }

    void show(const QStringList &matches)
    {
        beginResetModel();
        texts = matches;
        endResetModel();
    }

    int rowCount(const QModelIndex &parent = {}) const override
    {
        return parent.isValid() ? 0 : texts.size();
    }

    QVariant data(const QModelIndex &index, int role) const override
    {
        return role == Qt::DisplayRole ? texts.at(index.row()) : QVariant();
    }

    Qt::ItemFlags flags(const QModelIndex &index) const override
    {
        const bool gone = index.isValid() && find(texts.at(index.row())) < 0;
        return gone ? Qt::NoItemFlags : QAbstractListModel::flags(index);
    }

private:
    MatchPopup::Find find;
    QStringList texts;
};

// A child of the line edit, because the style sheet takes a list that is a child of the combo box
// for its drop-down and then leaves out the rules for list views. Not a window of the type
// Qt::Popup, which keeps the first click outside to itself.
MatchPopup::MatchPopup(QComboBox *owner, const Find &findRow)
    : EntryList(owner, owner->lineEdit())
    , find(findRow)
    , matches(new MatchModel(this, findRow))
{
    setObjectName(QStringLiteral("matches"));
    setAccessibleName(QStringLiteral("Matches"));
    setWindowFlags(Qt::ToolTip | Qt::FramelessWindowHint | Qt::WindowDoesNotAcceptFocus);
    setAttribute(Qt::WA_ShowWithoutActivating);
    setAttribute(Qt::WA_X11NetWmWindowTypeCombo);
    setFocusPolicy(Qt::NoFocus);
    setFocusProxy(selector);
    setModel(matches);
    viewport()->setAttribute(Qt::WA_Hover); // the row under the pointer is highlighted
    connect(this, &QListView::clicked, this, &MatchPopup::pick);

    QLineEdit *field = selector->lineEdit();
    field->installEventFilter(this);
    selector->installEventFilter(this);
    connect(field, &QLineEdit::textEdited, this, [this](const QString &text) {
        if (text.isEmpty()) {
            dismiss();
        } else {
            offer(text);
        }
    });
    const auto forget = [this] {
        texts.clear();
        viewport()->update();
    };
    connect(selector->model(), &QAbstractItemModel::rowsInserted, this, forget);
    connect(selector->model(), &QAbstractItemModel::rowsRemoved, this, forget);
}

// While the list is open, this receives all events of the program, and those of the selector twice.
bool MatchPopup::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() == QEvent::KeyPress
        && (watched == selector || watched == selector->lineEdit())) {
        return handleKey(static_cast<QKeyEvent *>(event));
    }
    if (isVisible() && closesOn(watched, event)) {
        dismiss();
    }
    return EntryList::eventFilter(watched, event);
}

// Whether the field shows something else than the current entry, which QComboBox keeps meanwhile.
bool MatchPopup::showsTypedText() const
{
    const int row = find(selector->currentText());
    return row < 0 || row != selector->currentIndex();
}

bool MatchPopup::handleKey(QKeyEvent *event)
{
    const bool open = isVisible();
    if (event->modifiers() & (Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier)) {
        return false;
    }
    switch (event->key()) {
    case Qt::Key_Up:
    case Qt::Key_Down:
    case Qt::Key_PageUp:
    case Qt::Key_PageDown: {
        if (!open) {
            // QComboBox would go on from the entry that was chosen before the typing.
            const bool typed = showsTypedText();
            if (typed) {
                offer(selector->currentText());
            }
            return typed;
        }
        QCoreApplication::sendEvent(this, event);
        return true;
    }
    case Qt::Key_Enter:
    case Qt::Key_Return: {
        const QModelIndex current = currentIndex();
        dismiss();
        if (!open || !current.isValid()) {
            return false;
        }
        pick(current);
        return true;
    }
    case Qt::Key_Escape:
        dismiss();
        return open;
    default:
        return false;
    }
}

bool MatchPopup::closesOn(const QObject *watched, const QEvent *event) const
{
    switch (event->type()) {
    case QEvent::MouseButtonPress:
    case QEvent::MouseButtonDblClick:
        return watched->isWidgetType() && watched != this
            && !isAncestorOf(static_cast<const QWidget *>(watched));
    case QEvent::FocusOut:
        return watched == selector;
    case QEvent::Move:
    case QEvent::Resize:
    case QEvent::Hide:
        return watched == selector || watched == selector->window();
    case QEvent::WindowBlocked:
    case QEvent::WindowStateChange:
        return watched == selector->window();
    default:
        return false;
    }
}

void MatchPopup::offer(const QString &text)
{
    matches->show(matching(text));
    if (matches->rowCount() == 0) {
        dismiss();
        return;
    }
    place();
    scrollToTop();
    if (!isVisible()) {
        show();
        QCoreApplication::instance()->installEventFilter(this);
    }
}

QStringList MatchPopup::matching(const QString &text)
{
    if (texts.isEmpty()) {
        texts.reserve(selector->count());
        for (int i = 0; i < selector->count(); ++i) {
            texts.append(selector->itemText(i));
        }
    }
    const QStringMatcher matcher(text, Qt::CaseInsensitive);
    QStringList found;
    for (const QString &entry : qAsConst(texts)) {
        if (matcher.indexIn(entry) >= 0) {
            found.append(entry);
        }
    }
    return found;
}

// Below the field where there is room for it, else on the side that has more; as wide as the
// longest entry needs, from the field's left edge to that of the screen.
void MatchPopup::place()
{
    ensurePolished();
    const QRect screen = selector->screen()->availableGeometry();
    const QRect field(selector->mapToGlobal(QPoint(0, 0)), selector->size());
    const int above = field.top() - screen.top();
    const int below = screen.bottom() - field.bottom();

    const int rows = qMin(matches->rowCount(), visibleRows);
    const bool down = below >= heightOf(rows) || below >= above;
    const int height = heightOf(qMin(rows, rowsWithin(down ? below : above)));
    // Only a field that is partly outside the screen does not keep its left edge.
    const int least = qMin(field.width(), screen.width());
    const int left = qBound(screen.left(), field.left(), screen.right() + 1 - least);
    const int width = qBound(least, wantedWidth(), screen.right() + 1 - left);
    setGeometry(left, down ? field.bottom() + 1 : field.top() - height, width, height);
}

void MatchPopup::dismiss()
{
    QCoreApplication::instance()->removeEventFilter(this);
    hide();
}

void MatchPopup::pick(const QModelIndex &match)
{
    const int row = find(match.data().toString());
    dismiss();
    if (row >= 0) {
        selector->setCurrentIndex(row);
        emit selector->activated(row);
    }
}
