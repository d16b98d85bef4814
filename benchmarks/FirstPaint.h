#pragma once

#include <QCoreApplication>
#include <QEvent>
#include <QMainWindow>
#include <QObject>

#include <cstdio>
#include <ctime>
#include <unistd.h>

// Waits for the first painting of the main window. Then prints the time of the monotonic clock in
// nanoseconds and the process's resident memory in KiB, and ends the program.
class FirstPaint final : public QObject {
    Q_DISABLE_COPY_MOVE(FirstPaint)

public:
    FirstPaint()
    {
        qApp->installEventFilter(this);
    }

    bool eventFilter(QObject *object, QEvent *event) override
    {
        if (event->type() == QEvent::Paint && qobject_cast<QMainWindow *>(object)) {
            qApp->removeEventFilter(this);
            // Qt paints all widgets of a window and shows them before it handles the next event.
            QMetaObject::invokeMethod(this, &FirstPaint::report, Qt::QueuedConnection);
        }
        return false;
    }

private:
    static void report()
    {
        timespec now{};
        ::clock_gettime(CLOCK_MONOTONIC, &now);
        long pages = 0;
        if (std::FILE *file = std::fopen("/proc/self/statm", "r")) {
            if (std::fscanf(file, "%*d %ld", &pages) != 1) {
                pages = 0;
            }
            std::fclose(file);
        }
        std::printf("%lld %ld\n", now.tv_sec * 1000000000LL + now.tv_nsec,
                    pages * (::sysconf(_SC_PAGESIZE) / 1024));
        std::fflush(stdout);
        QCoreApplication::quit();
    }
};
