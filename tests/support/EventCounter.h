#pragma once

#include <QEvent>
#include <QObject>

// Counts the events of one type that an object gets; with the application as the object, those of
// all its objects. Only objects of the type Watched count.
template <typename Watched>
class EventCounter final : public QObject {
public:
    EventCounter(QObject *object, QEvent::Type wanted)
        : type(wanted)
    {
        object->installEventFilter(this);
    }

    bool eventFilter(QObject *watched, QEvent *event) override
    {
        count += event->type() == type && qobject_cast<Watched *>(watched) ? 1 : 0;
        return false;
    }

    int count = 0;

private:
    const QEvent::Type type;
};
