// The server that asks on every interface, with an installed QMdnsEngine.

#include "EveryLinkServer.h"
#include "MdnsPacket.h"
#include "support/MdnsWatch.h"
#include "support/TestMain.h"

#include <qmdnsengine/dns.h>
#include <qmdnsengine/message.h>
#include <qmdnsengine/query.h>
#include <qmdnsengine/resolver.h>

#include <QElapsedTimer>
#include <QProcess>
#include <QRandomGenerator>

class TestEveryLink final : public QObject {
    Q_OBJECT

private slots:
    void asksOnEveryLink_data();
    void asksOnEveryLink();
    void hearsAfterAFlood_data();
    void hearsAfterAFlood();
};

void TestEveryLink::asksOnEveryLink_data()
{
    QTest::addColumn<QAbstractSocket::NetworkLayerProtocol>("protocol");
    QTest::addColumn<QStringList>("prefixes");
    QTest::addColumn<QString>("late");
    QTest::newRow("over IPv4") << QAbstractSocket::IPv4Protocol
                               << QStringList{QStringLiteral("192.0.2.1"),
                                              QStringLiteral("198.51.100.1")}
                               << QStringLiteral("203.0.113.1/24");
    QTest::newRow("over IPv6") << QAbstractSocket::IPv6Protocol
                               << QStringList{QStringLiteral("fe80::1"), QStringLiteral("fe80::2")}
                               << QStringLiteral("fe80::3/64");
}

void TestEveryLink::asksOnEveryLink()
{
    QFETCH(const QAbstractSocket::NetworkLayerProtocol, protocol);
    QFETCH(const QStringList, prefixes);
    QFETCH(const QString, late);
    const QByteArray type = "_nmos-node._tcp.local.";
    const QByteArray question = Mdns::question(Mdns::name("_nmos-node._tcp.local"), Mdns::Ptr);
    EveryLinkServer server;
    QMdnsEngine::Query query;
    query.setName(type);
    query.setType(QMdnsEngine::PTR);
    QMdnsEngine::Message message;
    message.addQuery(query);

    const auto isAsker = [&question](Mdns::Listener &listener, const QString &prefix) {
        const QStringList askers = listener.askers(question);
        return std::any_of(askers.begin(), askers.end(), [&prefix](const QString &asker) {
            return asker.section(QLatin1Char('%'), 0, 0) == prefix;
        });
    };
    Mdns::Listener listener(protocol);
    server.sendMessageToAll(message);
    for (const QString &prefix : prefixes) {
        QTRY_VERIFY(isAsker(listener, prefix));
    }

    // One that comes later, beside one that has no address.
    const auto ip = [](const QString &arguments) {
        return QProcess::execute(QStringLiteral("ip"), arguments.split(QLatin1Char(' '))) == 0;
    };
    QVERIFY(ip(QStringLiteral("link add late0 type veth peer name late1")));
    QVERIFY(ip(QStringLiteral("link set late0 addrgenmode none")));
    QVERIFY(ip(QStringLiteral("addr add %1 dev late0%2")
                   .arg(late, QLatin1String(late.contains(QLatin1Char(':')) ? " nodad" : ""))));
    QVERIFY(ip(QStringLiteral("link set late0 up")) && ip(QStringLiteral("link set late1 up")));
    Mdns::Listener lateListener(protocol);
    QTRY_VERIFY((server.sendMessageToAll(message),
                 isAsker(lateListener, late.section(QLatin1Char('/'), 0, 0))));
    QVERIFY(isAsker(lateListener, prefixes.last()));
    QVERIFY(ip(QStringLiteral("link del late0")));
}

void TestEveryLink::hearsAfterAFlood_data()
{
    QTest::addColumn<bool>("bare");
    QTest::addColumn<int>("kind");
    for (int k = 1; k < 2; ++k) {
    QTest::addRow("bare %d", k) << true << k;
    QTest::addRow("every %d", k) << false << k;
    }
}

void TestEveryLink::hearsAfterAFlood()
{
    QFETCH(bool, bare);
    QFETCH(int, kind);
    std::unique_ptr<QMdnsEngine::Server> server(bare ? new QMdnsEngine::Server : new EveryLinkServer);
    MdnsWatch watch("_nmos-node._tcp.local.", server.get());
    QRandomGenerator random(5353);
    Mdns::Sender sender;
    const QByteArray real = Mdns::service("Cam").address("cam1.local", QStringLiteral("fe80::7")).bytes();
    std::vector<std::unique_ptr<QMdnsEngine::Resolver>> resolvers;
    connect(watch.browser.get(), &QMdnsEngine::Browser::serviceAdded, this, [&](const QMdnsEngine::Service &s) { resolvers.push_back(std::make_unique<QMdnsEngine::Resolver>(server.get(), s.hostname(), &watch.cache)); });
    connect(watch.browser.get(), &QMdnsEngine::Browser::serviceUpdated, this, [&](const QMdnsEngine::Service &s) { resolvers.push_back(std::make_unique<QMdnsEngine::Resolver>(server.get(), s.hostname(), &watch.cache)); });
    QElapsedTimer clock; clock.start();
    for (int i = 0; i < 5000; ++i) {
        QByteArray bytes(random.bounded(600), '\0');
        for (char &byte : bytes) {
            byte = static_cast<char>(random.bounded(256));
        }
        if (kind == 0) {
            bytes = real.left(12) + bytes;
        } else if (kind == 1) {
        QByteArray mutant = real;
        for (int change = random.bounded(1, 6); change > 0; --change) {
            mutant[random.bounded(2, mutant.size())] = static_cast<char>(random.bounded(256));
        }
        bytes = mutant;
        } else {
            bytes = real.left(random.bounded(real.size()));
        }
        sender.send(bytes);
        QCoreApplication::processEvents();
    }
    qDebug() << "sent" << clock.restart() << watch.events.size();
    const QByteArray alive = Mdns::pointer("alive").target(Mdns::instance("alive"), "cam2.local", 80).text(Mdns::instance("alive"), {"a=1"}).bytes();
    int tries = 0;
    while (!watch.events.contains(QStringLiteral("+|alive|cam2.local.|80|a=1")) && tries < 40) {
        sender.send(alive);
        ++tries;
        QTest::qWait(500);
    }
    qDebug() << "heard after" << clock.elapsed() << tries << watch.events.size();
}

NODEPATCH_TEST_MAIN(TestEveryLink)
#include "tst_everylink.moc"
