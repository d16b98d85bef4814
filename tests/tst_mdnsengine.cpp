#include "support/MdnsPacket.h"
#include "support/TestMain.h"

#include <qmdnsengine/browser.h>
#include <qmdnsengine/cache.h>
#include <qmdnsengine/resolver.h>
#include <qmdnsengine/server.h>
#include <qmdnsengine/service.h>

#include <QProcess>
#include <QRandomGenerator>
#include <QSemaphore>
#include <QThread>
#include <QTimer>

#include <sys/resource.h>

using namespace QMdnsEngine;
using Mdns::goodbye;
using Mdns::Packet;

namespace {

constexpr char type[] = "_nmos-node._tcp.local";
constexpr char typeWithDot[] = "_nmos-node._tcp.local.";

// What is announced and what the browser is to say of it, in this order.
struct Step {
    Packet packet;
    QStringList events;
};

QByteArray instance(const QByteArray &label, const QByteArray &ofType = type)
{
    return Mdns::label(label) + Mdns::name(ofType);
}

Packet pointer(const QByteArray &label, quint32 ttl = Mdns::hour, const QByteArray &ofType = type)
{
    return Packet().add(Mdns::name(ofType), Mdns::Ptr, instance(label, ofType), ttl);
}

Packet node(const QByteArray &label, const QByteArrayList &strings = {"a=1"},
            quint32 ttl = Mdns::hour)
{
    return pointer(label, ttl)
        .target(instance(label), "cam1.local", 80, ttl)
        .text(instance(label), strings, ttl);
}

QString described(const char *event, const Service &service)
{
    QByteArrayList parts{event, service.name(), service.hostname(),
                         QByteArray::number(service.port())};
    const auto attributes = service.attributes();
    for (auto it = attributes.cbegin(); it != attributes.cend(); ++it) {
        parts += it.value().isNull() ? it.key() : it.key() + '=' + it.value().toPercentEncoding();
    }
    return QString::fromUtf8(parts.join('|'));
}

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
                    come.with(node("churn " + QByteArray::number(i) + part));
                    go.with(node("churn " + QByteArray::number(i - 30) + part, {"a=1"}, goodbye));
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

// The response of node(), with something added that Avahi does not take, or must not be given.
QByteArray amended(const QByteArray &label, int countAt, const QByteArray &what)
{
    QByteArray packet = node(label).bytes();
    packet[countAt] = 1;
    return countAt == 5 ? packet.insert(12, what) : packet + what;
}

QByteArray aliasRecord(const QByteArray &owner, const QByteArray &target)
{
    return Packet().add(Mdns::name(owner), Mdns::CName, Mdns::name(target)).bytes().mid(12);
}

// A browser and what it said so far.
struct Watch {
    explicit Watch(Server *server, const QByteArray &ofType = typeWithDot)
        : browser(std::make_unique<Browser>(server, ofType, &cache))
    {
        QObject::connect(browser.get(), &Browser::serviceAdded, browser.get(),
                         [this](const Service &service) { events += described("+", service); });
        QObject::connect(browser.get(), &Browser::serviceUpdated, browser.get(),
                         [this](const Service &service) { events += described("~", service); });
        QObject::connect(browser.get(), &Browser::serviceRemoved, browser.get(),
                         [this](const Service &service) { events += described("-", service); });
    }

    Cache cache;
    QStringList events;
    std::unique_ptr<Browser> browser;
};

} // namespace

Q_DECLARE_METATYPE(Step)

class MdnsEngineTest : public QObject {
    Q_OBJECT

private slots:
    void services_data();
    void services();
    void neverReported_data();
    void neverReported();
    void serviceOfSeveralLinksIsOne();
    void asksOnTheLinkOfThePointer();
    void asksAgainEveryMinute();
    void linkThatLosesItsCable();
    void hearsAllOfACrowd();
    void hearsAfterFallingBehind();
    void everyType();
    void addresses();
    void malformedNamesFindNothing_data();
    void malformedNamesFindNothing();
    void enginesSideBySide();
    void destroyedInAnyOrder_data();
    void destroyedInAnyOrder();
    void withoutSockets();
    void hostilePackets_data();
    void hostilePackets();

private:
    Mdns::Sender sender;
};

void MdnsEngineTest::services_data()
{
    const QString added = QStringLiteral("+|Cam|cam1.local.|80|a=1");
    const QString removed = QStringLiteral("-|Cam|cam1.local.|80|a=1");
    const QByteArray cam = instance("Cam");
    QTest::addColumn<QVector<Step>>("steps");
    const auto row = [](const char *title, const QVector<Step> &steps) {
        QTest::newRow(title) << steps;
    };

    row("attributes that come along are in the first event", {{node("Cam"), {added}}});
    row("keys keep their case, the first of equal ones wins",
        {{node("Cam", {"B=x=%", "b=", "bare", "B=y", "=z", "", "nul=\xff"}),
          {QStringLiteral("+|Cam|cam1.local.|80|B=x%3D%25|b=|bare|nul=%FF")}}});
    row("a service without attributes is reported, and again when they come",
        {{pointer("Cam").target(cam, "cam1.local", 80), {QStringLiteral("+|Cam|cam1.local.|80")}},
         {Packet().text(cam, {"a=1"}), {QStringLiteral("~|Cam|cam1.local.|80|a=1")}}});
    row("a service is reported when its host is known",
        {{pointer("Cam"), {}},
         {Packet().target(cam, "cam1.local", 80).text(cam, {"a=1"}), {added}}});
    row("what one packet changes is one update",
        {{node("Cam"), {added}},
         {Packet().target(cam, "cam2.local", 81).text(cam, {"a=2"}),
          {QStringLiteral("~|Cam|cam2.local.|81|a=2")}},
         {node("other", {}, goodbye), {}},
         {pointer("Cam", goodbye), {QStringLiteral("-|Cam|cam2.local.|81|a=2")}}});
    row("an announcement that is repeated says nothing new",
        {{node("Cam"), {added}}, {node("Cam"), {}}, {node("CAM"), {}}});
    row("names are bytes",
        {{node("St. 1\\2 \xc3\xa4"), {QStringLiteral("+|St. 1\\2 ä|cam1.local.|80|a=1")}}});
    row("a service that says goodbye and comes back",
        {{node("Cam"), {added}},
         {node("Cam", {"a=1"}, goodbye), {removed}},
         {node("Cam"), {added}}});
    const QString brief = QStringLiteral("|brief|cam1.local.|80|a=1");
    // By the time it has expired, so has what was replaced when it came. Records are replaced that
    // are older than a second.
    const Packet expires = node("brief", {"a=1"}, 2);
    const QStringList cameAndWent{QLatin1Char('+') + brief, QLatin1Char('-') + brief};
    row("another weight takes nothing away",
        {{node("Cam"), {added}},
         {expires, cameAndWent},
         {Packet().target(cam, "cam1.local", 80, Mdns::hour, 1).with(expires), cameAndWent}});
    const QString both = QStringLiteral("|Cam|cam1.local.|80|a=1|b=1");
    row("another order of the attributes takes nothing away",
        {{node("Cam", {"a=1", "b=1"}), {QLatin1Char('+') + both}},
         {expires, cameAndWent},
         {Packet().text(cam, {"b=1", "a=1"}).with(expires), cameAndWent},
         {Packet().target(cam, "cam1.local", 80, goodbye), {QLatin1Char('-') + both}},
         {Packet().target(cam, "cam1.local", 80), {QLatin1Char('+') + both}}});
    row("records of other types do not matter",
        {{Packet()
              .add(cam, Mdns::Svcb, QByteArray(3, '\xff'))
              .add(Mdns::name(type), Mdns::Svcb, {})
              .with(node("Cam")),
          {added}}});
    row("a service whose host goes",
        {{node("Cam"), {added}},
         {Packet().target(cam, "cam1.local", 80, goodbye), {removed}},
         {Packet().target(cam, "cam1.local", 80).text(cam, {"a=1"}), {added}}});
}

void MdnsEngineTest::services()
{
    QFETCH(const QVector<Step>, steps);
    Server server;
    Watch watch(&server);
    QStringList expected;
    for (const Step &step : steps) {
        QVERIFY(sender.send(step.packet.bytes()));
        expected += step.events;
        QTRY_COMPARE(watch.events, expected);
    }
    // Nothing else comes until a later one has been seen.
    sender.send(node("end").bytes());
    expected += QStringLiteral("+|end|cam1.local.|80|a=1");
    QTRY_COMPARE(watch.events, expected);
}

void MdnsEngineTest::neverReported_data()
{
    QTest::addColumn<QByteArray>("packet");
    const QByteArray other = Packet().address("cam1.local", QStringLiteral("192.0.2.7")).bytes();
    QTest::newRow("a name that is not UTF-8") << node("Cam\xff").bytes();
    QTest::newRow("a name with a NUL") << node(QByteArray("Cam\0", 4)).bytes();
    QTest::newRow("a host that is not UTF-8")
        << pointer("Cam").target(instance("Cam"), "cam\xff.local", 80).bytes();
    QTest::newRow("a response with its question")
        << amended("Cam", 5, Mdns::question(Mdns::name(type), Mdns::Ptr));
    QTest::newRow("a response with authority records") << amended("Cam", 9, other.mid(12));
    QTest::newRow("a response with an alias")
        << amended("Cam", 11, aliasRecord("elsewhere.local", "cam1.local"));
}

void MdnsEngineTest::neverReported()
{
    QFETCH(const QByteArray, packet);
    Server server;
    Watch watch(&server);
    QVERIFY(sender.send(packet));
    sender.send(node("end").bytes());
    QTRY_COMPARE(watch.events, QStringList(QStringLiteral("+|end|cam1.local.|80|a=1")));
}

void MdnsEngineTest::asksOnTheLinkOfThePointer()
{
    Mdns::Listener ip4;
    Mdns::Listener ip6(QAbstractSocket::IPv6Protocol);
    Server server;
    Watch watch(&server);
    QVERIFY(sender.send(pointer("Cam").bytes()));
    // Both ends of the cable have it, over IPv4.
    const QByteArray cam = Mdns::label("Cam");
    QTRY_VERIFY(ip4.askers(cam).size() >= 2);
    QVERIFY(!ip4.askers(cam).contains(QStringLiteral("127.0.0.1")));
    QCOMPARE(ip6.askers(cam), QStringList());
}

void MdnsEngineTest::asksAgainEveryMinute()
{
    Mdns::Listener listener;
    Server server;
    Watch watch(&server);
    QVERIFY(sender.send(node("Cam").bytes()));
    QTRY_COMPARE(watch.events.size(), 1);
    auto *const minute = watch.browser->findChild<QTimer *>();
    QCOMPARE(minute->interval(), 60000);
    // Whatever stands before it in its packet may shorten the name.
    const QByteArray question = Mdns::question({}, Mdns::Ptr, Mdns::answeredToAsker);
    QCOMPARE(listener.askers(question), QStringList());
    connect(minute, &QTimer::timeout, this, [minute] { minute->start(60000); });
    int asked = 0;
    for (int times = 1; times <= 2; ++times) {
        minute->start(0);
        QTRY_VERIFY(listener.askers(question).size() > asked);
        // When this one has expired, the question has come to its end on every link.
        QVERIFY(sender.send(node("brief", {}, 2).bytes()));
        QTRY_COMPARE(watch.events.size(), 1 + 2 * times);
        asked = listener.askers(question).size();
        QVERIFY(asked <= 4 * times); // two ends of a cable, each of which hears the other, and lo
    }
    QVERIFY(sender.send(node("quiet").bytes()));
    QTRY_COMPARE(watch.events.size(), 6);
    QCOMPARE(watch.events.last(), QStringLiteral("+|quiet|cam1.local.|80|a=1"));
}

void MdnsEngineTest::linkThatLosesItsCable()
{
    const auto ip = [](const char *arguments) {
        return QProcess::execute(QStringLiteral("ip"),
                                 QString::fromLatin1(arguments).split(QLatin1Char(' ')))
            == 0;
    };
    QVERIFY(ip("link add cable0 type veth peer name cable1"));
    QVERIFY(ip("addr add 203.0.113.1/24 dev cable0"));
    QVERIFY(ip("link set cable0 up") && ip("link set cable1 up"));
    Server server;
    Watch watch(&server);
    const QString cable0 = QStringLiteral("cable0");
    const QString cam = QStringLiteral("|Cam|cam1.local.|80|a=1");
    QStringList expected{QLatin1Char('+') + cam};
    QVERIFY(sender.send(node("Cam").bytes(), cable0));
    QTRY_COMPARE(watch.events, expected);
    QVERIFY(ip("link set cable1 down"));
    expected += QLatin1Char('-') + cam;
    QTRY_COMPARE(watch.events, expected);
    Mdns::Listener listener;
    QVERIFY(ip("link set cable1 up"));
    const QByteArray question = Mdns::question(Mdns::name(type), Mdns::Ptr);
    QTRY_VERIFY(listener.askers(question).contains(QStringLiteral("203.0.113.1")));
    QVERIFY(sender.send(node("Cam").bytes(), cable0));
    expected += QLatin1Char('+') + cam;
    QTRY_COMPARE(watch.events, expected);
    QVERIFY(ip("link del cable0"));
}

void MdnsEngineTest::hearsAllOfACrowd()
{
    Server server;
    Watch watch(&server);
    constexpr int crowd = 300;
    for (int i = 0; i < crowd; ++i) {
        QVERIFY(sender.send(node("Cam " + QByteArray::number(i)).bytes()));
    }
    QTRY_COMPARE(watch.events.size(), crowd);
}

void MdnsEngineTest::hearsAfterFallingBehind()
{
    Server server;
    Watch watch(&server);
    Churn churn;
    QTRY_VERIFY(watch.events.size() > 60);
    churn.sent.acquire(churn.sent.available()
                       + 240); // the event loop stands still for four seconds
    QVERIFY(sender.send(node("late").bytes()));
    QTRY_VERIFY_WITH_TIMEOUT(watch.events.contains(QStringLiteral("+|late|cam1.local.|80|a=1")),
                             3000);
    const int heard = watch.events.filter(QLatin1String("+|churn")).size();
    QTRY_VERIFY_WITH_TIMEOUT(watch.events.filter(QLatin1String("+|churn")).size() >= heard + 120,
                             4000);
}

void MdnsEngineTest::serviceOfSeveralLinksIsOne()
{
    Server server;
    Watch watch(&server);
    const QString vx1 = QStringLiteral("vx1");
    const auto send = [&](const QByteArray &packet) {
        return sender.send(packet, vx1) && sender.send(packet, vx1, QAbstractSocket::IPv6Protocol);
    };
    QVERIFY(sender.send(node("Cam").bytes()) && send(node("Cam").bytes()));
    QVERIFY(sender.send(node("end").bytes()));
    const QString end = QStringLiteral("|end|cam1.local.|80|a=1");
    QStringList expected{QStringLiteral("+|Cam|cam1.local.|80|a=1"), QLatin1Char('+') + end};
    QTRY_COMPARE(watch.events, expected);

    QVERIFY(sender.send(node("Cam", {"a=1"}, goodbye).bytes()));
    QVERIFY(sender.send(node("end", {"a=1"}, goodbye).bytes()));
    expected += QLatin1Char('-') + end;
    QTRY_COMPARE(watch.events, expected);

    QVERIFY(send(node("Cam", {"a=1"}, goodbye).bytes()));
    expected += QStringLiteral("-|Cam|cam1.local.|80|a=1");
    QTRY_COMPARE(watch.events, expected);
}

void MdnsEngineTest::everyType()
{
    Server server;
    Watch all(&server, "_services._dns-sd._udp.local.");
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
    QCOMPARE(types,
             QStringList({QStringLiteral("_a._tcp.local."), QStringLiteral("_b._udp.local.")}));

    // Listed under a subtype as well, the service stays while its type has it.
    const QByteArray subtype = Mdns::name("_x._sub._a._tcp.local");
    const QByteArray cam = instance("Cam", "_a._tcp.local");
    QVERIFY(sender.send(Packet()
                            .add(Mdns::name("_services._dns-sd._udp.local"), Mdns::Ptr, subtype)
                            .add(subtype, Mdns::Ptr, cam)
                            .bytes()));
    Watch under(&server, "_x._sub._a._tcp.local.");
    QTRY_COMPARE(under.events.size(), 1);
    all.events.clear();
    QVERIFY(sender.send(Packet().add(subtype, Mdns::Ptr, cam, goodbye).bytes()));
    QTRY_COMPARE(under.events.size(), 2);
    QVERIFY(sender.send(pointer("Cam", goodbye, "_b._udp.local").bytes()));
    QTRY_VERIFY(!all.events.isEmpty());
    QCOMPARE(all.events, QStringList{QStringLiteral("-|Cam|cam1.local.|81")});
    QVERIFY(sender.send(pointer("Cam", goodbye, "_a._tcp.local").bytes()));
    QTRY_COMPARE(all.events.size(), 2);
}

void MdnsEngineTest::addresses()
{
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
    sender.send(Packet().address("Cam 1.local", QStringLiteral("fe80::7")).bytes());
    const QStringList all{QStringLiteral("192.0.2.7"), QStringLiteral("192.0.2.8"),
                          QStringLiteral("fd00::7"), QStringLiteral("fe80::7%vx0")};
    QTRY_COMPARE(seen.size(), all.size());
    const auto sorted = [](QStringList list) {
        list.sort();
        return list;
    };
    QCOMPARE(sorted(seen), all);
    seen.clear();
    const auto second = resolve();
    QCOMPARE(seen, QStringList());
    QTRY_COMPARE(sorted(seen), all);
}

void MdnsEngineTest::malformedNamesFindNothing_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::newRow("nothing") << QByteArray();
    QTest::newRow("the root") << QByteArray(".");
    QTest::newRow("empty labels") << QByteArray("_a..local.");
    QTest::newRow("one word") << QByteArray("foo");
    QTest::newRow("no trailing dot") << QByteArray(type);
    QTest::newRow("a long label") << '_' + QByteArray(300, 'x') + '.';
    QTest::newRow("many labels") << '_' + QByteArray("x.").repeated(400);
    QTest::newRow("UTF-8") << QByteArray("_\xc3\xa4\xf0\x9f\x8e\xa5._tcp.local.");
    QTest::newRow("a zero byte") << QByteArray("_nmos-node._tcp.local\0.", 23);
    QTest::newRow("an open escape") << QByteArray("_a\\.");
}

void MdnsEngineTest::malformedNamesFindNothing()
{
    QFETCH(const QByteArray, name);
    Server server;
    Watch malformed(&server, name);
    Resolver resolver(&server, name);
    connect(&resolver, &Resolver::resolved, this, [] { QFAIL("resolved"); });
    Watch watch(&server);
    sender.send(node("Cam").bytes());
    QTRY_COMPARE(watch.events.size(), 1);
    QCOMPARE(malformed.events, QStringList());
}

void MdnsEngineTest::enginesSideBySide()
{
    auto first = std::make_unique<Server>();
    Server second;
    Watch one(first.get());
    Watch two(&second);
    sender.send(node("Cam").bytes());
    QTRY_COMPARE(two.events.size(), 1);
    QTRY_COMPARE(one.events, two.events);
    first.reset();
    sender.send(node("other").bytes());
    QTRY_COMPARE(two.events.size(), 2);
    QCOMPARE(one.events.size(), 1);
}

void MdnsEngineTest::destroyedInAnyOrder_data()
{
    QTest::addColumn<QString>("order");
    for (const char *order :
         {"server", "cache", "browser", "resolver", "server cache browser resolver",
          "resolver browser cache server", "cache server resolver browser"}) {
        QTest::newRow(order) << QString::fromLatin1(order);
    }
}

void MdnsEngineTest::destroyedInAnyOrder()
{
    QFETCH(const QString, order);
    // In every signal there is, with further events waiting in the queue.
    for (const char *signal : {"added", "updated", "removed", "resolved"}) {
        auto server = std::make_unique<Server>();
        auto cache = std::make_unique<Cache>();
        auto browser = std::make_unique<Browser>(server.get(), typeWithDot, cache.get());
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
            return node("Cam", {text}, ttl).with(node("other", {text}, ttl)).bytes();
        };
        sender.send(both("a=1", Mdns::hour));
        sender.send(Packet()
                        .address("cam1.local", QStringLiteral("192.0.2.7"))
                        .address("cam1.local", QStringLiteral("192.0.2.8"))
                        .bytes());
        QTRY_VERIFY(done || added == 2);
        Server again;
        Watch watch(&again);
        sender.send(both("a=2", Mdns::hour));
        QTRY_COMPARE(watch.events.size(), 2);
        sender.send(both("a=2", goodbye));
        QTRY_VERIFY(done);
    }
}

void MdnsEngineTest::withoutSockets()
{
    rlimit before{};
    QCOMPARE(getrlimit(RLIMIT_NOFILE, &before), 0);
    const rlimit none{0, before.rlim_max};
    QCOMPARE(setrlimit(RLIMIT_NOFILE, &none), 0);
    QTest::ignoreMessage(QtWarningMsg,
                         QRegularExpression(QStringLiteral("^No mDNS on this machine")));
    Server server;
    QCOMPARE(setrlimit(RLIMIT_NOFILE, &before), 0);
    Watch watch(&server);
    Resolver resolver(&server, "cam1.local.");
    QSignalSpy errors(&server, &AbstractServer::error);
    QVERIFY(errors.wait());
    QCOMPARE(watch.events, QStringList());
}

void MdnsEngineTest::hostilePackets_data()
{
    QTest::addColumn<QByteArrayList>("packets");
    const auto alias = [](const QByteArray &owner, const QByteArray &target) -> QByteArray {
        return Packet().bytes().replace(6, 2, Mdns::bigEndian(1, 2)) + aliasRecord(owner, target);
    };
    QTest::newRow("aliases in circles") << QByteArrayList{
        alias(type, type), alias(type, "b.local"), alias("b.local", type),
        alias("cam1.local", "cam1.local"), amended("Cam", 11, aliasRecord(type, type))};

    QRandomGenerator random(5353);
    const QByteArray real = node("Cam").address("cam1.local", QStringLiteral("fe80::7")).bytes();
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

void MdnsEngineTest::hostilePackets()
{
    QFETCH(const QByteArrayList, packets);
    Server server;
    Watch watch(&server);
    Watch all(&server, "_services._dns-sd._udp.local.");
    Resolver resolver(&server, "cam1.local.");
    for (const QByteArray &packet : packets) {
        sender.send(packet);
        QCoreApplication::processEvents();
    }
    sender.send(node("alive").bytes());
    QTRY_VERIFY(watch.events.contains(QStringLiteral("+|alive|cam1.local.|80|a=1")));
}

NODEPATCH_TEST_MAIN(MdnsEngineTest)
#include "tst_mdnsengine.moc"
