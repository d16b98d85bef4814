// The mDNS layer under load, under attack, and at its end.

#include "support/MdnsPacket.h"
#include "support/MdnsWatch.h"
#include "support/TestMain.h"

#include <qmdnsengine/resolver.h>

#include <QRandomGenerator>
#include <QSemaphore>
#include <QThread>

#include <sys/resource.h>

using namespace QMdnsEngine;
using Mdns::goodbye;
using Mdns::Packet;
using Mdns::service;

namespace {

// Eight new services sixty times a second, each of which says goodbye half a second later, until
// the object is destroyed. An engine that falls behind that never catches up by itself.
class Churn final {
public:
    Churn()
        : thread(QThread::create([this] {
            Mdns::Sender sender;
            for (int i = 0; !end.tryAcquire(1, 16); ++i) {
                Packet come;
                Packet go;
                for (const char *part : {" a", " b", " c", " d", " e", " f", " g", " h"}) {
                    come.with(service("churn " + QByteArray::number(i) + part));
                    go.with(
                        service("churn " + QByteArray::number(i - 30) + part, {"a=1"}, goodbye));
                }
                sender.send(come.bytes());
                sender.send(go.bytes());
                sent.release();
            }
        }))
    {
        thread->start();
    }
    ~Churn()
    {
        end.release();
        thread->wait();
    }
    Q_DISABLE_COPY_MOVE(Churn)

    QSemaphore sent;

private:
    QSemaphore end;
    std::unique_ptr<QThread> thread;
};

} // namespace

class TestMdnsLimits final : public QObject {
    Q_OBJECT

private slots:
    void hearsAllOfACrowd();
    void hearsAfterFallingBehind();
    void malformedNamesFindNothing_data();
    void malformedNamesFindNothing();
    void servesSideBySide();
    void endsInAnyOrder_data();
    void endsInAnyOrder();
    void saysThatItHasNoSockets();
    void survivesHostilePackets_data();
    void survivesHostilePackets();

private:
    Mdns::Sender sender;
};

void TestMdnsLimits::hearsAllOfACrowd()
{
    Server server;
    MdnsWatch watch(&server);
    constexpr int crowd = 300;
    for (int i = 0; i < crowd; ++i) {
        QVERIFY(sender.send(service("Cam " + QByteArray::number(i)).bytes()));
    }
    QTRY_COMPARE(watch.events.size(), crowd);
}

void TestMdnsLimits::hearsAfterFallingBehind()
{
    Server server;
    MdnsWatch watch(&server);
    Churn churn;
    QTRY_VERIFY(watch.events.size() > 60);
    churn.sent.acquire(churn.sent.available()
                       + 240); // the event loop stands still for four seconds
    QVERIFY(sender.send(service("late").bytes()));
    QTRY_VERIFY_WITH_TIMEOUT(watch.events.contains(QStringLiteral("+|late|cam1.local.|80|a=1")),
                             3000);
    const int heard = watch.events.filter(QLatin1String("+|churn")).size();
    QTRY_VERIFY_WITH_TIMEOUT(watch.events.filter(QLatin1String("+|churn")).size() >= heard + 120,
                             4000);
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
    Server server;
    MdnsWatch malformed(&server, name);
    Resolver resolver(&server, name);
    connect(&resolver, &Resolver::resolved, this, [] { QFAIL("resolved"); });
    MdnsWatch watch(&server);
    sender.send(service("Cam").bytes());
    QTRY_COMPARE(watch.events.size(), 1);
    QCOMPARE(malformed.events, QStringList());
}

void TestMdnsLimits::servesSideBySide()
{
    auto first = std::make_unique<Server>();
    Server second;
    MdnsWatch one(first.get());
    MdnsWatch two(&second);
    sender.send(service("Cam").bytes());
    QTRY_COMPARE(two.events.size(), 1);
    QTRY_COMPARE(one.events, two.events);
    first.reset();
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
        Server again;
        MdnsWatch watch(&again);
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
    Server server;
    QCOMPARE(setrlimit(RLIMIT_NOFILE, &before), 0);
    MdnsWatch watch(&server);
    Resolver resolver(&server, "cam1.local.");
    QSignalSpy errors(&server, &AbstractServer::error);
    QVERIFY(errors.wait());
    QCOMPARE(watch.events, QStringList());
}

void TestMdnsLimits::survivesHostilePackets_data()
{
    QTest::addColumn<QByteArrayList>("packets");
    const auto alias = [](const QByteArray &owner, const QByteArray &target) {
        return Mdns::alias(owner, target).bytes();
    };
    const QByteArray type = Mdns::nodeType;
    QTest::newRow("aliases in circles")
        << QByteArrayList{alias(type, type), alias(type, "b.local"), alias("b.local", type),
                          alias("cam1.local", "cam1.local"),
                          Mdns::amended(service("Cam").bytes(), 11, alias(type, type).mid(12))};

    QRandomGenerator random(5353);
    const QByteArray real = service("Cam").address("cam1.local", QStringLiteral("fe80::7")).bytes();
    QByteArrayList garbage;
    QByteArrayList mutants;
    for (int i = 0; i < 2000; ++i) {
        QByteArray bytes(random.bounded(600), '\0');
        for (char &byte : bytes) {
            byte = static_cast<char>(random.bounded(256));
        }
        // Half of them have the header of a response.
        garbage += i % 2 ? bytes : real.left(12) + bytes;
        QByteArray mutant = real;
        for (int change = random.bounded(1, 6); change > 0; --change) {
            mutant[random.bounded(2, mutant.size())] = static_cast<char>(random.bounded(256));
        }
        mutants += i % 4 ? mutant : mutant.left(random.bounded(mutant.size()));
    }
    QTest::newRow("random bytes") << garbage;
    QTest::newRow("damaged announcements") << mutants;
}

void TestMdnsLimits::survivesHostilePackets()
{
    QFETCH(const QByteArrayList, packets);
    Server server;
    MdnsWatch watch(&server);
    MdnsWatch all(&server, "_services._dns-sd._udp.local.");
    Resolver resolver(&server, "cam1.local.");
    for (const QByteArray &packet : packets) {
        sender.send(packet);
        QCoreApplication::processEvents();
    }
    sender.send(service("alive").bytes());
    QTRY_VERIFY(watch.events.contains(QStringLiteral("+|alive|cam1.local.|80|a=1")));
}

NODEPATCH_TEST_MAIN(TestMdnsLimits)
#include "tst_mdnslimits.moc"
