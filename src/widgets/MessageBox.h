#pragma once

#include <QElapsedTimer>
#include <QMessageBox>
#include <QString>

class QLabel;

// Something to tell the operator.
struct Message {
    QMessageBox::Icon icon;
    QString title;
    QString text;
};

// A message box as this program shows them. It comes up while the operator does something else, and
// its text may come from a node.
//
// The text is plain text and can be selected. The platform's copy shortcut puts what is selected of
// it on the clipboard, or else all of it.
//
// The mouse works at once, but no key does for the first half second that the box is on the screen,
// nor does a key that is held since then: it was meant for something else.
//
// The box fits the screen of its parent. A long text makes it wider before it makes it higher, and
// scrolls only when it fits in no other way.
class MessageBox final : public QMessageBox {
    Q_DISABLE_COPY_MOVE(MessageBox)

public:
    MessageBox(const Message &message, StandardButtons buttons, QWidget *parent);
    ~MessageBox() override = default;

protected:
    bool event(QEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;
    void showEvent(QShowEvent *event) override;

private:
    bool isOwn(const QObject *object) const;
    bool takesKeys(const QKeyEvent &key);
    QString copiedText() const;
    void fitScreen();
    // Puts a view that scrolls and breaks words in place of the text's label.
    void scrollText(QLabel *label);

    QElapsedTimer onScreen; // invalid before the box is painted
    bool awake = false; // keys have an effect
};

// Shows a message in a modal box with one OK button over the parent, and returns as soon as the
// operator has closed it, whatever intakes wait for by then; a command that waited before goes on
// after that. While the program closes, no box comes up (see widgets/ModalDialog.h).
void showMessage(QWidget *parent, const Message &message);

// Shortens a node's text to a thousand characters, as it is shown in messages. A node may send any
// length, and laying out 400 KB takes four seconds.
QString shownNodeText(const QString &text);
