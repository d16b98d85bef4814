#pragma once

#include <QStringList>
#include <QTextStream>

#include <atomic>
#include <map>
#include <mutex>
#include <random>

// Every decision of one step of one side. Made anew for each step, so that what step 1,000 does
// depends on the seed alone and not on what the steps before it came upon.
class Dice {
public:
    Dice(quint32 seed, quint32 side, quint32 step)
    {
        std::seed_seq sequence{seed, side, step};
        engine.seed(sequence);
    }
    int below(int count)
    {
        return count > 0 ? static_cast<int>(engine() % static_cast<quint32>(count)) : 0;
    }
    bool oneIn(int count)
    {
        return below(count) == 0;
    }
    template <typename List>
    auto pick(const List &list)
    {
        return list.at(below(static_cast<int>(list.size())));
    }

private:
    std::mt19937 engine;
};

// What was done, and how often; and what must not have been. From any thread.
class Record {
public:
    void count(const QString &what)
    {
        const std::scoped_lock lock(mutex);
        ++counts[what];
        last = what;
    }
    void finding(const QString &what)
    {
        const std::scoped_lock lock(mutex);
        if (++findings <= 50) {
            QTextStream(stdout) << "FINDING: " << what << " (after: " << last << ")\n";
        }
    }
    bool isClean() const
    {
        return findings == 0;
    }
    void print()
    {
        const std::scoped_lock lock(mutex);
        QTextStream out(stdout);
        for (const auto &[what, times] : counts) {
            out << qSetFieldWidth(8) << times << qSetFieldWidth(0) << "  " << what << '\n';
        }
        out << qSetFieldWidth(8) << findings << qSetFieldWidth(0) << "  findings\n";
    }

private:
    std::mutex mutex;
    std::map<QString, int> counts;
    QString last;
    std::atomic<int> findings{0};
};

// Texts that a careless program shows, stores or requests as something else than text.
inline QStringList hostileTexts()
{
    return {QStringLiteral("<b>bold</b><img src=\"file:///etc/hostname\"><a href=\"x\">y</a>"),
            QStringLiteral("&amp;&lt;%1 %2 %n %s %%"),
            QStringLiteral("tab\there\nline\r\nend \u0001\u0007\u001b[31m\u007f"),
            QString(QChar(0)) + QStringLiteral("\u202eleft\u202c\u200b\ufeff e\u0301\u0301 \u00e4"),
            QString(QChar(0xd800)) + QStringLiteral("half a pair"),
            QString(5000, QLatin1Char('w')),
            QStringLiteral("   "),
            QStringLiteral("\"quoted\\\" (127.0.1.1:80-Output 1)"),
            QStringLiteral("file:///etc/hostname"),
            QStringLiteral("user:secret@127.0.0.1"),
            QStringLiteral("[::1"),
            QStringLiteral("fe80::1%vx0"),
            QStringLiteral("127.0.0.1/../x?y#z")};
}
