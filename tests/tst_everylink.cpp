// The server that asks on every interface, with an installed QMdnsEngine.

#include "DistinctResolver.h"
#include "EveryLinkServer.h"
#include "MdnsPacket.h"
#include "support/MdnsWatch.h"
#include "support/TestMain.h"

#include <qmdnsengine/dns.h>
#include <qmdnsengine/message.h>
#include <qmdnsengine/query.h>

#include <QProcess>

class TestEveryLink final : public QObject {
    Q_OBJECT

private slots:
    void asksOnEveryLink_data()
    {
        QTest::addColumn<QAbstractSocket::NetworkLayerProtocol>("protocol");
        QTest::addColumn<QStringList>("prefixes");
        QTest::addColumn<QString>("late");
        QTest::newRow("over IPv4")
            << QAbstractSocket::IPv4Protocol << QStringList{"192.0.2.1"_s, "198.51.100.1"_s}
            << "203.0.113.1/24"_s;
        QTest::newRow("over IPv6") << QAbstractSocket::IPv6Protocol
                                   << QStringList{"fe80::1"_s, "fe80::2"_s} << "fe80::3/64"_s;
    }

    void asksOnEveryLink()
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
            return QProcess::execute("ip"_s, arguments.split(QLatin1Char(' '))) == 0;
        };
        QVERIFY(ip("link add late0 type veth peer name late1"_s));
        QVERIFY(ip("link set late0 addrgenmode none"_s));
        QVERIFY(ip("addr add %1 dev late0%2"_s.arg(
            late, QLatin1String(late.contains(QLatin1Char(':')) ? " nodad" : ""))));
        QVERIFY(ip("link set late0 up"_s) && ip("link set late1 up"_s));
        Mdns::Listener lateListener(protocol);
        QTRY_VERIFY((server.sendMessageToAll(message),
                     isAsker(lateListener, late.section(QLatin1Char('/'), 0, 0))));
        QVERIFY(isAsker(lateListener, prefixes.last()));
        QVERIFY(ip("link del late0"_s));
    }

    // Which of the sockets on the port gets it is the system's choice.
    void hearsAnswersToItAlone()
    {
        EveryLinkServer server;
        const MdnsWatch watch("_nmos-node._tcp.local.", &server);
        constexpr int count = 16;
        for (int i = 0; i < count; ++i) {
            QUdpSocket node;
            const QByteArray packet = Mdns::service("Cam " + QByteArray::number(i)).bytes();
            QVERIFY(node.writeDatagram(
                        packet,
                        QHostAddress(i % 2 ? QHostAddress::LocalHost : QHostAddress::LocalHostIPv6),
                        5353)
                    > 0);
        }
        QTRY_COMPARE(watch.events.size(), count);
    }

    void resolvesAnAddressOnce()
    {
        EveryLinkServer server;
        MdnsWatch watch("_nmos-node._tcp.local.", &server);
        Mdns::Sender sender;
        const QString first = "192.0.2.7"_s;
        const QString second = "192.0.2.8"_s;
        QVERIFY(sender.send(Mdns::service("Cam").address("cam1.local", first).bytes()));
        QTRY_COMPARE(watch.events.size(), 1);
        const DistinctResolver resolver(&server, "cam1.local.", &watch.cache);
        QStringList seen;
        connect(&resolver, &DistinctResolver::resolved, this,
                [&seen](const QHostAddress &address) { seen += address.toString(); });
        QTRY_COMPARE(seen, QStringList(first));
        QVERIFY(sender.send(Mdns::Packet().address("cam1.local", first).bytes()));
        QVERIFY(sender.send(Mdns::Packet().address("cam1.local", second).bytes()));
        QTRY_COMPARE(seen, QStringList({first, second}));
    }
};

NODEPATCH_TEST_MAIN(TestEveryLink)
#include "tst_everylink.moc"
