#pragma once

#include <QStringList>
#include <QTextStream>

#include <atomic>
#include <random>

// The random decisions of one step of one side. Each step has dice of its own, so that what step
// 1,000 does depends on the seed alone and not on how many decisions the steps before it took.
class Dice final {
public:
    Dice(quint32 seed, quint32 side, quint32 step)
    {
        std::seed_seq sequence{seed, side, step};
        engine.seed(sequence);
    }

    // A number from 0 to count - 1; 0 when count is not positive.
    int below(int count)
    {
        return count > 0 ? static_cast<int>(engine() % static_cast<quint32>(count)) : 0;
    }
    bool oneIn(int count)
    {
        return below(count) == 0;
    }
    // An element of a list, which must not be empty.
    template <typename List>
    auto pick(const List &list)
    {
        return list.at(below(static_cast<int>(list.size())));
    }
    // A text that a careless program shows, stores or requests as something other than text.
    QString hostileText()
    {
        const auto text = pick(QList<const char *>{
            "<b>bold</b><img src=\"file:///etc/hostname\"><a href=\"x\">y</a>",
            "&amp;&lt;%1 %2 %n %s %%", "tab\there\nline\r\nend \x01\x07\x1b[31m\x7f", "   ",
            "\u202eleft\u202c\u200b\ufeff e\u0301\u0301 \u00e4", "user:secret@127.0.0.1", "[::1",
            "\"quoted\\\" (127.0.1.1:80-Output 1)", "file:///etc/hostname", "fe80::1%vx0",
            "127.0.0.1/../x?y#z"});
        return oneIn(9) ? QString(5000, QChar(0xd800)) : QString::fromUtf8(text);
    }

private:
    std::mt19937 engine;
};

// Counts what must not happen, and prints the first 50. Any thread may call it.
class Findings final {
public:
    void add(const QString &what)
    {
        if (++count <= 50) {
            QTextStream(stdout) << QStringLiteral("FINDING: %1\n").arg(what);
        }
    }
    std::atomic<int> count{0};
};
