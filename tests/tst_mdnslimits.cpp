// The mDNS layer under load, with hostile packets, and during destruction.

#include "MdnsPacket.h"
#include "support/MdnsWatch.h"
#include "support/TestMain.h"

#include <qmdnsengine/resolver.h>

#include <QTimer>

#include <sys/resource.h>
#include <time.h>

using namespace QMdnsEngine;
using Mdns::goodbye;
using Mdns::Packet;
using Mdns::service;

namespace {

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
    void hearsAllOfACrowd()
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
    void hearsAfterFallingBehind()
    {
        MdnsWatch watch;
        int sent = 0;
        const auto churn = [&] {
            Packet come;
            Packet go;
            for (const char *part : {" a", " b", " c", " d", " e", " f", " g", " h"}) {
                come.with(service("churn " + QByteArray::number(sent) + part));
                go.with(service("churn " + QByteArray::number(sent - 30) + part, {"a=1"}, goodbye));
            }
            sender.send(come.bytes());
            sender.send(go.bytes());
            ++sent;
        };
        QTimer clock;
        connect(&clock, &QTimer::timeout, this, churn);
        clock.start(16);
        const auto heard = [&watch] {
            return watch.events.filter("+|churn"_s).size();
        };
        QTRY_VERIFY_WITH_TIMEOUT(heard() > 60, 30000);
        for (int i = 0; i < 240; ++i) { // four seconds, in which the event loop stands still
            churn();
        }
        QVERIFY(sender.send(service("late").bytes()));
        int end = sent + 300;
        QTRY_VERIFY_WITH_TIMEOUT(sent > end || watch.events.filter("+|late"_s).size() == 1, 60000);
        const int before = heard();
        end += 200;
        QTRY_VERIFY_WITH_TIMEOUT(sent > end || heard() >= before + 120, 60000);
        QVERIFY(sent <= end);
    }

    void hearsManyInSmallSteps()
    {
        MdnsWatch watch;
        std::vector<std::unique_ptr<Resolver>> resolvers;
        connect(watch.browser.get(), &Browser::serviceAdded, this, [&](const Service &found) {
            resolvers.push_back(std::make_unique<Resolver>(watch.server.get(), found.hostname()));
        });
        constexpr int count = 1000;
        int sent = 0;
        qint64 last = computed();
        qint64 longest = 0;
        QTimer clock;
        connect(&clock, &QTimer::timeout, this, [&] {
            longest = qMax(longest, computed() - last);
            for (int i = 0; i < 50 && sent < count; ++i, ++sent) {
                const QByteArray number = QByteArray::number(sent);
                const QByteArray name = Mdns::instance(number);
                const QByteArray host = "cam" + number + ".local";
                sender.send(
                    Mdns::pointer(number)
                        .target(name, host, 80)
                        .text(name, {"a=1"})
                        .address(host,
                                 QHostAddress(0x7f010000U + static_cast<quint32>(sent)).toString())
                        .bytes());
            }
            last = computed();
        });
        clock.start(20);
        QTRY_COMPARE_WITH_TIMEOUT(watch.events.size(), count, 60000);
        QVERIFY2(longest < 90, qPrintable(QString::number(longest)));
    }

    // Thousands of names, each of which is a pointer to a pointer to a pointer ...
    void isNotHeldUpByNames()
    {
        Packet packet;
        QByteArray pointers("\0", 1);
        for (quint32 at = 23; at < 0x3ff0; at += 2) {
            pointers += Mdns::bigEndian(0xc000 + (at == 23 ? at : at - 1), 2);
        }
        packet.add(QByteArray(1, '\0'), Mdns::Svcb, pointers);
        for (int i = 0; i < 3000; ++i) {
            packet.add("\xff\xf0", Mdns::Svcb, {});
        }
        MdnsWatch watch;
        const qint64 before = computed();
        for (int i = 0; i < 10; ++i) {
            QVERIFY(sender.send(packet.bytes()));
        }
        QTRY_VERIFY((sender.send(service("Cam").bytes()), watch.events.size() == 1));
        QVERIFY2(computed() < before + 1000, qPrintable(QString::number(computed() - before)));
    }

    void malformedNamesFindNothing_data()
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

    void malformedNamesFindNothing()
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

    void followsAThousandTypes()
    {
        MdnsWatch all("_services._dns-sd._udp.local.");
        const auto type = [](int i) -> QByteArray {
            return "_t" + QByteArray::number(i) + "._tcp.local";
        };
        for (int i = 0; i < 1100;) {
            Packet packet;
            for (const int end = i + 50; i < end; ++i) {
                packet.add(Mdns::name("_services._dns-sd._udp.local"), Mdns::Ptr,
                           Mdns::name(type(i)));
            }
            QVERIFY(sender.send(packet.bytes()));
        }
        const auto at = [&](const char *name, int i) {
            sender.send(service(name, {}, Mdns::hour, 80, type(i)).bytes());
        };
        // The type that lists the types is one of them.
        QTRY_VERIFY_WITH_TIMEOUT((at("in", 998), !all.events.isEmpty()), 30000);
        at("out", 999);
        at("in 2", 0);
        QTRY_COMPARE(all.events, QStringList({"+|in|cam1.local.|80"_s, "+|in 2|cam1.local.|80"_s}));
    }

    void servesSideBySide()
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

    void endsInAnyOrder_data()
    {
        QTest::addColumn<QString>("order");
        for (const char *order :
             {"server", "cache", "browser", "resolver", "server cache browser resolver",
              "resolver browser cache server", "cache server resolver browser"}) {
            QTest::newRow(order) << QString::fromLatin1(order);
        }
    }

    void endsInAnyOrder()
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
                            .address("cam1.local", "192.0.2.7"_s)
                            .address("cam1.local", "192.0.2.8"_s)
                            .bytes());
            QTRY_VERIFY(done || added == 2);
            MdnsWatch watch;
            sender.send(both("a=2", Mdns::hour));
            QTRY_COMPARE(watch.events.size(), 2);
            sender.send(both("a=2", goodbye));
            QTRY_VERIFY(done);
        }
    }

    void saysThatItHasNoSockets()
    {
        rlimit before{};
        QCOMPARE(getrlimit(RLIMIT_NOFILE, &before), 0);
        const rlimit none{0, before.rlim_max};
        QCOMPARE(setrlimit(RLIMIT_NOFILE, &none), 0);
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("^No mDNS on this machine"_s));
        MdnsWatch watch;
        QCOMPARE(setrlimit(RLIMIT_NOFILE, &before), 0);
        Resolver resolver(watch.server.get(), "cam1.local.");
        QSignalSpy errors(watch.server.get(), &AbstractServer::error);
        QVERIFY(errors.wait());
        QCOMPARE(watch.events, QStringList());
    }

private:
    Mdns::Sender sender;
};

NODEPATCH_TEST_MAIN(TestMdnsLimits)
#include "tst_mdnslimits.moc"
