#include "widgets/MatchList.h"

#include "widgets/EntryList.h"
#include "widgets/SelectorEntries.h"

#include <QAbstractListModel>
#include <QApplication>
#include <QComboBox>
#include <QKeyEvent>
#include <QLineEdit>
#include <QScreen>
#include <QStringMatcher>

// A copy of the texts that matched: nothing that happens to the selector moves them.
class MatchModel final : public QAbstractListModel {
public:
    explicit MatchModel(QComboBox *owner)
        : QAbstractListModel(owner)
        , selector(owner)
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
        const bool gone =
            index.isValid() && SelectorEntries::find(selector, texts.at(index.row())) < 0;
        return gone ? Qt::NoItemFlags : QAbstractListModel::flags(index);
    }

private:
    QComboBox *selector;
    QStringList texts;
};

// The list is no child of the combo box, or the style sheet would take it for the drop-down and
// leave out the rules for list views. Nor is it a window of the type Qt::Popup, which would take
// the first click beside it for itself.
MatchList::MatchList(QComboBox *owner)
    : QObject(owner)
    , selector(owner)
    , list(new EntryList(owner->lineEdit()))
    , matches(new MatchModel(owner))
{
    list->setObjectName(QStringLiteral("matches"));
    list->setAccessibleName(QStringLiteral("Matches"));
    list->setWindowFlags(Qt::ToolTip | Qt::FramelessWindowHint | Qt::WindowDoesNotAcceptFocus);
    list->setAttribute(Qt::WA_ShowWithoutActivating);
    list->setAttribute(Qt::WA_X11NetWmWindowTypeCombo);
    list->setFocusPolicy(Qt::NoFocus);
    list->setFocusProxy(selector);
    list->setModel(matches);
    connect(list, &QListView::clicked, this, &MatchList::pick);

    QLineEdit *field = selector->lineEdit();
    field->installEventFilter(this);
    selector->installEventFilter(this);
    connect(field, &QLineEdit::textEdited, this, [this](const QString &text) {
        if (text.isEmpty()) {
            close();
        } else {
            offer(text);
        }
    });
    // The list goes with the field, and the selector may still have events then.
    connect(field, &QObject::destroyed, this, [this] { delete this; });
    const auto forget = [this] {
        texts.clear();
        list->viewport()->update();
    };
    connect(selector->model(), &QAbstractItemModel::rowsInserted, this, forget);
    connect(selector->model(), &QAbstractItemModel::rowsRemoved, this, forget);
}

// While the list is open, this sees all events of the program, and those of the selector twice.
bool MatchList::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() == QEvent::KeyPress
        && (watched == selector || watched == selector->lineEdit())) {
        return handleKey(static_cast<QKeyEvent *>(event));
    }
    if (list->isVisible() && closesOn(watched, event)) {
        close();
    }
    return false;
}

bool MatchList::handleKey(QKeyEvent *event)
{
    const bool open = list->isVisible();
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
            const bool typed = !SelectorEntries::currentRecord(selector).isValid();
            if (typed) {
                offer(selector->currentText());
            }
            return typed;
        }
        QCoreApplication::sendEvent(list, event);
        return true;
    }
    case Qt::Key_Enter:
    case Qt::Key_Return: {
        const QModelIndex current = list->currentIndex();
        close();
        if (!open || !current.isValid()) {
            return false;
        }
        pick(current);
        return true;
    }
    case Qt::Key_Escape:
        close();
        return open;
    default:
        return false;
    }
}

bool MatchList::closesOn(const QObject *watched, const QEvent *event) const
{
    switch (event->type()) {
    case QEvent::MouseButtonPress:
    case QEvent::MouseButtonDblClick:
        return watched->isWidgetType() && watched != list
            && !list->isAncestorOf(static_cast<const QWidget *>(watched));
    case QEvent::FocusOut:
        return watched == selector;
    case QEvent::Move:
    case QEvent::Resize:
    case QEvent::Hide:
        return watched == selector || watched == selector->window();
    case QEvent::WindowBlocked:
    case QEvent::WindowDeactivate:
    case QEvent::WindowStateChange:
        return watched == selector->window();
    default:
        return false;
    }
}

void MatchList::offer(const QString &text)
{
    matches->show(matching(text));
    if (matches->rowCount() == 0) {
        close();
        return;
    }
    place();
    list->scrollToTop();
    if (!list->isVisible()) {
        list->show();
        QCoreApplication::instance()->installEventFilter(this);
    }
}

QStringList MatchList::matching(const QString &text)
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

// Below the field where there is room for it, else on the side that has more.
void MatchList::place()
{
    list->ensurePolished();
    const QRect screen = selector->screen()->availableGeometry();
    const QRect field(selector->mapToGlobal(QPoint(0, 0)), selector->size());
    const int above = field.top() - screen.top();
    const int below = screen.bottom() - field.bottom();

    const int rows = qMin(matches->rowCount(), EntryList::visibleRows);
    const int wanted = rows * list->sizeHintForRow(0) + 2 * list->frameWidth();
    const bool down = below >= wanted || below >= above;
    const int height = qMin(wanted, down ? below : above);
    const int width = qBound(field.width(), list->wantedWidth(), screen.width());
    const int left = qBound(screen.left(), field.left(), screen.right() + 1 - width);
    list->setGeometry(left, down ? field.bottom() + 1 : field.top() - height, width, height);
}

void MatchList::close()
{
    QCoreApplication::instance()->removeEventFilter(this);
    list->hide();
}

void MatchList::pick(const QModelIndex &match)
{
    const int row = SelectorEntries::find(selector, match.data().toString());
    close();
    if (row >= 0) {
        selector->setCurrentIndex(row);
        emit selector->activated(row);
    }
}
