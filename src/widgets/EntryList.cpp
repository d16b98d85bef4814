#include "widgets/EntryList.h"

#include <QComboBox>
#include <QLineEdit>
#include <QPainter>
#include <QScrollBar>
#include <QStyleOptionFrame>
#include <QStyledItemDelegate>

#include <algorithm>
#include <functional>
#include <utility>
#include <vector>

namespace {

constexpr int margin = 3; // above, below and behind a row's text, in pixels
constexpr int longestShown = 2000; // characters; more than a screen is wide

// What stands for a character that would break or move the rest of the line; else the character.
QString shownAs(QChar c)
{
    switch (c.unicode()) {
    case '\t':
        return QChar(0x21e5);
    case '\n':
        return QChar(0x23ce);
    case '\r':
        return QChar(0x21b5);
    case QChar::LineSeparator:
        return QChar(0x21b2);
    case QChar::ParagraphSeparator:
        return QChar(0x00b6);
    default:
        return c.category() != QChar::Other_Control
            ? QString(c)
            : QStringLiteral("\\x%1").arg(c.unicode(), 2, 16, QLatin1Char('0'));
    }
}

QString inOneLine(const QString &text)
{
    QString line;
    for (const QChar c : text.size() > longestShown
             ? text.left(longestShown / 2) + QChar(0x2026) + text.right(longestShown / 2)
             : text) {
        line += shownAs(c);
    }
    return line;
}

// Paints the rows of both lists alike: the style sheet's rules for rows do not hold in the list of
// a combo box, and there move the text of the row that is selected.
class EntryDelegate final : public QStyledItemDelegate {
public:
    EntryDelegate(const QComboBox *combo, QListView *list)
        : QStyledItemDelegate(list)
        , selector(combo)
        , frame(list->frameWidth())
    {
    }

    QString displayText(const QVariant &value, const QLocale & /*locale*/) const override
    {
        return inOneLine(value.toString());
    }

    QSize sizeHint(const QStyleOptionViewItem &item, const QModelIndex &index) const override
    {
        const int text = item.fontMetrics.horizontalAdvance(displayText(index.data(), {}));
        return {indent() + text + margin, item.fontMetrics.height() + 2 * margin};
    }

    void paint(QPainter *painter, const QStyleOptionViewItem &item,
               const QModelIndex &index) const override
    {
        QStyleOptionViewItem option = item;
        initStyleOption(&option, index);
        const bool enabled = option.state & QStyle::State_Enabled;
        const bool selected = enabled && (option.state & QStyle::State_Selected);
        QColor background = option.palette.color(QPalette::Highlight);
        if (!selected) {
            background.setAlphaF(enabled && (option.state & QStyle::State_MouseOver) ? 0.4 : 0);
        }
        painter->fillRect(option.rect, background);

        const QRect place = option.rect.adjusted(indent(), 0, -margin, 0);
        painter->setFont(option.font);
        painter->setPen(
            option.palette.color(enabled ? QPalette::Active : QPalette::Disabled,
                                 selected ? QPalette::HighlightedText : QPalette::Text));
        painter->drawText(
            place, Qt::AlignLeft | Qt::AlignVCenter | Qt::TextSingleLine,
            option.fontMetrics.elidedText(option.text, option.textElideMode, place.width()));
    }

private:
    int indent() const
    {
        return EntryList::fieldText(selector).left() - frame;
    }

    const QComboBox *selector;
    int frame;
};

} // namespace

EntryList::EntryList(QComboBox *owner, QWidget *parent)
    : QListView(parent)
    , selector(owner)
{
    setItemDelegate(new EntryDelegate(owner, this));
    setUniformItemSizes(true);
    setTextElideMode(Qt::ElideMiddle);
    setEditTriggers(NoEditTriggers);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
}

QRect EntryList::fieldText(const QComboBox *combo)
{
    constexpr int beside = 2; // of the text, in every QLineEdit
    const QLineEdit *field = combo->lineEdit();
    QStyleOptionFrame option;
    option.initFrom(field);
    option.rect = field->contentsRect();
    return field->style()
        ->subElementRect(QStyle::SE_LineEditContents, &option, field)
        .translated(field->pos())
        .adjusted(beside, 0, -beside, 0);
}

int EntryList::wantedWidth() const
{
    constexpr int measured = 32;
    const int rows = model() ? model()->rowCount() : 0;
    std::vector<std::pair<int, int>> lengths; // and their rows
    lengths.reserve(static_cast<std::size_t>(rows));
    for (int row = 0; row < rows; ++row) {
        lengths.emplace_back(model()->index(row, 0).data().toString().size(), row);
    }
    const auto end = lengths.begin() + std::min(rows, measured);
    std::partial_sort(lengths.begin(), end, lengths.end(), std::greater<>());

    int width = 0;
    std::for_each(lengths.begin(), end, [this, &width](const std::pair<int, int> &entry) {
        width = std::max(width, sizeHintForIndex(model()->index(entry.second, 0)).width());
    });
    if (rows > visibleRows) {
        width += verticalScrollBar()->sizeHint().width();
    }
    return width + 2 * frameWidth();
}

int EntryList::heightOf(int rows) const
{
    return rows * sizeHintForRow(0) + 2 * frameWidth();
}

int EntryList::rowsWithin(int height) const
{
    return std::max(1, (height - 2 * frameWidth()) / std::max(1, sizeHintForRow(0)));
}
