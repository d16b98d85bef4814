// What the mDNS layer makes of the packets on the network, and what it asks.

#include "MdnsPacket.h"
#include "support/MdnsWatch.h"
#include "support/TestMain.h"

#include <qmdnsengine/resolver.h>

#include <QProcess>
#include <QTimer>

using namespace QMdnsEngine;
using Mdns::goodbye;
using Mdns::instance;
using Mdns::Packet;
using Mdns::pointer;
using Mdns::service;

namespace {

// What is announced and what the browser is to say of it, in this order.
struct Step {
    Packet packet;
    QStringList events;
};

} // namespace

Q_DECLARE_METATYPE(Step)

class TestMdnsEngine final : public QObject {
    Q_OBJECT

private slots:
    void reportsServices_data()
    {
        const QString added = "+|Cam|cam1.local.|80|a=1"_s;
        const QString removed = "-|Cam|cam1.local.|80|a=1"_s;
        const QByteArray cam = instance("Cam");
        QTest::addColumn<QVector<Step>>("steps");
        const auto row = [](const char *title, const QVector<Step> &steps) {
            QTest::newRow(title) << steps;
        };

        row("attributes that come along are in the first event", {{service("Cam"), {added}}});
        row("keys keep their case, the first of equal ones wins",
            {{service("Cam", {"B=x=%", "b=", "bare", "B=y", "=z", "", "nul=\xff"}),
              {"+|Cam|cam1.local.|80|B=x%3D%25|b=|bare|nul=%FF"_s}}});
        row("a service without attributes is reported, and again when they come",
            {{pointer("Cam").target(cam, "cam1.local", 80), {"+|Cam|cam1.local.|80"_s}},
             {Packet().text(cam, {"a=1"}), {"~|Cam|cam1.local.|80|a=1"_s}}});
        row("a service is reported when its host is known",
            {{pointer("Cam"), {}},
             {Packet().target(cam, "cam1.local", 80).text(cam, {"a=1"}), {added}}});
        row("what one packet changes is one update",
            {{service("Cam"), {added}},
             {Packet().target(cam, "cam2.local", 81).text("\xc0\x0c", {"a=2"}), // the same name
              {"~|Cam|cam2.local.|81|a=2"_s}},
             {service("other", {}, goodbye), {}},
             {pointer("Cam", goodbye), {"-|Cam|cam2.local.|81|a=2"_s}}});
        row("an announcement that is repeated says nothing new",
            {{service("Cam"), {added}}, {service("Cam"), {}}, {service("CAM"), {}}});
        row("names are bytes",
            {{service("St. 1\\2 \xc3\xa4"), {"+|St. 1\\2 ä|cam1.local.|80|a=1"_s}},
             {service("St. 1\\2 \xc3\xa4", {"a=2"}), {"~|St. 1\\2 ä|cam1.local.|80|a=2"_s}}});
        row("a service that says goodbye and comes back",
            {{service("Cam"), {added}},
             {service("Cam", {"a=1"}, goodbye), {removed}},
             {service("Cam"), {added}}});
        const QString brief = "|brief|cam1.local.|80|a=1"_s;
        // By the time it has expired, so has what was replaced when it came. Records are replaced
        // that are older than a second.
        const Packet expires = service("brief", {"a=1"}, 2);
        const QStringList cameAndWent{QLatin1Char('+') + brief, QLatin1Char('-') + brief};
        const auto ranked = [&cam](quint32 rank) {
            return Packet().target(cam, "cam1.local", 80, Mdns::hour, rank);
        };
        row("another weight or priority takes nothing away",
            {{service("Cam"), {added}},
             {expires, cameAndWent},
             {ranked(1).with(expires), cameAndWent},
             {ranked(0x10001).with(expires), cameAndWent}});
        const QString both = "|Cam|cam1.local.|80|a=1|b=1"_s;
        row("another order of the attributes takes nothing away",
            {{service("Cam", {"a=1", "b=1"}), {QLatin1Char('+') + both}},
             {expires, cameAndWent},
             {Packet().text(cam, {"b=1", "a=1"}).with(expires), cameAndWent},
             {Packet().target(cam, "cam1.local", 80, goodbye), {QLatin1Char('-') + both}},
             {Packet().target(cam, "cam1.local", 80), {QLatin1Char('+') + both}}});
        row("records of other types do not matter",
            {{Packet()
                  .add(cam, Mdns::Svcb, QByteArray(3, '\xff'))
                  .add(Mdns::name(Mdns::nodeType), Mdns::Svcb, {})
                  .with(service("Cam")),
              {added}}});
        row("a service whose host goes",
            {{service("Cam"), {added}},
             {Packet().target(cam, "cam1.local", 80, goodbye).text(cam, {"a=1"}, goodbye),
              {removed}},
             {Packet().target(cam, "cam1.local", 80), {"+|Cam|cam1.local.|80"_s}}});
        row("a host with a dot in its label",
            {{pointer("Cam").add(cam, Mdns::Srv,
                                 Mdns::bigEndian(0, 4) + Mdns::bigEndian(80, 2)
                                     + Mdns::label("cam.1") + Mdns::name("local")),
              {"+|Cam|cam\\.1.local.|80"_s}}});
    }

    void reportsServices()
    {
        QFETCH(const QVector<Step>, steps);
        MdnsWatch watch;
        QStringList expected;
        for (const Step &step : steps) {
            QVERIFY(sender.send(step.packet.bytes()));
            expected += step.events;
            QTRY_COMPARE(watch.events, expected);
        }
        // Nothing else comes until a later one has been seen.
        sender.send(service("end").bytes());
        expected += "+|end|cam1.local.|80|a=1"_s;
        QTRY_COMPARE(watch.events, expected);
    }

    void neverReports_data()
    {
        QTest::addColumn<QByteArray>("packet");
        const auto row = [](const char *title, const QByteArray &packet) {
            QTest::newRow(title) << packet;
        };
        const auto at = [](const QByteArray &host) {
            return pointer("Cam").target(instance("Cam"), host, 80).bytes();
        };
        const QByteArray cam = service("Cam").bytes();
        const QByteArray alias = Mdns::alias("elsewhere.local", "cam1.local").bytes().mid(12);
        row("a name that is not UTF-8", service("Cam\xff").bytes());
        row("a name with a NUL", service(QByteArray("Cam\0", 4)).bytes());
        row("a host that is not UTF-8", at("cam\xff.local"));
        row("a host with a NUL", at(QByteArray("cam\0.local", 10)));
        row("a response with its question",
            Mdns::amended(cam, 5, Mdns::question(Mdns::name(Mdns::nodeType), Mdns::Ptr)));
        row("a response with authority records",
            Mdns::amended(cam, 9, pointer("other").bytes().mid(12)));
        QByteArray additional = cam;
        additional[11] = additional.at(7);
        additional[7] = 0;
        row("a response of additional records", additional);
        row("a response with an alias", Mdns::amended(cam, 11, alias));
        row("a response that breaks off", Mdns::amended(cam, 11, {}));
    }

    void neverReports()
    {
        QFETCH(const QByteArray, packet);
        MdnsWatch watch;
        QVERIFY(sender.send(packet));
        sender.send(service("end").bytes());
        QTRY_COMPARE(watch.events, QStringList("+|end|cam1.local.|80|a=1"_s));
    }

    void makesOneServiceOfSeveralLinks()
    {
        MdnsWatch watch;
        const auto sendByIp6 = [this](const Packet &packet) {
            return sender.send(packet.bytes(), "vx1"_s, QAbstractSocket::IPv6Protocol);
        };
        QVERIFY(sender.send(service("Cam").bytes()));
        QStringList expected{"+|Cam|cam1.local.|80|a=1"_s};
        QTRY_COMPARE(watch.events, expected);
        QVERIFY(sendByIp6(service("Cam", {"a=2"}, Mdns::hour, 81)));
        expected += "~|Cam|cam1.local.|81|a=2"_s;
        QTRY_COMPARE(watch.events, expected);
        // What a link says counts no longer than the service is listed there.
        QVERIFY(sendByIp6(pointer("Cam", goodbye)));
        expected += "~|Cam|cam1.local.|80|a=1"_s;
        QTRY_COMPARE(watch.events, expected);
        // Several that come at once replace each other in that order.
        QVERIFY(sender.send(service("Cam", {"a=2"}).bytes()));
        QVERIFY(sender.send(service("Cam", {"a=3"}).bytes()));
        QTRY_COMPARE(watch.events.last(), "~|Cam|cam1.local.|80|a=3"_s);
        QVERIFY(sender.send(service("Cam", {"a=1"}, goodbye).bytes()));
        QTRY_COMPARE(watch.events.last(), "-|Cam|cam1.local.|80|a=3"_s);
    }

    void asksOnTheLinkOfThePointer()
    {
        Mdns::Listener ip4;
        Mdns::Listener ip6(QAbstractSocket::IPv6Protocol);
        MdnsWatch watch;
        QVERIFY(sender.send(pointer("Cam").bytes()));
        // Both ends of the cable have it, over IPv4.
        const auto onlyThere = [&](const QByteArray &question) {
            QTRY_VERIFY(ip4.askers(question).size() >= 2);
            QVERIFY(!ip4.askers(question).contains("127.0.0.1"_s));
            QCOMPARE(ip6.askers(question), QStringList());
        };
        onlyThere(Mdns::label("Cam"));
        QVERIFY(sender.send(service("Cam").bytes()));
        QTRY_COMPARE(watch.events.size(), 1);
        const Resolver resolver(watch.server.get(), "CAM1.local.", &watch.cache);
        const QByteArray address = Mdns::label("CAM1");
        onlyThere(address);
        // A link where it is seen later is asked, too.
        sender.send(pointer("Cam").bytes(), "vx0"_s, QAbstractSocket::IPv6Protocol);
        QTRY_VERIFY(!ip6.askers(address).isEmpty());
    }

    void asksOnlyForWhatIsMissing()
    {
        Mdns::Listener listener;
        MdnsWatch watch;
        const auto asked = [&listener](const QByteArray &name) {
            return listener.askers(Mdns::label(name) + Mdns::name(Mdns::nodeType)).size();
        };
        QVERIFY(sender.send(pointer("Cam")
                                .target(instance("Cam"), "cam2.local", 80)
                                .text(instance("Cam"), {})
                                .address("cam2.local", "192.0.2.7"_s)
                                .address("cam2.local", "fd00::7"_s)
                                .bytes()));
        const QByteArray name = instance("brief");
        const Packet brief = Packet().target(name, "cam1.local", 80, 12).text(name, {"a=1"}, 12);
        QVERIFY(sender.send(pointer("brief").with(brief).bytes()));
        QTRY_COMPARE(watch.events.size(), 2);
        const Resolver resolver(watch.server.get(), "cam2.local.", &watch.cache);
        const Resolver unanswered(watch.server.get(), "cam1.local.", &watch.cache);
        // What is there is asked for before it expires, and stays when somebody answers. It lives
        // no longer for what is said on another link.
        QTimer other;
        connect(&other, &QTimer::timeout, this,
                [&] { sender.send(brief.bytes(), "vx1"_s, QAbstractSocket::IPv6Protocol); });
        other.start(500);
        QTRY_VERIFY_WITH_TIMEOUT(asked("brief") > 0, 30000);
        other.stop();
        QCOMPARE(watch.events.size(), 2);
        QVERIFY(sender.send(brief.bytes()));
        QVERIFY(sender.send(service("end", {}, 2).bytes()));
        QTRY_COMPARE(watch.events.size(), 4);
        QCOMPARE(watch.events.last(), "-|end|cam1.local.|80"_s);
        // It goes on asking for what nobody answers.
        const QByteArray cam1 = Mdns::question(Mdns::name("cam1.local"), Mdns::A);
        const int soFar = listener.askers(cam1).size();
        const int before = asked("brief");
        QTRY_VERIFY(listener.askers(cam1).size() > soFar);
        QCOMPARE(asked("brief"), before);
        QCOMPARE(asked("Cam"), 0);
        QVERIFY(listener.askers(Mdns::label("cam2")).isEmpty());
    }

    void asksAgain()
    {
        MdnsWatch watch;
        const auto ip6 = QAbstractSocket::IPv6Protocol;
        QVERIFY(sender.send(service("Cam").bytes()));
        QVERIFY(sender.send(service("Cam 6").bytes(), "vx0"_s, ip6));
        QTRY_COMPARE(watch.events.size(), 2);
        auto *const timer = watch.browser->findChild<QTimer *>();
        QCOMPARE(timer->interval(), 60000);
        // Avahi's own questions have the pointers that are known behind them.
        const QByteArray packet = QByteArray("\0\0\0\0\0\1\0\0\0\0\0\0", 12)
            + Mdns::question(Mdns::name(Mdns::nodeType), Mdns::Ptr);
        Mdns::Listener byIp4;
        Mdns::Listener byIp6(ip6);
        QList<int> intervals;
        const auto ask = [&] {
            QVERIFY(QMetaObject::invokeMethod(timer, "timeout"));
            intervals += timer->interval();
        };
        ask();
        for (const char *link : {"192.0.2.1", "198.51.100.1"}) {
            QTRY_VERIFY2(byIp4.askers(packet).contains(QLatin1String(link)), link);
        }
        for (const char *link : {"fe80::1%vx0", "fe80::2%vx1"}) {
            QTRY_VERIFY2(byIp6.askers(packet).contains(QLatin1String(link)), link);
        }
        ask();
        ask();
        ask();
        QVERIFY(sender.send(service("quiet").bytes()));
        QTRY_COMPARE(watch.events.size(), 3);
        ask();
        QCOMPARE(intervals, QList<int>({60000, 120000, 240000, 240000, 60000}));
    }

    void followsTheCable()
    {
        const auto ip = [](const char *arguments) {
            return QProcess::execute("ip"_s, QString::fromLatin1(arguments).split(QLatin1Char(' ')))
                == 0;
        };
        QVERIFY(ip("link add cable0 type veth peer name cable1"));
        QVERIFY(ip("addr add 203.0.113.1/24 dev cable0"));
        QVERIFY(ip("link set cable0 up") && ip("link set cable1 up"));
        Mdns::Listener listener;
        const QByteArray question = Mdns::question(Mdns::name(Mdns::nodeType), Mdns::Ptr);
        const auto asked = [&listener, &question] {
            return listener.askers(question).count("203.0.113.1"_s);
        };
        MdnsWatch watch;
        const QString cable0 = "cable0"_s;
        const QString cam = "|Cam|cam1.local.|80|a=1"_s;
        QStringList expected{QLatin1Char('+') + cam};
        QTRY_VERIFY(asked() > 0);
        QVERIFY(sender.send(service("Cam").bytes(), cable0));
        QTRY_COMPARE(watch.events, expected);
        QVERIFY(ip("link set cable1 down"));
        expected += QLatin1Char('-') + cam;
        QTRY_COMPARE(watch.events, expected);
        const int before = asked();
        QVERIFY(ip("link set cable1 up"));
        QTRY_VERIFY(asked() > before);
        QVERIFY(sender.send(service("Cam").bytes(), cable0));
        expected += QLatin1Char('+') + cam;
        QTRY_COMPARE(watch.events, expected);
        QVERIFY(ip("link del cable0"));
    }

    void listsServicesOfEveryType()
    {
        MdnsWatch all("_services._DNS-SD._udp.local.");
        quint16 port = 80;
        for (const char *other : {"_a._tcp.local", "_b._udp.local"}) {
            const QByteArray name = instance("Cam", other);
            QVERIFY(sender.send(
                pointer("Cam", Mdns::hour, other)
                    .target(name, "cam1.local", port++)
                    .add(Mdns::name("_services._dns-sd._udp.local"), Mdns::Ptr, Mdns::name(other))
                    .bytes()));
        }
        QStringList types;
        connect(all.browser.get(), &Browser::serviceAdded, this,
                [&](const Service &service) { types += QString::fromUtf8(service.type()); });
        QTRY_COMPARE(types.size(), 2);
        types.sort();
        QCOMPARE(types, QStringList({"_a._tcp.local."_s, "_b._udp.local."_s}));

        // Listed under a subtype as well, the service stays while its type has it.
        const QByteArray subtype = Mdns::name("_x._sub._a._tcp.local");
        const QByteArray cam = instance("Cam", "_a._tcp.local");
        QVERIFY(sender.send(Packet()
                                .add(Mdns::name("_services._dns-sd._udp.local"), Mdns::Ptr, subtype)
                                .add(subtype, Mdns::Ptr, cam)
                                .bytes()));
        MdnsWatch under("_x._sub._a._tcp.local.", all.server.get());
        QTRY_COMPARE(under.events.size(), 1);
        all.events.clear();
        QVERIFY(sender.send(Packet().add(subtype, Mdns::Ptr, cam, goodbye).bytes()));
        QTRY_COMPARE(under.events.size(), 2);
        QVERIFY(sender.send(pointer("Cam", goodbye, "_b._udp.local").bytes()));
        QTRY_VERIFY(!all.events.isEmpty());
        QCOMPARE(all.events, QStringList{"-|Cam|cam1.local.|81"_s});
        QVERIFY(sender.send(pointer("Cam", goodbye, "_a._tcp.local").bytes()));
        QTRY_COMPARE(all.events.size(), 2);
    }

    void findsAllAddressesOnAllLinks()
    {
        Mdns::Listener listener;
        Server server;
        QStringList seen;
        const auto resolve = [&] {
            auto resolver = std::make_unique<Resolver>(&server, "Cam 1.local.");
            connect(resolver.get(), &Resolver::resolved, this,
                    [&](const QHostAddress &address) { seen += address.toString(); });
            return resolver;
        };
        const auto first = resolve();
        for (const char *link : {"vx0", "vx1"}) {
            for (const char *ip : {"192.0.2.7", "192.0.2.8", "fd00::7", "192.0.2.7"}) {
                // One packet each: several in one would replace each other only after a second.
                QVERIFY(sender.send(Packet().address("cam 1.local", QLatin1String(ip)).bytes(),
                                    QLatin1String(link)));
            }
        }
        sender.send(Packet().address("Cam 1.local", "fe80::7"_s).bytes());
        const QStringList all{"192.0.2.7"_s, "192.0.2.8"_s, "fd00::7"_s, "fe80::7%vx0"_s};
        QTRY_COMPARE(seen.size(), all.size());
        const auto sorted = [](QStringList list) {
            list.sort();
            return list;
        };
        QCOMPARE(sorted(seen), all);
        const QByteArray question = Mdns::question(Mdns::name("Cam 1.local"), Mdns::A);
        for (const char *link : {"127.0.0.1", "192.0.2.1", "198.51.100.1"}) {
            QTRY_VERIFY2(listener.askers(question).contains(QLatin1String(link)), link);
        }
        seen.clear();
        const auto second = resolve();
        QCOMPARE(seen, QStringList());
        QTRY_COMPARE(sorted(seen), all);
    }

private:
    Mdns::Sender sender;
};

NODEPATCH_TEST_MAIN(TestMdnsEngine)
#include "tst_mdnsengine.moc"
