#include "Watch.h"

#include "Side.h"
#include "net/SyncHttp.h"

#include <QFile>
#include <QTextStream>
#include <QThread>

#include <algorithm>
#include <csignal>

#include <unistd.h>

Watch::Watch(Record *theRecord)
    : record(theRecord)
    , thread(QThread::create([this] { guard(); }))
{
    clock.start();
    heart.setTimerType(Qt::PreciseTimer);
    QObject::connect(&heart, &QTimer::timeout, &heart, [this] { beat(); });
    heart.start(interval);
    thread->start();
}

Watch::~Watch()
{
    ending.release();
    thread->wait();
    QTextStream out(stdout);
    out << "worst turn of the event loop: " << worstTurn << " ms\nresident MiB (median):";
    for (size_t i = 0; i < 20; ++i) {
        out << ' ' << median(i, 20);
    }
    out << '\n';
    // Caches fill during the first minutes, until each thing has happened once.
    if (residentMegabytes.size() >= 600 && median(3, 4) > median(1, 4) * 5 / 4 + 32) {
        record->finding(QStringLiteral("the memory grows"));
    }
}

void Watch::beat()
{
    const qint64 now = clock.elapsed();
    const qint64 turn = now - lastBeat - interval.count();
    lastBeat = now;
    worstTurn = qMax(worstTurn, turn);
    if (turn > 5000) {
        record->finding(QStringLiteral("a turn of %1 ms").arg(turn));
    }
    // The plant takes every fault back within eight seconds.
    if (requestActivity().depth > 0 && requestActivity().waitTime > std::chrono::minutes(1)) {
        record->finding(QStringLiteral("a request waits without an end"));
    }
}

void Watch::guard()
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

qint64 Watch::median(size_t part, size_t parts) const
{
    const auto at = [&](size_t i) {
        return residentMegabytes.begin()
            + static_cast<std::ptrdiff_t>(residentMegabytes.size() * i / parts);
    };
    std::vector<qint64> values(at(part), at(part + 1));
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values.at(values.size() / 2);
}
