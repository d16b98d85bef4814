#pragma once

#include <QStringList>

#include <atomic>
#include <map>
#include <mutex>
#include <random>

// The random decisions of one step of one side. Each step has dice of its own, so that what step
// 1,000 does depends on the seed alone and not on how many decisions the steps before it took.
class Dice {
public:
    Dice(quint32 seed, quint32 side, quint32 step);

    // A number from 0 to count - 1; 0 when count is not positive.
    int below(int count);
    // True once in count times.
    bool oneIn(int count);
    // An element of a list, which must not be empty.
    template <typename List>
    auto pick(const List &list)
    {
        return list.at(below(static_cast<int>(list.size())));
    }

private:
    std::mt19937 engine;
};

// Counts what was done, and prints what must not happen. Any thread may call it.
class Record {
public:
    // Counts one more of what was done.
    void count(const QString &what);
    // Counts a finding. The first 50 are printed at once, each with what was done last.
    void finding(const QString &what);
    bool isClean() const;
    // Prints how often each thing was done, and the number of findings.
    void print() const;

private:
    mutable std::mutex mutex;
    std::map<QString, int> counts;
    QString last;
    std::atomic<int> findings{0};
};

// Texts that a careless program shows, stores or requests as something other than text.
QStringList hostileTexts();
