#pragma once

#include <QMessageBox>
#include <QString>

// Something to tell the operator.
struct Message {
    QMessageBox::Icon icon;
    QString title;
    QString text;
};

// Shows a message in a modal box with one OK button over the parent, and returns when the operator
// has closed it. The text is shown as plain text, since it may come from a node. The platform's
// copy shortcut puts what is selected of it on the clipboard, or else all of it.
void showMessage(QWidget *parent, const Message &message);

// A text from a node as it stands in a message: no more than its first thousand characters. A node
// may send any length: four thousand characters make a box higher than the screen, and laying out
// 400 KB takes four seconds.
QString shownNodeText(const QString &text);

// Makes the text of a box plain, and lets the mouse, the keyboard alone and the platform's copy
// shortcut take it to the clipboard.
void makeTextPlain(QMessageBox *box);
