#pragma once

#include "WindowDriver.h"

#include <QObject>

class Dice;
class MainWindow;
class Plant;
class Record;

// The operator before the program's windows: types, chooses, presses any button, answers every box
// and dialog, and at the end closes all windows, whatever is going on. Acts about every 30 ms, also
// while a command waits in a nested event loop.
class Operator final : public QObject {
    Q_DISABLE_COPY_MOVE(Operator)

public:
    // Begins as soon as the event loop runs. nextStep is the number of the next step; it is counted
    // up, so that the operators of several windows go through one sequence. What is pointed to must
    // outlive the operator.
    Operator(quint32 theSeed, quint32 *nextStep, MainWindow *theWindow, const Plant &thePlant,
             Record *theRecord);

    // Stops acting, and closes all windows, again every 50 ms until the event loop ends.
    void leave();

private:
    void act();

    // What a step does.
    void enter(Dice &dice);
    void choose(Dice &dice);
    void press(Dice &dice);
    void useOtherWindow(Dice &dice);
    void click(Dice &dice);

    void answer(QWidget *modal, Dice &dice);
    void fillIn(const QWidget *dialog, Dice &dice);

    const quint32 seed;
    quint32 *const step;
    MainWindow *const window;
    const Plant &plant;
    Record *const record;
    const WindowDriver driver;
    bool leaving = false;
};
