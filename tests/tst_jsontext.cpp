// parseJson(): texts accepted and rejected, memory kept.

#include "net/JsonText.h"
#include "support/LogRecorder.h"
#include "support/TestMain.h"

#include <QLoggingCategory>
#include <QScopeGuard>

#if defined(__GLIBC__)
#include <malloc.h>
#endif

namespace {

QByteArray json(const char *text)
{
    return QByteArray(text).replace('\'', '"');
}

QByteArray compact(const QByteArray &text)
{
    return parseJson(text).toJson(QJsonDocument::Compact);
}

// "['b', ...]" and the like, with the unit as often as told.
QByteArray repeated(const char *begin, const char *unit, int times, const char *end)
{
    return json(begin) + json(unit).repeated(times) + json(end);
}

} // namespace

class TestJsonText final : public QObject {
    Q_OBJECT

private slots:
    void reads_data()
    {
        // result is empty for what is no JSON.
        columns<QByteArray, QByteArray>("text", "result");
        const auto row = [](const char *name, const QByteArray &text, const char *result) {
            QTest::newRow(name) << text << json(result);
        };
        row("an array", json(" [ 1, {'a' : null} ] "), "[1,{'a':null}]");
        row("a repeated text", json("{'a':'1','a':'2'}"), "{'a':'2'}");
        row("one name in different objects", json("[{'a':[{'a':[]}]},{'a':[]}]"),
            "[{'a':[{'a':[]}]},{'a':[]}]");
        row("a repeated object", json("{'a':{'b':1},'c':2,'a':{'d':3}}"), "{'a':{'d':3},'c':2}");
        row("an array that a number replaces", json("{'a':[1],'b':{'a':[]},'a':2}"),
            "{'a':2,'b':{'a':[]}}");
        row("a number that an array replaces", json("{'a':1,'a':[2]}"), "{'a':[2]}");
        row("a NUL in a text", json("['x','a~b',{'a':'~'}]").replace('~', '\0'),
            "['x','a\\u0000b',{'a':'\\u0000'}]");
        row("thrice", json("{'a':{},'a':1,'b':0,'a':[3]}"), "{'a':[3],'b':0}");
        row("repeats inside what is replaced",
            json("[{'a':{'b':[],'b':{}},'a':{'b':[1],'b':[2]}}]"), "[{'a':{'b':[2]}}]");
        row("names that look like what separates",
            json("{'},':[],'[':1,'},':{'\\\\':[],'\\\\':0}}"), "{'[':1,'},':{'\\\\':0}}");
        row("one name in two spellings", json("{'x':'\\\\','a':1,'\\u0061':[],'z':0}"),
            "{'a':[],'x':'\\\\','z':0}");
        row("halves of two characters", json("{'\\ud800':{},'\\ud801':{}}"),
            "{'\\ud800':{},'\\ud801':{}}");
        row("names that differ behind an escaped NUL", json("{'a\\u0000b':[],'a\\u0000c':[]}"),
            "{'a\\u0000b':[],'a\\u0000c':[]}");
        row("a name of an inner object", json("{'a':{'b':[]},'b':0}"), "{'a':{'b':[]},'b':0}");
        row("a NUL in a name", json("{'a~b':{},'a~c':2}").replace('~', '\0'), "");
        row("an escape beyond ASCII", json("{'\\\xc3':[],'a':2}"), "");
        row("a replaced name that is broken", json("{'\\u006!':[],'a':1}"), "");
        row("no colon in what is replaced", json("{'a' [],'a':1}"), "");
        row("two commas behind what is replaced", json("{'a':[],,'a':1}"), "");
        row("broken inside what is replaced", json("{'a':{'b':},'a':1}"), "");
        row("broken between what is replaced", json("{'a':{} 'x','a':1}"), "");
        row("no value behind what is replaced", json("{'a':{},'a':}"), "");
        row("no end", json("{'a':{},'a':1"), "");
        row("a web page", "<html>", "");
        row("nothing", {}, "");
        row("nested too deep", QByteArray(10000, '[') + QByteArray(10000, ']'), "");
        row("more values than any node has", repeated("[", "[0],", 1000000, "0]"), "");
        row("hundreds of thousands of repeats", repeated("{", "'a':[],", 300000, "'a':0}"),
            "{'a':0}");
    }

    void reads()
    {
        QFETCH(const QByteArray, text);
        QTEST(compact(text), "result");
    }

    void keepsNothingOfRepeats_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::newRow("side by side") << repeated("{", "'a':[[[[[[]]]]]],", 12500, "'a':0}");
        QTest::newRow("inside each other")
            << repeated("[", "{'a':{'a':[[[[[[]]]]]],'a':1},'a':0},", 5500, "0]");
        QTest::newRow("a thousand levels down") << QByteArray(1017, '[') // 1,024 in all
                + repeated("{", "'a':[[[[[[]]]]]],", 12500, "'a':0}") + QByteArray(1017, ']');
        QTest::newRow("in other spellings")
            << repeated("[",
                        "{'\\u00e9\\u30AB\\ud83d\\ude00\\n\\\"':[[[[[[]]]]]],"
                        "'\xc3\xa9\xe3\x82\xab\xf0\x9f\x98\x80\\u000a\\\"':0},",
                        7000, "0]");
    }

    // Each text keeps megabytes each time that QJsonDocument sees it. With the address sanitizer it
    // is the leak check that finds them.
    void keepsNothingOfRepeats()
    {
        QFETCH(const QByteArray, text);
#if defined(__GLIBC__)
        parseJson(text);
        const auto before = ::mallinfo2().uordblks;
        parseJson(text);
        const auto after = ::mallinfo2().uordblks;
        QVERIFY2(after < before + 100000, qPrintable(QString::number(after - before)));
#else
        QVERIFY(!parseJson(text).isNull());
#endif
    }

    void saysThatItMetRepeats()
    {
        const LogRecorder log("nodepatch.json");
        const auto restore = qScopeGuard([] { QLoggingCategory::setFilterRules({}); });
        const QByteArray text = json("{'a':[],'a':1}");
        parseJson(text);
        QCOMPARE(log.lines().size(), 0);
        QLoggingCategory::setFilterRules(QStringLiteral("nodepatch.json.info=true"));
        parseJson(json("{'a':[],'b':[]}"));
        QCOMPARE(log.lines().size(), 0);
        parseJson(text);
        QCOMPARE(log.lines().size(), 1);
    }
};

NODEPATCH_TEST_MAIN(TestJsonText)
#include "tst_jsontext.moc"
