#pragma once

#include <QGuiApplication>

// While one of these lives, the mouse cursor says that the program is busy. They nest: the ordinary
// cursor is back when the last one has gone.
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
