#include "widgets/Placeholder.h"

#include <QEvent>
#include <QLineEdit>

namespace {

class Muting final : public QObject {
public:
    explicit Muting(QLineEdit *lineEdit)
        : QObject(lineEdit)
        , edit(lineEdit)
    {
        edit->installEventFilter(this);
        mute();
    }

    bool eventFilter(QObject *, QEvent *event) override
    {
        // Each style sheet that comes into force sets the palette anew.
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
    new Muting(edit);
}
