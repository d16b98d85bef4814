#pragma once

#include <QDialog>
#include <QElapsedTimer>
#include <QMessageBox>
#include <QStringList>
#include <QTimer>

#include <functional>

// Answers modal windows in place of the operator. Records each message box and presses its first
// button; hands any other dialog to answer(), or rejects it when there is no such function. A box
// that the test did not take() fails the test, and so does a box whose text is not plain text, and
// a wait in which nothing happens for 15 s: it is ended.
class Boxes final : public QObject {
public:
    explicit Boxes(std::function<void(QDialog *)> answer = {});
    ~Boxes() override;

    // The boxes that were shown since the last call, oldest first: "Warning: title: text".
    QStringList take();

    // Looks at a message box before it is closed, or closes it in its own way.
    std::function<void(QMessageBox *)> inspect;
    bool keepsOpen = false; // message boxes are left alone for the time being
    QElapsedTimer idle; // to be restarted when something happens

private:
    void look();

    std::function<void(QDialog *)> answerDialog;
    QStringList shown;
    QTimer timer;
};
