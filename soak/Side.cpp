#include "Side.h"

#include <QTextStream>

Dice::Dice(quint32 seed, quint32 side, quint32 step)
{
    std::seed_seq sequence{seed, side, step};
    engine.seed(sequence);
}

int Dice::below(int count)
{
    return count > 0 ? static_cast<int>(engine() % static_cast<quint32>(count)) : 0;
}

bool Dice::oneIn(int count)
{
    return below(count) == 0;
}

void Record::count(const QString &what)
{
    const std::scoped_lock lock(mutex);
    ++counts[what];
    last = what;
}

void Record::finding(const QString &what)
{
    const std::scoped_lock lock(mutex);
    if (++findings <= 50) {
        QTextStream(stdout) << "FINDING: " << what << " (after: " << last << ")\n";
    }
}

bool Record::isClean() const
{
    return findings == 0;
}

void Record::print() const
{
    const std::scoped_lock lock(mutex);
    QTextStream out(stdout);
    for (const auto &[what, times] : counts) {
        out << qSetFieldWidth(8) << times << qSetFieldWidth(0) << "  " << what << '\n';
    }
    out << qSetFieldWidth(8) << findings << qSetFieldWidth(0) << "  findings\n";
}

QStringList hostileTexts()
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
