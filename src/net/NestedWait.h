#pragma once

#include <QtGlobal>

#include <functional>

// The waits of the GUI thread: each runs an event loop until a reply or the answer to a dialog has
// come, and whatever that loop starts may wait in turn. An inner wait has to end before the one
// around it can go on, so these classes say whose wait each is:
//  - an intake's (see nmos/IntakeQueue.h): a request that the intake itself makes;
//  - the operator's: everything else, whether a command, the check of a field, a dialog or a box.
//    What the operator starts while an intake waits is the operator's, too.
//
// An intake gives way. As soon as one of the operator's waits has what it waits for and only
// intakes hold it up, their waits end, and these intakes may send no further request. The
// operator's waits end early only when the program closes.
//
// All of it belongs to the GUI thread; the objects live on its stack, one inside another.

// While one of these lives, an intake runs.
class IntakeScope final {
    Q_DISABLE_COPY_MOVE(IntakeScope)

public:
    IntakeScope();
    ~IntakeScope();

    // The intake had to give way: it may have missed answers, and has to run again.
    bool isInterrupted() const
    {
        return interrupted;
    }

    // Whether the code that runs now belongs to an intake that has to give way.
    static bool isCurrentInterrupted();

private:
    friend class NestedWait;

    IntakeScope *const outer;
    bool interrupted = false;
};

// One wait. Make it before its event loop runs, and let it go as soon as the loop has returned.
class NestedWait final {
    Q_DISABLE_COPY_MOVE(NestedWait)

public:
    // endLoop has to make the event loop return. It is called when the wait ends without an answer,
    // and possibly more than once.
    explicit NestedWait(std::function<void()> endLoop);
    ~NestedWait();

    // Has to be called when what is waited for has come.
    void noteAnswer();

    bool isAnswered() const
    {
        return answered;
    }

    // Whether this is the wait of an intake that had to give way.
    bool isInterrupted() const
    {
        return intake && intake->interrupted;
    }

    // Whether the innermost of the operator's waits has its answer and only has to be returned to.
    // What would begin now would hold it up.
    static bool isOperatorDue();

    // Ends every wait, the operator's included.
    static void endAll();

private:
    static void makeIntakesGiveWay();

    const std::function<void()> end;
    IntakeScope *const intake; // null: the operator's
    NestedWait *const outer;
    bool answered = false;
};

// The closing of the program ends all waits. The commands that waited go on with their next steps:
// none of those may send a request or show a dialog any more.
namespace Closing {

bool isUnderWay();

// Ends every wait; lasts until over() is called. For the closing of the main window.
void begin();
void over();

// Lasts until the outermost event loop has returned. Has to be called when the event loop of a wait
// has returned although nothing here ended it: Qt ends all event loops when the program quits.
void noteQuitting();

} // namespace Closing
