#pragma once

#include <QDialog>

class QTextEdit;

// Shows session descriptions (RFC 8866) to read and to copy as a whole. Made for one use: construct
// it, hand it to runModal(), drop it.
//
// The text comes from a node and is shown as it is: markup in it is text like any other. Enter
// copies, as "Copy SDP" is the first button; Escape closes.
class SdpDialog final : public QDialog {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(SdpDialog)

public:
    // caption names what is shown, for the window title; it may be empty. sdpText may hold any
    // number of descriptions and use any line ends.
    SdpDialog(const QString &caption, const QString &sdpText, QWidget *parent = nullptr);

private slots:
    // Puts the shown text on the clipboard; it is empty when no text is shown.
    void copyToClipboard();

private:
    QTextEdit *view = nullptr;
};
