#pragma once

#include <benchmark/benchmark.h>

#include <QString>

#include <ctime>
#include <functional>

// The clock on which processes tell each other when something happened.
inline long long monotonicNanoseconds()
{
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000000000LL + now.tv_nsec;
}

// A row of the table: something the program does, measured beside something that does the same
// work, turn by turn in the same run, so that whatever else the machine does weighs on both.
namespace Comparison {

// What one run of either side costs, in the unit of the row.
using Measured = std::function<double()>;
// Prepares a row and hands its two sides to compare(), or a figure of another kind to report().
using Row = std::function<void(benchmark::State &)>;

struct Heading {
    const char *what;
    const char *beside;
    const char *unit;
    double atMost; // the ratio to reach
    int pairs; // how often both sides run
};

void addRow(const Heading &heading, const Row &row);

// Runs both sides as often as the row says, each first in every other turn, after one unmeasured
// turn. The figure is the median of the turns' ratios, which slow changes of the machine cannot
// move; its spread is the quartiles.
void compare(benchmark::State &state, const Measured &program, const Measured &beside);

// For a row that is no ratio: the figure that is to stay within the bound, and a remark.
void report(benchmark::State &state, double figure, const QString &remark);

// The milliseconds that a call takes.
double timed(const std::function<void()> &call);

// Lets events be processed until the condition holds. Ends the program after a minute.
void waitUntil(const std::function<bool()> &condition);

// Runs the rows and prints the table in Markdown. False when one of them could not be measured.
bool runAll();

} // namespace Comparison
