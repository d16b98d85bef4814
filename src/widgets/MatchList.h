#pragma once

#include <QObject>
#include <QStringList>

class EntryList;
class MatchModel;
class QComboBox;
class QKeyEvent;
class QModelIndex;

// Offers the entries of a selector that hold the typed text anywhere, in any letter case, in a list
// below the field. The field keeps the keyboard and what was typed in it until a row is picked with
// Enter or a click, which then counts as activated.
//
// The list opens with each keystroke that has matches, and with Up and Down while the field shows
// typed text. It closes when the field loses the focus, the window moves or a mouse button is
// pressed beside it. It takes no hold of the mouse, so such a press does what it would do without
// the list.
//
// Its rows are those of the keystroke: what comes later is offered with the next one. The row of an
// entry that has gone stays, disabled.
class MatchList final : public QObject {
    Q_DISABLE_COPY_MOVE(MatchList)

public:
    // Belongs to the selector, which must have a line edit, and ends with that.
    explicit MatchList(QComboBox *owner);
    ~MatchList() override = default;

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void offer(const QString &text);
    void place();
    void close();
    bool handleKey(QKeyEvent *event);
    bool closesOn(const QObject *watched, const QEvent *event) const;
    void pick(const QModelIndex &match);
    QStringList matching(const QString &text);

    QComboBox *selector;
    EntryList *list;
    MatchModel *matches;
    QStringList texts; // of all entries; empty when they have changed
};
