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

// A shown main window and the hands on it.
struct Window : ShownWindow, WindowDriver {
    Window()
        : WindowDriver(&window)
    {
    }
};

// The program's settings, in the test's own home.
inline QSettings settings()
{
    return QSettings(Identity::organisation(), Identity::application());
}

inline void store(const QString &key, const QVariant &value)
{
    QSettings kept(Identity::organisation(), Identity::application());
    kept.setValue(key, value);
}
