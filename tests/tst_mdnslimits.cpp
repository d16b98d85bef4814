// The mDNS layer under load, with hostile packets, and during destruction.

#include "MdnsPacket.h"
#include "support/MdnsWatch.h"
#include "support/TestMain.h"

#include <qmdnsengine/resolver.h>

#include <QSemaphore>
#include <QThread>
#include <QTimer>

#include <atomic>

#include <sys/resource.h>
#include <time.h>

using namespace QMdnsEngine;
using Mdns::goodbye;
using Mdns::Packet;
using Mdns::service;

namespace {

// Sends what packets(i) returns, for i from 0 to count - 1, at that interval.
class Stream final {
public:
    Stream(int count, int milliseconds, const std::function<QByteArrayList(int)> &packets)
        : thread(QThread::create([this, count, milliseconds, packets] {
            Mdns::Sender sender;
            for (int i = 0; i < count && !end.tryAcquire(1, milliseconds); ++i) {
                const QByteArrayList batch = packets(i);
                for (const QByteArray &packet : batch) {
                    sender.send(packet);
                }
                sent.release();
            }
            ended = true;
        }))
    {
        thread->start();
    }
    ~Stream()
    {
        end.release();
        thread->wait();
    }
    Q_DISABLE_COPY_MOVE(Stream)

    QSemaphore sent;
    std::atomic<bool> ended{false};

private:
    QSemaphore end;
    std::unique_ptr<QThread> thread;
};

// The processor time of this thread, in milliseconds: what others do with the processor is no part
// of it.
qint64 computed()
{
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return time.tv_sec * 1000 + time.tv_nsec / 1000000;
}

} // namespace

class TestMdnsLimits final : public QObject {
    Q_OBJECT

private slots:
    void hearsAllOfACrowd();
    void hearsAfterFallingBehind();
    void hearsManyInSmallSteps();
    void malformedNamesFindNothing_data();
    void malformedNamesFindNothing();
    void servesSideBySide();
    void endsInAnyOrder_data();
    void endsInAnyOrder();
    void saysThatItHasNoSockets();

private:
    Mdns::Sender sender;
};

void TestMdnsLimits::hearsAllOfACrowd()
{
    MdnsWatch watch;
    constexpr int crowd = 300;
    for (int i = 0; i < crowd; ++i) {
        QVERIFY(sender.send(service("Cam " + QByteArray::number(i)).bytes()));
    }
    QTRY_COMPARE(watch.events.size(), crowd);
}

// Eight new services sixty times a second, each of which says goodbye half a second later. An
// engine that falls behind that never catches up by itself.
void TestMdnsLimits::hearsAfterFallingBehind()
{
    MdnsWatch watch;
    Stream churn(2400, 16, [](int i) {
        Packet come;
        Packet go;
        for (const char *part : {" a", " b", " c", " d", " e", " f", " g", " h"}) {
            come.with(service("churn " + QByteArray::number(i) + part));
            go.with(service("churn " + QByteArray::number(i - 30) + part, {"a=1"}, goodbye));
        }
        return QByteArrayList{come.bytes(), go.bytes()};
    });
    const auto heard = [&watch] {
        return watch.events.filter(QLatin1String("+|churn")).size();
    };
    QTRY_VERIFY(heard() > 60);
    churn.sent.acquire(churn.sent.available() + 240); // the loop stands still for four seconds
    QVERIFY(sender.send(service("late").bytes()));
    const QString late = QStringLiteral("+|late|cam1.local.|80|a=1");
    QTRY_VERIFY_WITH_TIMEOUT(churn.ended || watch.events.contains(late), 60000);
    const int before = heard();
    QTRY_VERIFY_WITH_TIMEOUT(churn.ended || heard() >= before + 120, 60000);
    QVERIFY(!churn.ended);
}

void TestMdnsLimits::hearsManyInSmallSteps()
{
    MdnsWatch watch;
    qint64 last = computed();
    qint64 longest = 0;
    QTimer turns;
    connect(&turns, &QTimer::timeout, this, [&] {
        longest = qMax(longest, computed() - last);
        last = computed();
    });
    turns.start(1);
    std::vector<std::unique_ptr<Resolver>> resolvers;
    Cache cache;
    connect(watch.browser.get(), &Browser::serviceAdded, this, [&](const Service &found) {
        resolvers.push_back(
            std::make_unique<Resolver>(watch.server.get(), found.hostname(), &cache));
    });
    constexpr int count = 1000;
    const Stream stream(count, 1, [](int i) {
        const QByteArray number = QByteArray::number(i);
        const QByteArray name = Mdns::instance("Cam " + number);
        const QByteArray host = "cam" + number + ".local";
        return QByteArrayList{
            Mdns::pointer("Cam " + number)
                .target(name, host, 80)
                .text(name, {"a=1"})
                .address(host, QHostAddress(0x7f010000U + static_cast<quint32>(i)).toString())
                .bytes()};
    });
    QTRY_COMPARE_WITH_TIMEOUT(watch.events.size(), count, 60000);
    QVERIFY2(longest < 150, qPrintable(QString::number(longest)));
}

void TestMdnsLimits::malformedNamesFindNothing_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::newRow("nothing") << QByteArray();
    QTest::newRow("the root") << QByteArray(".");
    QTest::newRow("empty labels") << QByteArray("_a..local.");
    QTest::newRow("one word") << QByteArray("foo");
    QTest::newRow("no trailing dot") << QByteArray(Mdns::nodeType);
    QTest::newRow("a long label") << '_' + QByteArray(300, 'x') + '.';
    QTest::newRow("many labels") << '_' + QByteArray("x.").repeated(400);
    QTest::newRow("UTF-8") << QByteArray("_\xc3\xa4\xf0\x9f\x8e\xa5._tcp.local.");
    QTest::newRow("a zero byte") << QByteArray("_nmos-node._tcp.local\0.", 23);
    QTest::newRow("an open escape") << QByteArray("_a\\.");
}

void TestMdnsLimits::malformedNamesFindNothing()
{
    QFETCH(const QByteArray, name);
    MdnsWatch malformed(name);
    Resolver resolver(malformed.server.get(), name);
    connect(&resolver, &Resolver::resolved, this, [] { QFAIL("resolved"); });
    MdnsWatch watch("_nmos-node._tcp.local.", malformed.server.get());
    sender.send(service("Cam").bytes());
    QTRY_COMPARE(watch.events.size(), 1);
    QCOMPARE(malformed.events, QStringList());
}

void TestMdnsLimits::servesSideBySide()
{
    MdnsWatch one;
    MdnsWatch two;
    sender.send(service("Cam").bytes());
    QTRY_COMPARE(two.events.size(), 1);
    QTRY_COMPARE(one.events, two.events);
    one.server.reset();
    sender.send(service("other").bytes());
    QTRY_COMPARE(two.events.size(), 2);
    QCOMPARE(one.events.size(), 1);
}

void TestMdnsLimits::endsInAnyOrder_data()
{
    QTest::addColumn<QString>("order");
    for (const char *order :
         {"server", "cache", "browser", "resolver", "server cache browser resolver",
          "resolver browser cache server", "cache server resolver browser"}) {
        QTest::newRow(order) << QString::fromLatin1(order);
    }
}

void TestMdnsLimits::endsInAnyOrder()
{
    QFETCH(const QString, order);
    // In every signal there is, with further events waiting in the queue.
    for (const char *signal : {"added", "updated", "removed", "resolved"}) {
        auto server = std::make_unique<Server>();
        auto cache = std::make_unique<Cache>();
        auto browser =
            std::make_unique<Browser>(server.get(), "_nmos-node._tcp.local.", cache.get());
        auto resolver = std::make_unique<Resolver>(server.get(), "cam1.local.", cache.get());
        bool done = false;
        int added = 0;
        const auto destroy = [&](const char *when) {
            if (done || qstrcmp(when, signal) != 0) {
                return;
            }
            done = true;
            const QStringList parts = order.split(QLatin1Char(' '));
            for (const QString &part : parts) {
                part == QLatin1String("server")        ? server.reset()
                    : part == QLatin1String("cache")   ? cache.reset()
                    : part == QLatin1String("browser") ? browser.reset()
                                                       : resolver.reset();
            }
        };
        connect(browser.get(), &Browser::serviceAdded, this, [&] {
            ++added;
            destroy("added");
        });
        connect(browser.get(), &Browser::serviceUpdated, this, [&] { destroy("updated"); });
        connect(browser.get(), &Browser::serviceRemoved, this, [&] { destroy("removed"); });
        connect(resolver.get(), &Resolver::resolved, this, [&] { destroy("resolved"); });
        const auto both = [](const QByteArray &text, quint32 ttl) {
            return service("Cam", {text}, ttl).with(service("other", {text}, ttl)).bytes();
        };
        sender.send(both("a=1", Mdns::hour));
        sender.send(Packet()
                        .address("cam1.local", QStringLiteral("192.0.2.7"))
                        .address("cam1.local", QStringLiteral("192.0.2.8"))
                        .bytes());
        QTRY_VERIFY(done || added == 2);
        MdnsWatch watch;
        sender.send(both("a=2", Mdns::hour));
        QTRY_COMPARE(watch.events.size(), 2);
        sender.send(both("a=2", goodbye));
        QTRY_VERIFY(done);
    }
}

void TestMdnsLimits::saysThatItHasNoSockets()
{
    rlimit before{};
    QCOMPARE(getrlimit(RLIMIT_NOFILE, &before), 0);
    const rlimit none{0, before.rlim_max};
    QCOMPARE(setrlimit(RLIMIT_NOFILE, &none), 0);
    QTest::ignoreMessage(QtWarningMsg,
                         QRegularExpression(QStringLiteral("^No mDNS on this machine")));
    MdnsWatch watch;
    QCOMPARE(setrlimit(RLIMIT_NOFILE, &before), 0);
    Resolver resolver(watch.server.get(), "cam1.local.");
    QSignalSpy errors(watch.server.get(), &AbstractServer::error);
    QVERIFY(errors.wait());
    QCOMPARE(watch.events, QStringList());
}

NODEPATCH_TEST_MAIN(TestMdnsLimits)
#include "tst_mdnslimits.moc"
