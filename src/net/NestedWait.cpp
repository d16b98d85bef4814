#include "net/NestedWait.h"

#include <QCoreApplication>

#include <utility>

namespace {

IntakeScope *currentIntake = nullptr; // whose code runs; null inside the event loop of a wait
NestedWait *innermostWait = nullptr;

bool closing = false;
bool quitting = false;

} // namespace

IntakeScope::IntakeScope()
    : outer(std::exchange(currentIntake, this))
{
}

IntakeScope::~IntakeScope()
{
    currentIntake = outer;
}

bool IntakeScope::isCurrentInterrupted()
{
    return currentIntake && currentIntake->interrupted;
}

NestedWait::NestedWait(std::function<void()> endLoop)
    : end(std::move(endLoop))
    , intake(std::exchange(currentIntake, nullptr))
    , outer(std::exchange(innermostWait, this))
{
}

NestedWait::~NestedWait()
{
    innermostWait = outer;
    currentIntake = intake;
    makeIntakesGiveWay();
}

void NestedWait::noteAnswer()
{
    answered = true;
    makeIntakesGiveWay();
}

void NestedWait::makeIntakesGiveWay()
{
    if (isOperatorDue()) {
        for (const NestedWait *wait = innermostWait; wait->intake; wait = wait->outer) {
            wait->intake->interrupted = true;
            wait->end();
        }
    }
}

bool NestedWait::isOperatorDue()
{
    const NestedWait *wait = innermostWait;
    while (wait && wait->intake) {
        wait = wait->outer;
    }
    return wait && wait->answered;
}

void NestedWait::endAll()
{
    for (const NestedWait *wait = innermostWait; wait; wait = wait->outer) {
        wait->end();
    }
}

bool Closing::isUnderWay()
{
    return closing || quitting;
}

void Closing::begin()
{
    closing = true;
    NestedWait::endAll();
}

void Closing::over()
{
    closing = false;
}

void Closing::noteQuitting()
{
    if (!isUnderWay()) {
        quitting = true;
        QObject::connect(
            qApp, &QCoreApplication::aboutToQuit, qApp, [] { quitting = false; },
            Qt::DirectConnection);
    }
}
