#include "widgets/MessageBox.h"

#include <QAbstractButton>
#include <QClipboard>
#include <QGuiApplication>
#include <QKeySequence>
#include <QLabel>
#include <QShortcut>

namespace {

constexpr int shownCharacters = 1000;

QString copiedText(const QMessageBox &box)
{
    const auto labels = box.findChildren<QLabel *>();
    for (const QLabel *label : labels) {
        if (label->hasSelectedText()) {
            return label->selectedText();
        }
    }
    return box.text();
}

} // namespace

void showMessage(QWidget *parent, const Message &message)
{
    QMessageBox box(message.icon, message.title, message.text, QMessageBox::Ok, parent);
    makeTextPlain(&box);
    // Without the sign that desktop themes put on it. The focus is on the button, although the text
    // comes before it and takes the focus, too.
    QAbstractButton *ok = box.button(QMessageBox::Ok);
    ok->setIcon({});
    ok->setFocus();
    box.exec();
}

QString shownNodeText(const QString &text)
{
    return text.size() > shownCharacters ? text.left(shownCharacters) + QChar(0x2026) : text;
}

void makeTextPlain(QMessageBox *box)
{
    box->setTextFormat(Qt::PlainText);
    box->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    auto *copy = new QShortcut(QKeySequence::Copy, box);
    QObject::connect(copy, &QShortcut::activated, box,
                     [box] { QGuiApplication::clipboard()->setText(copiedText(*box)); });
}
