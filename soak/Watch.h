#pragma once

#include <QElapsedTimer>
#include <QSemaphore>
#include <QTimer>

#include <atomic>
#include <chrono>
#include <memory>
#include <vector>

#include <pthread.h>

class QThread;
class Record;

// Watches the main thread's event loop and the process's memory. Findings are a turn of the event
// loop of more than five seconds, a request that waits for more than a minute, and memory that
// grows over ten minutes or more. When the event loop does not turn for half a minute, SIGABRT ends
// the process; the sanitizers then print the main thread's stack.
class Watch final {
public:
    // To be made on the main thread. theRecord must outlive the watch.
    explicit Watch(Record *theRecord);
    // Prints the longest turn and how the resident memory went.
    ~Watch();
    Q_DISABLE_COPY_MOVE(Watch)

private:
    void beat();
    void guard();
    // The median of the resident memory in one part of the run, which is cut into this many parts.
    // In MiB; 0 when nothing was read in that part.
    qint64 median(size_t part, size_t parts) const;

    static constexpr std::chrono::milliseconds interval{10};
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
