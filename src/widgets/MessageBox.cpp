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

namespace {

constexpr int shownCharacters = 1000;
constexpr int deafTime = 500; // milliseconds
constexpr QSize windowFrame(20, 48); // room for what a window manager adds
constexpr int widthStep = 40;
constexpr QSize scrollingSize(800, 400); // for words that no width holds

} // namespace

MessageBox::MessageBox(const Message &message, StandardButtons buttons, QWidget *parent)
    : QMessageBox(message.icon, message.title, message.text, buttons, parent)
{
    setTextFormat(Qt::PlainText);
    setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    // Keys go to the widget that has the focus.
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
        return true; // QMessageBox would take back the size of fitScreen()
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
    return object->isWidgetType() && static_cast<const QWidget *>(object)->window() == this;
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

// QMessageBox wraps its text at 500 pixels or less, however high that makes the box, and does not
// break words.
void MessageBox::fitScreen()
{
    const QWidget *over = parentWidget() ? parentWidget() : this;
    const QSize room = over->screen()->availableGeometry().size() - windowFrame;
    auto *label = findChild<QLabel *>(QStringLiteral("qt_msgbox_label"));
    // QMessageBox may have told the label to break words, which lasts until its next layout.
    label->setWordWrap(label->wordWrap());
    QSize size(qMax(width(), layout()->totalMinimumSize().width()), 0);
    bool scrolls = size.width() > room.width();
    if (scrolls) {
        size = scrollingSize.boundedTo(room);
    } else {
        const auto heightAt = [content = layout()](int width) {
            return content->hasHeightForWidth() ? content->totalHeightForWidth(width)
                                                : content->totalMinimumSize().height();
        };
        // As wide as it takes to be half as high as wide, or as low as the text gets.
        const int leastHeight = heightAt(room.width());
        while (size.width() < room.width()
               && heightAt(size.width()) > qMax(size.width() / 2, leastHeight)) {
            size.setWidth(qMin(size.width() + widthStep, room.width()));
        }
        const int height = heightAt(size.width());
        scrolls = height > room.height();
        size.setHeight(qMin(height, room.height()));
    }
    setFixedSize(size);
    if (scrolls) {
        scrollText(label);
    }
    adjustPosition(parentWidget());
    // QDialog does so, too: it is not a place that was asked for.
    setAttribute(Qt::WA_Moved, false);
}

void MessageBox::scrollText(QLabel *label)
{
    auto *view = new QPlainTextEdit(this);
    view->setReadOnly(true);
    view->setTabChangesFocus(true);
    delete layout()->replaceWidget(label, view);
    label->hide();
    view->show();
    // At its size: the view scrolls when it gets narrower.
    layout()->activate();
    view->setPlainText(text());
}

void showMessage(QWidget *parent, const Message &message)
{
    MessageBox box(message, QMessageBox::Ok, parent);
    // No icon from the desktop theme.
    box.button(QMessageBox::Ok)->setIcon({});
    runModal(&box);
}

QString shownNodeText(const QString &text)
{
    return text.size() > shownCharacters ? text.left(shownCharacters) + QChar(0x2026) : text;
}
