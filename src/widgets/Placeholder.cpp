#include "widgets/Placeholder.h"

#include <QEvent>
#include <QLineEdit>

namespace {

class PlaceholderColour final : public QObject {
public:
    explicit PlaceholderColour(QLineEdit *lineEdit)
        : QObject(lineEdit)
        , edit(lineEdit)
    {
        edit->installEventFilter(this);
        mute();
    }

    bool eventFilter(QObject *, QEvent *event) override
    {
        // A style sheet resets the palette.
        if (event->type() == QEvent::PaletteChange) {
            mute();
        }
        return false;
    }

private:
    void mute()
    {
        QPalette palette = edit->palette();
        const QBrush muted = palette.brush(QPalette::Disabled, QPalette::Text);
        if (palette.placeholderText() != muted) {
            palette.setBrush(QPalette::PlaceholderText, muted);
            edit->setPalette(palette);
        }
    }

    QLineEdit *edit;
};

} // namespace

void setMutedPlaceholder(QLineEdit *edit, const QString &placeholder)
{
    edit->setPlaceholderText(placeholder);
    new PlaceholderColour(edit);
}
