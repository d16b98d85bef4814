#pragma once

#include "Identity.h"
#include "MainWindow.h"
#include "WindowDriver.h"

#include <QSettings>

struct ShownWindow {
    ShownWindow()
    {
        window.show();
    }

    MainWindow window;
};

// A main window that is shown, and the driver that operates it.
struct Window : ShownWindow, WindowDriver {
    Window()
        : WindowDriver(&window)
    {
    }
};

// The program's settings, in the test's temporary home.
inline QSettings settings()
{
    return QSettings(Identity::organisation(), Identity::application());
}

inline void store(const QString &key, const QVariant &value)
{
    QSettings kept(Identity::organisation(), Identity::application());
    kept.setValue(key, value);
}
