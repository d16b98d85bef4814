#pragma once

#include <benchmark/benchmark.h>

#include <QString>

#include <ctime>
#include <functional>
#include <optional>
#include <string>

// The clock that processes share when they tell each other when something happened.
inline long long monotonicNanoseconds()
{
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000000000LL + now.tv_nsec;
}

// The rows of the table. Each measures something that the program does beside something else that
// does the same work. Both sides run in turn in one process, so that the rest of the machine's load
// slows both.
namespace Comparison {

// What a row measures. The texts have no line breaks.
struct Heading {
    std::string what;
    std::string beside; // empty when the figure is no ratio
    std::string unit; // of the two sides, or of a figure that is no ratio
    double atMost; // the bound that the figure shall keep
    int pairs; // how often both sides run
};

// What a row measured.
struct Result {
    // The two sides of a ratio.
    struct Sides {
        double program; // medians, in the heading's unit
        double beside;
        double lowRatio; // the ratio's quartiles
        double highRatio;
    };

    double figure = 0; // the median ratio, or a figure in the heading's unit
    std::optional<Sides> sides; // of a ratio only
    QString remark; // printed beside a figure that is no ratio
    QString error; // why nothing could be measured; empty when something was
};

// Runs one side once and returns what it cost, in the heading's unit.
using Side = std::function<double()>;
// Prepares a row and measures it; iterates over the state once for each pair.
using Measurement = std::function<Result(benchmark::State &)>;

// Adds a row. Google Benchmark's filter matches "what / beside".
void addRow(const Heading &heading, const Measurement &measure);

// Runs both sides as often as the heading says, and once before without measuring. The two sides
// take turns at going first. The figure is the median of the pairs' ratios, which slow changes of
// the machine do not move.
Result compare(benchmark::State &state, const Side &program, const Side &beside);

// The milliseconds that a call takes.
double timed(const std::function<void()> &call);

// Processes events until the condition holds. Ends the program after a minute.
void waitUntil(const std::function<bool()> &condition);

// Runs the rows and prints the table in Markdown. False when a row could not be measured.
bool runAll();

} // namespace Comparison
