#pragma once

#include <QGuiApplication>

// Shows the busy cursor for its lifetime; several may overlap.
class BusyCursor final {
    Q_DISABLE_COPY_MOVE(BusyCursor)

public:
    BusyCursor()
    {
        QGuiApplication::setOverrideCursor(Qt::BusyCursor);
    }

    ~BusyCursor()
    {
        QGuiApplication::restoreOverrideCursor();
    }
};
