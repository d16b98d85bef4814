#include "Comparison.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QSysInfo>
#include <QThread>
#include <QTimer>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

const char atMostKey[] = "at most";
const char programKey[] = "program";
const char besideKey[] = "beside";
const char lowKey[] = "low";
const char figureKey[] = "figure";
const char highKey[] = "high";

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
        std::printf("%s; %d processors (%s), %s, toolkit %s; load at the start %s\n\n",
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
            print(run);
        }
        std::fflush(stdout);
    }

    bool complete = true;

private:
    void print(const Run &run)
    {
        // "what / beside it [unit]/iterations:n/manual_time"
        const QString name = QString::fromStdString(run.run_name.function_name);
        const QString what = name.section(QLatin1String(" / "), 0, 0);
        const QString beside =
            name.section(QLatin1String(" / "), 1).section(QLatin1Char('['), 0, 0);
        const QString unit = name.section(QLatin1Char('['), 1).section(QLatin1Char(']'), 0, 0);
        if (run.error_occurred) {
            complete = false;
            std::printf("| %s | %s | | | not measured: %s | | |\n", qPrintable(what),
                        qPrintable(beside), run.error_message.c_str());
            return;
        }
        const double figure = run.counters.at(figureKey);
        const double atMost = run.counters.at(atMostKey);
        const char *verdict = figure <= atMost ? "reached" : "**missed**";
        if (run.counters.find(programKey) == run.counters.end()) {
            std::printf("| %s | %s | %.3g %s | | | %.3g %s | %s; %s |\n", qPrintable(what),
                        qPrintable(beside), figure, qPrintable(unit), atMost, qPrintable(unit),
                        verdict, run.report_label.c_str());
            return;
        }
        std::printf("| %s | %s | %.4g %s | %.4g %s | %.2f (%.2f to %.2f) | %.1f | %s |\n",
                    qPrintable(what), qPrintable(beside), double(run.counters.at(programKey)),
                    qPrintable(unit), double(run.counters.at(besideKey)), qPrintable(unit), figure,
                    double(run.counters.at(lowKey)), double(run.counters.at(highKey)), atMost,
                    verdict);
    }
};

} // namespace

void Comparison::addRow(const Heading &heading, const Row &row)
{
    const std::string name =
        std::string(heading.what) + " / " + heading.beside + " [" + heading.unit + "]";
    const double atMost = heading.atMost;
    benchmark::RegisterBenchmark(name.c_str(),
                                 [row, atMost](benchmark::State &state) {
                                     state.counters[atMostKey] = atMost;
                                     row(state);
                                 })
        ->Iterations(heading.pairs)
        ->UseManualTime();
}

void Comparison::compare(benchmark::State &state, const Measured &program, const Measured &beside)
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
    state.counters[programKey] = quantile(programs, 0.5);
    state.counters[besideKey] = quantile(others, 0.5);
    state.counters[lowKey] = quantile(ratios, 0.25);
    state.counters[figureKey] = quantile(ratios, 0.5);
    state.counters[highKey] = quantile(ratios, 0.75);
}

void Comparison::report(benchmark::State &state, double figure, const QString &remark)
{
    state.counters[figureKey] = figure;
    state.SetLabel(remark.toStdString());
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
    // Wakes the loop when nothing else does.
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
