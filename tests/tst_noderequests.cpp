// What the client and discovery put on the wire when they ask a node, and what they keep off it.

#include "discovery/NMOSMdnsBrowser.h"
#include "nmos/NmosClient.h"
#include "support/Certificate.h"
#include "support/LogRecorder.h"
#include "MdnsPacket.h"
#include "support/RawServer.h"
#include "support/TestMain.h"

#include <QLoggingCategory>
#include <QScopeGuard>

namespace {

QString stagedPath(const char *id)
{
    return QStringLiteral("/x-nmos/connection/v1.1/single/receivers/%1/staged")
        .arg(QLatin1String(id));
}

} // namespace

class TestNodeRequests final : public QObject {
    Q_OBJECT

private slots:
    void asksOverTls();
    void asksDirectly_data();
    void asksDirectly();
    void leavesTheZoneOutOfTheHostHeader_data();
    void leavesTheZoneOutOfTheHostHeader();
    void keepsNoCookies_data();
    void keepsNoCookies();
    void answersNoChallenge_data();
    void answersNoChallenge();
    void keepsIdsInTheirSegment_data();
    void keepsIdsInTheirSegment();
    void keepsVersionsInTheirSegment_data();
    void keepsVersionsInTheirSegment();
    void logsRefusedPatches();

private:
    void addAskers();
    void ask(const RawServer &node);
    void announce(const RawServer &node, const QByteArrayList &attributes = {});

    Mdns::Sender sender;
};

void TestNodeRequests::addAskers()
{
    QTest::addColumn<bool>("byDiscovery");
    QTest::newRow("the client") << false;
    QTest::newRow("discovery") << true;
}

void TestNodeRequests::announce(const RawServer &node, const QByteArrayList &attributes)
{
    QHostAddress address = node.serverAddress();
    address.setScopeId({});
    QVERIFY(sender.send(Mdns::service("Cam 1", attributes, Mdns::hour, node.serverPort())
                            .address("cam1.local", address.toString())
                            .bytes()));
}

// One exchange with the node, whatever comes of it.
void TestNodeRequests::ask(const RawServer &node)
{
    QFETCH(const bool, byDiscovery);
    if (!byDiscovery) {
        NmosClient().hasSenders(node.host());
        return;
    }
    NMOSMdnsBrowser browser;
    QSignalSpy ready(&browser, &NMOSMdnsBrowser::nodeSelfReady);
    browser.start();
    announce(node);
    QTRY_VERIFY(!ready.isEmpty());
}

void TestNodeRequests::asksOverTls()
{
    const Certificate certificate;
    QVERIFY2(!certificate.chain.isEmpty(), "the openssl command is needed");
    RawServer node(httpAnswer("v=0"));
    node.tls = certificate.server;
    QString sdp;
    const NmosClient::SenderLookup lookup{{}, {}, QStringLiteral("https://%1/sdp").arg(node.host()),
                                          {}, {}, {}};
    QVERIFY(!NmosClient().fetchSenderSdp(lookup, &sdp));
    certificate.trust();
    QVERIFY(NmosClient().fetchSenderSdp(lookup, &sdp));
    QCOMPARE(sdp, QStringLiteral("v=0"));

    NMOSMdnsBrowser browser;
    QSignalSpy ready(&browser, &NMOSMdnsBrowser::nodeSelfReady);
    browser.start();
    announce(node, {"api_proto=https"});
    QTRY_COMPARE(ready.size(), 1);
    QCOMPARE(
        node.requestLines(),
        QStringList({QStringLiteral("GET /sdp"), QStringLiteral("GET /x-nmos/node/v1.3/self")}));
}

void TestNodeRequests::asksDirectly_data()
{
    addAskers();
}

void TestNodeRequests::asksDirectly()
{
    const RawServer proxy(httpAnswer("[]", "502 Bad Gateway"));
    const RawServer node(httpAnswer("[]"), QHostAddress(QStringLiteral("192.0.2.1")));
    const auto variables = {"http_proxy", "HTTP_PROXY", "all_proxy", "ALL_PROXY"};
    for (const char *variable : variables) {
        qputenv(variable, "http://" + proxy.host().toLatin1());
    }
    const auto restore = qScopeGuard([&variables] {
        for (const char *variable : variables) {
            qunsetenv(variable);
        }
    });
    ask(node);
    QCOMPARE(node.requests.size(), 1);
    QCOMPARE(proxy.connections, 0);
}

void TestNodeRequests::leavesTheZoneOutOfTheHostHeader_data()
{
    QTest::addColumn<bool>("byDiscovery");
    QTest::newRow("the client") << false;
#ifdef NODEPATCH_MDNS_LAYER // an installed QMdnsEngine finds addresses without their zones
    QTest::newRow("discovery") << true;
#endif
}

void TestNodeRequests::leavesTheZoneOutOfTheHostHeader()
{
    const RawServer node(httpAnswer("[]"), QHostAddress(QStringLiteral("fe80::1%vx0")));
    if (!node.isListening()) {
        QSKIP("this machine has no such address");
    }
    ask(node);
    QCOMPARE(node.requests.size(), 1);
    const QByteArray host = "\r\nHost: [fe80::1]:" + QByteArray::number(node.serverPort()) + "\r\n";
    QVERIFY2(node.requests.first().contains(host), node.requests.first().constData());
}

void TestNodeRequests::keepsNoCookies_data()
{
    addAskers();
}

void TestNodeRequests::keepsNoCookies()
{
    const RawServer node(httpAnswer("[]", "200 OK\r\nSet-Cookie: a=b; Path=/"),
                         QHostAddress(QStringLiteral("192.0.2.1")));
    QFETCH(const bool, byDiscovery);
    if (byDiscovery) {
        NMOSMdnsBrowser browser;
        QSignalSpy ready(&browser, &NMOSMdnsBrowser::nodeSelfReady);
        browser.start();
        announce(node);
        QTRY_COMPARE(ready.size(), 1);
        announce(node, {"api_ver=v1.2"});
        QTRY_VERIFY(ready.size() >= 2);
    } else {
        NmosClient client;
        client.hasSenders(node.host());
        client.hasSenders(node.host());
    }
    QVERIFY(node.requests.size() >= 2);
    QVERIFY2(!node.requests.last().contains("\r\nCookie:"), node.requests.last().constData());
}

void TestNodeRequests::answersNoChallenge_data()
{
    QTest::addColumn<QByteArray>("challenge");
    QTest::addColumn<int>("requests");
    QTest::newRow("Basic") << QByteArray("Basic realm=\"x\"") << 1;
    QTest::newRow("Digest that is always stale")
        << QByteArray("Digest realm=\"x\", nonce=\"a\", stale=true") << 1;
    QTest::newRow("NTLM, which Qt answers once, without a name") << QByteArray("NTLM") << 2;
}

void TestNodeRequests::answersNoChallenge()
{
    QFETCH(const QByteArray, challenge);
    const RawServer node(httpAnswer({}, "401 No\r\nWWW-Authenticate: " + challenge));
    NmosClient().hasSenders(QStringLiteral("user:secret@") + node.host());
    QTEST(node.requests.size(), "requests");
    QVERIFY2(!node.requests.first().contains("\r\nAuthorization:"),
             node.requests.first().constData());
}

void TestNodeRequests::keepsIdsInTheirSegment_data()
{
    QTest::addColumn<QString>("id");
    QTest::addColumn<QString>("path"); // empty: nothing is requested
    const auto row = [](const char *name, const char *id, const QString &path) {
        QTest::newRow(name) << QString::fromUtf8(id) << path;
    };
    row("an id as it should be", "3b8be755-08ff-452b-b217-c9151eb21193",
        stagedPath("3b8be755-08ff-452b-b217-c9151eb21193"));
    row("what a segment may hold stays", "urn:x_y~z!$&'()*+,;=@.",
        stagedPath("urn:x_y~z!$&'()*+,;=@."));
    row("a way up", "../../../../../../evil", stagedPath("..%2F..%2F..%2F..%2F..%2F..%2Fevil"));
    row("a query and a fragment", "a?b#c", stagedPath("a%3Fb%23c"));
    row("a percent sign", "%2e%2e", stagedPath("%252e%252e"));
    row("other letters", "\xc3\xa4 \\\"", stagedPath("%C3%A4%20%5C%22"));
    row("the folder itself", ".", {});
    row("the folder above", "..", {});
}

void TestNodeRequests::keepsIdsInTheirSegment()
{
    QFETCH(const QString, id);
    QFETCH(const QString, path);
    const RawServer node(httpAnswer("{}"));
    NmosClient client;
    const NmosClient::ReceiverLookup receiver{id, {}, node.host(), {}, {}};
    QString error;
    QString sdp;
    QCOMPARE(client.disconnectReceiver(receiver, &error), !path.isEmpty());
    QCOMPARE(error.isEmpty(), !path.isEmpty());
    QVERIFY(!client.fetchReceiverSdp(receiver, &sdp));
    QCOMPARE(node.requestLines(),
             path.isEmpty()
                 ? QStringList()
                 : QStringList({QLatin1String("PATCH ") + path, QLatin1String("GET ") + path}));
}

void TestNodeRequests::keepsVersionsInTheirSegment_data()
{
    QTest::addColumn<QByteArray>("version");
    QTest::addColumn<QString>("path"); // empty: nothing is requested
    QTest::newRow("a way elsewhere")
        << QByteArray("../../x?y#z") << QStringLiteral("/x-nmos/node/..%2F..%2Fx%3Fy%23z/self");
    QTest::newRow("a percent sign")
        << QByteArray("v1%2f3") << QStringLiteral("/x-nmos/node/v1%252f3/self");
    QTest::newRow("the folder above") << QByteArray("..") << QString();
}

void TestNodeRequests::keepsVersionsInTheirSegment()
{
    QFETCH(const QByteArray, version);
    QFETCH(const QString, path);
    const RawServer node(httpAnswer("{}"), QHostAddress(QStringLiteral("192.0.2.1")));
    NMOSMdnsBrowser browser;
    QSignalSpy ready(&browser, &NMOSMdnsBrowser::nodeSelfReady);
    QSignalSpy errors(&browser, &NMOSMdnsBrowser::nodeError);
    browser.start();
    announce(node, {"api_ver=" + version});
    QTRY_COMPARE(ready.size() + errors.size(), 1);
    QCOMPARE(errors.size(), path.isEmpty() ? 1 : 0);
    QCOMPARE(node.requestLines(),
             path.isEmpty() ? QStringList() : QStringList(QLatin1String("GET ") + path));
}

void TestNodeRequests::logsRefusedPatches()
{
    const LogRecorder log("nodepatch.requests");
    const auto restore = qScopeGuard([] { QLoggingCategory::setFilterRules({}); });
    RawServer node(httpAnswer({}, "423 Locked"));
    const NmosClient::ReceiverLookup receiver{QStringLiteral("r"), {}, node.host(), {}, {}};
    NmosClient client;
    client.disconnectReceiver(receiver);
    QCOMPARE(log.lines(), QStringList());

    QLoggingCategory::setFilterRules(QStringLiteral("nodepatch.requests.info=true"));
    client.disconnectReceiver(receiver);
    const QString url = QLatin1String("http://") + node.host() + stagedPath("r");
    QCOMPARE(log.lines(),
             QStringList(QStringLiteral("info: PATCH %1 status 423: Error transferring %1 - "
                                        "server replied: Locked")
                             .arg(url)));
    node.answer = httpAnswer({}, "204 No Content");
    client.disconnectReceiver(receiver);
    QCOMPARE(log.lines().size(), 1);
}

NODEPATCH_TEST_MAIN(TestNodeRequests)
#include "tst_noderequests.moc"
