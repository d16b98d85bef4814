#include "widgets/MessageBox.h"

#include "widgets/ModalDialog.h"

#include <QAbstractButton>
#include <QApplication>
#include <QClipboard>
#include <QKeyEvent>
#include <QLabel>
#include <QLayout>
#include <QPlainTextEdit>
#include <QScreen>
#include <QWindow>

namespace {

constexpr int shownCharacters = 1000;
constexpr int deafTime = 500; // milliseconds
constexpr QSize windowFrame(20, 48); // room for what a window manager adds
constexpr int widthStep = 40;

} // namespace

MessageBox::MessageBox(const Message &message, StandardButtons buttons, QWidget *parent)
    : QMessageBox(message.icon, message.title, message.text, buttons, parent)
{
    setTextFormat(Qt::PlainText);
    setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    // Keys go to the window first and then to the widget with the focus; this sees both.
    qApp->installEventFilter(this);
}

bool MessageBox::event(QEvent *event)
{
    switch (event->type()) {
    case QEvent::Paint:
        if (!onScreen.isValid()) {
            onScreen.start();
        }
        return QMessageBox::event(event);
    case QEvent::LayoutRequest:
        // QMessageBox would take back the size of fitScreen().
        return QDialog::event(event);
    default:
        return QMessageBox::event(event);
    }
}

bool MessageBox::eventFilter(QObject *watched, QEvent *event)
{
    const bool isPress = event->type() == QEvent::KeyPress;
    if ((isPress || event->type() == QEvent::ShortcutOverride) && isOwn(watched)) {
        auto *key = static_cast<QKeyEvent *>(event);
        if (!takesKeys(*key)) {
            // An override that nobody accepts becomes a shortcut, and a key goes to the parent.
            key->accept();
            return true;
        }
        if (isPress && key->matches(QKeySequence::Copy)) {
            QGuiApplication::clipboard()->setText(copiedText());
            key->accept();
            return true;
        }
    }
    return QMessageBox::eventFilter(watched, event);
}

void MessageBox::showEvent(QShowEvent *event)
{
    QMessageBox::showEvent(event);
    fitScreen();
}

bool MessageBox::isOwn(const QObject *object) const
{
    return object == windowHandle()
        || (object->isWidgetType() && static_cast<const QWidget *>(object)->window() == this);
}

bool MessageBox::takesKeys(const QKeyEvent &key)
{
    awake = awake || (onScreen.isValid() && onScreen.hasExpired(deafTime) && !key.isAutoRepeat());
    return awake;
}

QString MessageBox::copiedText() const
{
    QString selected;
    if (const auto *view = findChild<QPlainTextEdit *>()) {
        selected = view->textCursor().selectedText();
    }
    const auto labels = findChildren<QLabel *>();
    for (const QLabel *label : labels) {
        selected += label->selectedText();
    }
    // Selections separate lines in Qt's own way.
    return selected.isEmpty() ? text()
                              : selected.replace(QChar::ParagraphSeparator, QLatin1Char('\n'));
}

// QMessageBox wraps its text at 500 pixels or less, however high that makes the box.
void MessageBox::fitScreen()
{
    const QWidget *over = parentWidget() ? parentWidget() : this;
    const QSize room = over->screen()->availableGeometry().size() - windowFrame;
    const auto heightAt = [content = layout()](int width) {
        return content->hasHeightForWidth() ? content->totalHeightForWidth(width)
                                            : content->totalMinimumSize().height();
    };
    // As wide as it takes to be half as high as wide, or as low as the text gets.
    const int leastHeight = heightAt(room.width());
    const auto isTooHigh = [&](int width) {
        return heightAt(width) > qMax(width / 2, leastHeight);
    };
    int fitted = qMin(width(), room.width());
    while (fitted < room.width() && isTooHigh(fitted)) {
        fitted = qMin(fitted + widthStep, room.width());
    }
    const int height = heightAt(fitted);
    if (height > room.height()) {
        scrollText();
    }
    setFixedSize(fitted, qMin(height, room.height()));
    adjustPosition(parentWidget());
    // QDialog does so, too: it is not a place that was asked for.
    setAttribute(Qt::WA_Moved, false);
}

void MessageBox::scrollText()
{
    auto *label = findChild<QLabel *>(QStringLiteral("qt_msgbox_label"));
    auto *view = new QPlainTextEdit(text(), this);
    view->setReadOnly(true);
    view->setTabChangesFocus(true);
    delete layout()->replaceWidget(label, view);
    label->hide();
    view->show();
}

void showMessage(QWidget *parent, const Message &message)
{
    MessageBox box(message, QMessageBox::Ok, parent);
    // No icon from the desktop theme. The focus on the button: the selectable text would get it.
    QAbstractButton *ok = box.button(QMessageBox::Ok);
    ok->setIcon({});
    ok->setFocus();
    runModal(&box);
}

QString shownNodeText(const QString &text)
{
    return text.size() > shownCharacters ? text.left(shownCharacters) + QChar(0x2026) : text;
}
