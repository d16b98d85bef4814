#pragma once

#include <QString>

class LightIndicator;
class QAbstractButton;
class QComboBox;
class QWidget;

// The main window's parts, found as a person finds them: by what they are called. For the tour, the
// tests and the measurements, which drive the real window from outside.
class WindowDriver {
public:
    // The window must outlive the driver.
    explicit WindowDriver(QWidget *window);

    // Clicks the push button with this text, or with this accessible name. Aborts the program when
    // there is none. Returns when the command has returned.
    void press(const QString &button) const;
    // The same in another window of the program.
    static void press(QWidget *window, const QString &button);

    // Enters a text in one go, as pasting does. (Typing it key by key asks a node for each part.)
    static void enter(QComboBox *selector, const QString &text);

    // Picks the entry from the list, as a click on it does. False when there is none of this text.
    static bool choose(QComboBox *selector, const QString &entry);

    static bool isOn(const LightIndicator *light);

    QComboBox *tx;
    QComboBox *rx;
    LightIndicator *txLight;
    LightIndicator *rxLight;

private:
    QWidget *driven;
};
