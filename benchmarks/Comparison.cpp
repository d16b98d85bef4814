#include "Comparison.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QSysInfo>
#include <QThread>
#include <QTimer>

#include <algorithm>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace {

using Comparison::Heading;
using Comparison::Result;

struct Row {
    Heading heading;
    Result result;
};

// By the name that Google Benchmark knows the row by.
std::map<std::string, Row> &rows()
{
    static std::map<std::string, Row> all;
    return all;
}

double quantile(std::vector<double> values, double share)
{
    const auto place = static_cast<std::ptrdiff_t>(share * static_cast<double>(values.size() - 1));
    std::nth_element(values.begin(), values.begin() + place, values.end());
    return values[static_cast<std::size_t>(place)];
}

QString processor()
{
    QFile file(QStringLiteral("/proc/cpuinfo"));
    if (file.open(QIODevice::ReadOnly)) {
        const QStringList lines = QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'));
        for (const QString &line : lines) {
            if (line.startsWith(QLatin1String("model name"))) {
                return line.section(QLatin1Char(':'), 1).trimmed();
            }
        }
    }
    return QSysInfo::currentCpuArchitecture();
}

QString loadAverage()
{
    QFile file(QStringLiteral("/proc/loadavg"));
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll().left(4)) : QString();
}

class TableReporter final : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context &) override
    {
        std::printf("%s; %d processors (%s), %s, Qt %s; load at the start %s\n\n",
                    qPrintable(QSysInfo::prettyProductName()), QThread::idealThreadCount(),
                    qPrintable(processor()), qPrintable(QSysInfo::kernelVersion()), qVersion(),
                    qPrintable(loadAverage()));
        std::printf("| what | beside it | the program | that | ratio (quartiles) | to reach | |\n"
                    "|---|---|---:|---:|---:|---:|---|\n");
        return true;
    }

    void ReportRuns(const std::vector<Run> &runs) override
    {
        for (const Run &run : runs) {
            const Row &row = rows().at(run.run_name.function_name);
            std::printf("| %s | %s |", row.heading.what.c_str(), row.heading.beside.c_str());
            if (!row.result.error.isEmpty()) {
                complete = false;
                std::printf(" | | not measured: %s | | |\n", qPrintable(row.result.error));
            } else if (row.result.sides) {
                printRatio(row.heading, row.result.figure, *row.result.sides);
            } else {
                printFigure(row.heading, row.result);
            }
        }
        std::fflush(stdout);
    }

    bool complete = true;

private:
    static const char *verdict(const Heading &heading, double figure)
    {
        return figure <= heading.atMost ? "reached" : "**missed**";
    }

    static void printRatio(const Heading &heading, double ratio, const Result::Sides &sides)
    {
        const char *unit = heading.unit.c_str();
        std::printf(" %.4g %s | %.4g %s | %.2f (%.2f to %.2f) | %.1f | %s |\n", sides.program, unit,
                    sides.beside, unit, ratio, sides.lowRatio, sides.highRatio, heading.atMost,
                    verdict(heading, ratio));
    }

    static void printFigure(const Heading &heading, const Result &result)
    {
        const char *unit = heading.unit.c_str();
        std::printf(" %.3g %s | | | %.3g %s | %s; %s |\n", result.figure, unit, heading.atMost,
                    unit, verdict(heading, result.figure), qPrintable(result.remark));
    }
};

} // namespace

void Comparison::addRow(const Heading &heading, const Measurement &measure)
{
    const std::string name = heading.what + " / " + heading.beside;
    Row &row = rows()[name];
    row.heading = heading;
    benchmark::RegisterBenchmark(name.c_str(),
                                 [measure, &row](benchmark::State &state) {
                                     row.result = measure(state);
                                     if (!row.result.error.isEmpty()) {
                                         state.SkipWithError(qPrintable(row.result.error));
                                     }
                                 })
        ->Iterations(heading.pairs)
        ->UseManualTime();
}

Result Comparison::compare(benchmark::State &state, const Side &program, const Side &beside)
{
    program();
    beside();
    std::vector<double> programs;
    std::vector<double> others;
    std::vector<double> ratios;
    for ([[maybe_unused]] auto turn : state) {
        const bool programFirst = ratios.size() % 2 == 0;
        const double first = programFirst ? program() : beside();
        const double second = programFirst ? beside() : program();
        programs.push_back(programFirst ? first : second);
        others.push_back(programFirst ? second : first);
        ratios.push_back(programs.back() / others.back());
        state.SetIterationTime(programs.back() / 1000);
    }
    Result result;
    result.figure = quantile(ratios, 0.5);
    result.sides = Result::Sides{quantile(programs, 0.5), quantile(others, 0.5),
                                 quantile(ratios, 0.25), quantile(ratios, 0.75)};
    return result;
}

double Comparison::timed(const std::function<void()> &call)
{
    QElapsedTimer clock;
    clock.start();
    call();
    return static_cast<double>(clock.nsecsElapsed()) / 1e6;
}

void Comparison::waitUntil(const std::function<bool()> &condition)
{
    QElapsedTimer clock;
    clock.start();
    // Wakes the event loop when nothing else does.
    QTimer pulse;
    pulse.start(100);
    while (!condition()) {
        if (clock.hasExpired(60000)) {
            qFatal("what was waited for did not come");
        }
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
}

bool Comparison::runAll()
{
    TableReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    return reporter.complete;
}
