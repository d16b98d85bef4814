#pragma once

#include <QtTest>

#include <functional>

// A QString in the short form of Qt 6: "text"_s.
inline QString operator""_s(const char *text, std::size_t size)
{
    return QString::fromUtf8(text, static_cast<int>(size));
}

// Adds the columns of a _data function: columns<QString, int>("url", "status").
template <typename... Types, typename... Names>
void columns(Names... names)
{
    (QTest::addColumn<Types>(names), ...);
}

// Adds a row of such a function: row("name", "url"_s, 200).
template <typename... Values>
void row(const char *name, const Values &...values)
{
    (QTest::newRow(name) << ... << values);
}

// Runs a test with a QApplication that needs no display and with a temporary home directory, so
// that the tests neither read nor change the settings and caches of the person who runs them.
int runTest(int argc, char **argv, const std::function<int()> &test);

#define NODEPATCH_TEST_MAIN(Test)                                                                  \
    int main(int argc, char **argv)                                                                \
    {                                                                                              \
        return runTest(argc, argv, [argc, argv] {                                                  \
            Test test;                                                                             \
            return QTest::qExec(&test, argc, argv);                                                \
        });                                                                                        \
    }
