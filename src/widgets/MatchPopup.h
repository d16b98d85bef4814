#pragma once

#include "widgets/EntryList.h"

#include <QStringList>

#include <functional>

class MatchModel;
class QComboBox;
class QKeyEvent;

// Lists the entries of a selector that contain the typed text anywhere, in any letter case, below
// the field. The field keeps the keyboard and the typed text until a row is picked with Enter or a
// click, which then counts as activated.
//
// The list opens with each keystroke that has matches, and with Up and Down while the field shows
// typed text. It closes when the field loses the focus, the window moves or a mouse button is
// pressed beside it. It does not grab the mouse, so such a press also reaches what is under it.
//
// Its rows are those of the last keystroke: an entry that comes later is offered with the next one.
// The row of a removed entry stays, disabled.
class MatchPopup final : public EntryList {
    Q_DISABLE_COPY_MOVE(MatchPopup)

public:
    // The row of the entry with this text in the combo box; -1 when there is none.
    using Find = std::function<int(const QString &text)>;

    // Becomes a child of the combo box's line edit, which must exist.
    MatchPopup(QComboBox *owner, const Find &findRow);
    ~MatchPopup() override = default;

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void offer(const QString &text);
    void place();
    void dismiss();
    bool showsTypedText() const;
    bool handleKey(QKeyEvent *event);
    bool closesOn(const QObject *watched, const QEvent *event) const;
    void pick(const QModelIndex &match);
    QStringList matching(const QString &text);

    Find find;
    MatchModel *matches;
    QStringList texts; // of all entries; empty when they have changed
};
