#include "widgets/EntryList.h"

#include <QScrollBar>

#include <algorithm>
#include <functional>
#include <utility>
#include <vector>

EntryList::EntryList(QWidget *parent)
    : QListView(parent)
{
    setUniformItemSizes(true);
    setTextElideMode(Qt::ElideMiddle);
    setEditTriggers(NoEditTriggers);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
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
