#pragma once

#include <QListView>

class QComboBox;

// A list of selector entries, for the drop-down of a selector as well as for its matches. Its texts
// begin where the field's text begins. All rows have the height of one line, so that thousands of
// them cost nothing until they are painted: control characters and line breaks appear as signs, and
// a text that is too long is elided in its middle, because entries differ at both ends.
class EntryList : public QListView {
    Q_DISABLE_COPY_MOVE(EntryList)

public:
    // How many rows a list shows before it scrolls.
    static constexpr int visibleRows = 18;

    EntryList(QComboBox *owner, QWidget *parent);
    ~EntryList() override = default;

    // Where the field of an editable combo box shows its text, in the combo box's coordinates.
    static QRect fieldText(const QComboBox *combo);

protected:
    // The width in pixels at which no row is elided, with frame and scroll bar. Only the texts with
    // the most characters are measured: in a proportional font, a shorter text of wide letters may
    // still be elided.
    int wantedWidth() const;

    // The height in pixels of so many rows, with the frame.
    int heightOf(int rows) const;

    // How many whole rows fit into a height.
    int rowsWithin(int height) const;

    QComboBox *const selector;
};
