#include "widgets/SdpDialog.h"

#include <QClipboard>
#include <QFontDatabase>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QPushButton>
#include <QTextEdit>
#include <QVBoxLayout>

namespace {

// The time that QTextEdit takes to break a text without blanks into lines grows with the square of
// its length: 400 KB, which a faulty node may well send, froze the window for 7 s. It grows in
// proportion where lines may break anywhere.
bool hasEndlessWord(const QString &text)
{
    constexpr int endless = 2000;
    int length = 0;
    for (const QChar c : text) {
        length = c.isSpace() ? 0 : length + 1;
        if (length > endless) {
            return true;
        }
    }
    return false;
}

} // namespace

SdpDialog::SdpDialog(const QString &caption, const QString &sdpText, QWidget *parent)
    : QDialog(parent)
{
    setWindowTitle(caption.isEmpty() ? QStringLiteral("SDP")
                                     : QStringLiteral("SDP \u2022 %1").arg(caption));
    resize(700, 500);

    view = new QTextEdit(this);
    view->setReadOnly(true);
    view->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    if (hasEndlessWord(sdpText)) {
        view->setWordWrapMode(QTextOption::WrapAnywhere);
    }
    view->setPlainText(sdpText);
    view->setAccessibleName(QStringLiteral("SDP text"));

    auto *copyButton = new QPushButton(QStringLiteral("Copy SDP"), this);
    auto *closeButton = new QPushButton(QStringLiteral("Close"), this);
    connect(copyButton, &QPushButton::clicked, this, &SdpDialog::copyToClipboard);
    connect(closeButton, &QPushButton::clicked, this, &SdpDialog::accept);

    auto *buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(copyButton);
    buttons->addWidget(closeButton);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(view);
    layout->addLayout(buttons);
}

void SdpDialog::copyToClipboard()
{
    // The view's text, not the one that was passed: RFC 8866 asks for CR LF, many nodes send LF,
    // and QTextEdit makes LF of both. QClipboard turns LF into the platform's own line end; a CR
    // beside it would show up as a stray character in editors.
    QGuiApplication::clipboard()->setText(view->toPlainText(), QClipboard::Clipboard);
}
