#pragma once

#include "Side.h"
#include "nmos/SyncHttp.h"

#include <QElapsedTimer>
#include <QFile>
#include <QSemaphore>
#include <QThread>
#include <QTimer>

#include <algorithm>
#include <csignal>
#include <memory>
#include <vector>

#include <pthread.h>
#include <unistd.h>

// Watches the main thread's event loop and the process's memory. An event loop that stands still
// for half a minute ends the process, with the main thread's stack where the sanitizers print it.
class Watch final {
public:
    explicit Watch(Record *theRecord)
        : record(theRecord)
        , thread(QThread::create([this] { guard(); }))
    {
        clock.start();
        heart.setTimerType(Qt::PreciseTimer);
        QObject::connect(&heart, &QTimer::timeout, &heart, [this] { beat(); });
        heart.start(interval);
        thread->start();
    }
    ~Watch()
    {
        ending.release();
        thread->wait();
        QTextStream out(stdout);
        out << "worst turn of the event loop: " << worstTurn << " ms\nresident MiB (median):";
        for (size_t i = 0; i < 20; ++i) {
            out << ' ' << median(i, 20);
        }
        out << '\n';
        // It takes some minutes until everything has been met once.
        if (residentMegabytes.size() >= 600 && median(3, 4) > median(1, 4) * 5 / 4 + 32) {
            record->finding(QStringLiteral("the memory grows"));
        }
    }
    Q_DISABLE_COPY_MOVE(Watch)

private:
    void beat()
    {
        const qint64 now = clock.elapsed();
        const qint64 turn = now - lastBeat - interval;
        lastBeat = now;
        worstTurn = qMax(worstTurn, turn);
        if (turn > 5000) {
            record->finding(QStringLiteral("a turn of %1 ms").arg(turn));
        }
        // The plant takes every fault back long before.
        if (requestActivity().depth > 0 && requestActivity().waitTime > 60000) {
            record->finding(QStringLiteral("a request waits without an end"));
        }
    }

    void guard()
    {
        while (!ending.tryAcquire(1, 1000)) {
            QFile file(QStringLiteral("/proc/self/statm"));
            file.open(QIODevice::ReadOnly);
            const qint64 pages = file.readAll().split(' ').value(1).toLongLong();
            residentMegabytes.push_back(pages * sysconf(_SC_PAGESIZE) / (1024 * 1024));
            if (clock.elapsed() - lastBeat > 30000) {
                pthread_kill(mainThread, SIGABRT);
            }
        }
    }

    // Of one of that many equal parts of the time.
    qint64 median(size_t part, size_t parts) const
    {
        const auto at = [&](size_t i) {
            return residentMegabytes.begin()
                + static_cast<std::ptrdiff_t>(residentMegabytes.size() * i / parts);
        };
        std::vector<qint64> values(at(part), at(part + 1));
        std::sort(values.begin(), values.end());
        return values.empty() ? 0 : values.at(values.size() / 2);
    }

    static constexpr int interval = 10; // milliseconds
    Record *const record;
    QTimer heart;
    QElapsedTimer clock;
    std::atomic<qint64> lastBeat{0};
    qint64 worstTurn = 0;
    std::vector<qint64> residentMegabytes; // one a second
    QSemaphore ending;
    const pthread_t mainThread = pthread_self();
    const std::unique_ptr<QThread> thread;
};
