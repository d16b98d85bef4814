#pragma once

#include <QListView>

// A list of selector entries, for the drop-down of a selector as well as for its matches. All rows
// have one height, so that thousands of them cost nothing until they are painted; a text that is
// too long is elided in its middle, as entries differ at both ends.
class EntryList : public QListView {
    Q_DISABLE_COPY_MOVE(EntryList)

public:
    // How many rows a list shows before it scrolls.
    static constexpr int visibleRows = 18;

    explicit EntryList(QWidget *parent = nullptr);
    ~EntryList() override = default;

    // The width in pixels at which no row is elided, with frame and scroll bar. Only the texts with
    // the most characters are measured: in a proportional font, a shorter text of wide letters may
    // still be elided.
    int wantedWidth() const;
};
