// The node queries and the connection operations against real nodes.

#include "SimulatedNode.h"
#include "nmos/NmosClient.h"
#include "nmos/SyncHttp.h"
#include "support/TestMain.h"

#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>

Q_DECLARE_METATYPE(Fault)

namespace {

const QString nodeApi = QStringLiteral("/x-nmos/node/v1.3/");

QByteArray json(const char *text)
{
    return QByteArray(text).replace('\'', '"');
}

QString get(const char *collection)
{
    return QStringLiteral("GET %1%2/").arg(nodeApi, QLatin1String(collection));
}

} // namespace

class TestNmosClient final : public QObject {
    Q_OBJECT

private slots:
    void probesOverIpv6_data();
    void probesOverIpv6();
    void probeNeedsANonEmptyArray_data();
    void probeNeedsANonEmptyArray();
    void listsOddCollections();
    void findsSenders_data();
    void findsSenders();
    void findsReceivers();
    void fillsDeviceMembers();
    void connectsByteForByte();
    void activatesASenderWithoutSdp_data();
    void activatesASenderWithoutSdp();
    void reportsRefusedPatches_data();
    void reportsRefusedPatches();
    void readsStagedSdp_data();
    void readsStagedSdp();
};

void TestNmosClient::probesOverIpv6_data()
{
    QTest::addColumn<QString>("text");
    QTest::newRow("loopback") << QStringLiteral("::1");
    QTest::newRow("link-local with its zone") << QStringLiteral("fe80::1%vx0");
}

void TestNmosClient::probesOverIpv6()
{
    QFETCH(const QString, text);
    const QHostAddress address(text);
    const SimulatedNode tx(NodeDescription::transmitter(), address);
    const SimulatedNode rx(NodeDescription::receiver(), address);
    if (!tx.isListening() || !rx.isListening()) {
        QSKIP("this machine has no such address");
    }
    NmosClient client;
    QVERIFY(client.hasSenders(tx.host()));
    QCOMPARE(tx.requestLines(), QStringList{get("senders")});

    NmosClient::SenderLookup sender;
    NmosClient::ReceiverLookup receiver;
    QVERIFY(client.findSender(tx.host(), NmosClient::Video, &sender, {}));
    QVERIFY(client.findReceiver(rx.host(), NmosClient::Video, &receiver, {}));
    QVERIFY(client.connectReceiver(sender, receiver));
    QCOMPARE(rx.receiverActive(receiver.id).value(QLatin1String("sender_id")).toString(),
             sender.id);
}

void TestNmosClient::probeNeedsANonEmptyArray_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<bool>("found");
    QTest::newRow("an array with an element") << json("[{}]") << true;
    QTest::newRow("an array of anything") << json("[null]") << true;
    QTest::newRow("an empty array") << json("[]") << false;
    QTest::newRow("an object") << json("{'a':1}") << false;
    QTest::newRow("a repeated object") << json("[{'tags':{},'tags':{'a':[]}}]") << true;
    QTest::newRow("a million values") << '[' + json("0,").repeated(1000000) + "0]" << true;
    QTest::newRow("no JSON") << json("<html>") << false;
    QTest::newRow("nothing") << QByteArray() << false;
}

void TestNmosClient::probeNeedsANonEmptyArray()
{
    QFETCH(const QByteArray, body);
    SimulatedNode node;
    node.setCollection(QStringLiteral("senders"), body);
    NmosClient client;
    QTEST(client.hasSenders(node.host()), "found");
}

void TestNmosClient::listsOddCollections()
{
    SimulatedNode node;
    node.setCollection(
        QStringLiteral("receivers"),
        json("[{'id':'a','label':'X','format':'urn:x-nmos:format:audio'},"
             " {'id':'b','label':'X','format':'urn:x-nmos:format:video'}, 7, null, [], {},"
             " {'id':'c','label':'','format':'urn:x-nmos:format:video'},"
             " {'id':'d','label':null,'format':'urn:x-nmos:format:video'},"
             " {'id':5,'label':'Número 5 \\u30ab','format':'urn:x-nmos:format:video'},"
             " {'id':'f','label':'%1','format':'urn:x-nmos:format:video'},"
             " {'id':'g','label':'%1','format':'urn:x-nmos:format:video'}]"));
    NmosClient client;
    const auto receivers = client.listReceivers(node.host(), QStringLiteral("N%2"));
    QCOMPARE(receivers.size(), 2);
    QCOMPARE(receivers.at(0).id, QString());
    QCOMPARE(receivers.at(0).label, QStringLiteral("Número 5 カ"));
    QCOMPARE(receivers.at(1).id, QStringLiteral("f"));
    QCOMPARE(receivers.at(1).displayName,
             QStringLiteral("N%2 (") + node.host() + QStringLiteral("-%1)"));

    node.setCollection(QStringLiteral("flows"),
                       json("[{'id':'v1','format':'urn:x-nmos:format:video'},"
                            " {'id':'a1','format':'urn:x-nmos:format:audio'},"
                            " {'id':'v2','format':'urn:x-nmos:format:video'}, {'id':'v3'}]"));
    node.setCollection(QStringLiteral("senders"),
                       json("[{'id':'1','label':'A','flow_id':'a1'},"
                            " {'id':'2','label':'A','flow_id':'v2','manifest_href':null},"
                            " {'id':'3','label':'A','flow_id':'v1'},"
                            " {'id':'4','label':'B','flow_id':null},"
                            " {'id':'5','label':'C','flow_id':'v1','manifest_href':'http://m'}]"));
    node.clearRequests();
    const auto senders = client.listSenders(node.host(), QStringLiteral("N"));
    QCOMPARE(node.requestLines(), (QStringList{get("flows"), get("senders")}));
    QCOMPARE(senders.size(), 2);
    QCOMPARE(senders.at(0).id, QStringLiteral("2"));
    QCOMPARE(senders.at(1).manifestHref, QStringLiteral("http://m"));

    node.setFault(SimulatedNode::collectionPath(QStringLiteral("flows")), Fault::status(500));
    node.clearRequests();
    QVERIFY(client.listSenders(node.host(), QStringLiteral("N")).isEmpty());
    QCOMPARE(node.requestLines(), (QStringList{get("flows"), get("senders")}));
}

void TestNmosClient::findsSenders_data()
{
    const int video = NmosClient::Video;
    const int audio = NmosClient::Audio;
    const int data = NmosClient::Data;
    QTest::addColumn<QByteArray>("flows");
    QTest::addColumn<int>("kind");
    QTest::addColumn<QString>("preferredId");
    QTest::addColumn<QString>("id"); // empty: none
    const QByteArray av = json("[{'id':'fa','format':'urn:x-nmos:format:audio'},"
                               " {'id':'fv','format':'urn:x-nmos:format:video'}]");
    QTest::newRow("the first of the format") << av << video << QString() << QStringLiteral("v");
    QTest::newRow("another format") << av << audio << QString() << QStringLiteral("a");
    QTest::newRow("an unknown kind means video") << av << 9 << QString() << QStringLiteral("v");
    QTest::newRow("an id counts, whatever its format")
        << QByteArray("[]") << video << QStringLiteral("a") << QStringLiteral("a");
    QTest::newRow("an id that is not listed") << av << video << QStringLiteral("x") << QString();
    QTest::newRow("a sender without a manifest") << av << video << QStringLiteral("n") << QString();
    QTest::newRow("no flow of the format: a null flow id does not match")
        << av << data << QString() << QString();
    QTest::newRow("only the first flow of the format is tried")
        << json("[{'id':'unused','format':'urn:x-nmos:format:video'},"
                " {'id':'fv','format':'urn:x-nmos:format:video'}]")
        << video << QString() << QString();
}

void TestNmosClient::findsSenders()
{
    QFETCH(const QByteArray, flows);
    QFETCH(const int, kind);
    QFETCH(const QString, preferredId);
    SimulatedNode node;
    node.setCollection(QStringLiteral("flows"), flows);
    node.setCollection(QStringLiteral("senders"),
                       json("[{'id':'n','flow_id':null},"
                            " {'id':'a','flow_id':'fa','manifest_href':'http://a'},"
                            " {'id':'v','flow_id':'fv','manifest_href':'http://v'}]"));
    NmosClient client;
    NmosClient::SenderLookup sender;
    sender.id = QStringLiteral("earlier");
    const bool found = client.findSender(node.host(), kind, &sender, preferredId);
    QTEST(found ? sender.id : QString(), "id");
}

void TestNmosClient::findsReceivers()
{
    const SimulatedNode node(NodeDescription::receiver());
    const QString audioId = node.receiverIds(Essence::Audio).value(0);
    NmosClient client;
    NmosClient::ReceiverLookup receiver;
    QVERIFY(client.findReceiver(node.host(), NmosClient::Data, &receiver, {}));
    QCOMPARE(receiver.id, node.receiverIds(Essence::Data).value(0));
    QVERIFY(client.findReceiver(node.host(), NmosClient::Audio, &receiver, audioId));
    QCOMPARE(receiver.host, node.host());
    QVERIFY(!client.findReceiver(node.host(), NmosClient::Video, &receiver, audioId));
    QCOMPARE(receiver.id, QString());
}

void TestNmosClient::fillsDeviceMembers()
{
    SimulatedNode node;
    node.setCollection(
        QStringLiteral("devices"),
        json("[{'senders':null,'receivers':[7]}, {'senders':['v','a1','a2','d'],"
             " 'receivers':['v','a1','a2']}, {'senders':['v','x'],'receivers':['v']}]"));
    node.setCollection(QStringLiteral("receivers"),
                       json("[{'id':'x','format':'urn:x-nmos:format:data'},"
                            " {'id':'a1','format':'urn:x-nmos:format:audio'},"
                            " {'id':'a2','format':'urn:x-nmos:format:audio'}]"));
    node.setCollection(QStringLiteral("senders"),
                       json("[{'id':'a1','flow_id':'fa1'}, {'id':'a2','flow_id':'fa2'},"
                            " {'id':'d','flow_id':'fd'}, {'id':'x','flow_id':'fx'}]"));
    node.setCollection(QStringLiteral("flows"),
                       json("[{'id':'fa1','format':'urn:x-nmos:format:audio'},"
                            " {'id':'fa2','format':'urn:x-nmos:format:audio'},"
                            " {'id':'fd','format':'urn:x-nmos:format:data'},"
                            " {'id':'fx','format':'urn:x-nmos:format:audio'}]"));
    NmosClient client;
    NmosClient::ReceiverLookup receiver{
        QStringLiteral("v"), {}, node.host(), {}, QStringLiteral("kept")};
    QVERIFY(client.fillDeviceReceivers(&receiver));
    QCOMPARE(receiver.audioReceiverId, QStringLiteral("a2"));
    QCOMPARE(receiver.dataReceiverId, QStringLiteral("kept"));

    node.clearRequests();
    NmosClient::SenderLookup sender{QStringLiteral("v"), {}, {}, node.host(), {}, {}};
    QVERIFY(client.fillDeviceSenders(&sender));
    QCOMPARE(sender.audioSenderId, QStringLiteral("a2"));
    QCOMPARE(sender.dataSenderId, QStringLiteral("d"));
    QCOMPARE(node.requestLines(), (QStringList{get("devices"), get("senders"), get("flows")}));

    sender.id = QStringLiteral("in no device");
    QVERIFY(client.fillDeviceSenders(&sender));
    QCOMPARE(sender.audioSenderId, QString());

    node.setCollection(QStringLiteral("senders"), "[]");
    sender.audioSenderId = QStringLiteral("kept");
    QVERIFY(!client.fillDeviceSenders(&sender));
    QCOMPARE(sender.audioSenderId, QStringLiteral("kept"));
}

void TestNmosClient::connectsByteForByte()
{
    const QByteArray sdp = "v=0\r\ns=\"Caf\xc3\xa9\" %1\n";
    SimulatedNode node(NodeDescription::receiver());
    node.setResource(QStringLiteral("/sdp"), sdp, "text/plain");
    const QString receiverId = node.receiverIds(Essence::Video).value(0);
    const NmosClient::SenderLookup sender{
        QStringLiteral("s-1"), {}, node.baseUrl() + QStringLiteral("/sdp"), node.host(), {}, {}};
    const NmosClient::ReceiverLookup receiver{receiverId, {}, node.host(), {}, {}};
    const QString staged = SimulatedNode::receiverStagedPath(receiverId);
    node.setFault(staged, Fault::status(202));
    NmosClient client;
    QVERIFY(client.connectReceiver(sender, receiver));
    QVERIFY(client.disconnectReceiver(receiver));
    QCOMPARE(node.requestLines(),
             (QStringList{QStringLiteral("GET /sdp"), QStringLiteral("PATCH ") + staged,
                          QStringLiteral("PATCH ") + staged}));
    const auto patches = node.requests(QStringLiteral("PATCH"));
    QCOMPARE(patches.at(0).contentType, QByteArray("application/json"));
    QCOMPARE(
        patches.at(0).body,
        QByteArray(
            "{\"activation\":{\"mode\":\"activate_immediate\",\"requested_time\":null},"
            "\"master_enable\":true,\"sender_id\":\"s-1\",\"transport_file\":"
            "{\"data\":\"v=0\\r\\ns=\\\"Caf\xc3\xa9\\\" %1\\n\",\"type\":\"application/sdp\"}}"));
    QCOMPARE(
        patches.at(1).body,
        QByteArray("{\"activation\":{\"mode\":\"activate_immediate\",\"requested_time\":null},"
                   "\"master_enable\":false,\"transport_file\":{\"data\":null,\"type\":null}}"));
}

void TestNmosClient::activatesASenderWithoutSdp_data()
{
    QTest::addColumn<Fault>("manifestFault");
    QTest::addColumn<Fault>("stagedFault");
    QTest::addColumn<QStringList>("methods");
    QTest::addColumn<bool>("connected");
    const Fault none = Fault::delay(0);
    const QString get = QStringLiteral("GET");
    const QString patch = QStringLiteral("PATCH");
    QTest::newRow("the manifest appears with the activation")
        << Fault::untilActivated() << none << QStringList{get, patch, get} << true;
    QTest::newRow("an empty manifest is none")
        << Fault::body({}).times(1) << none << QStringList{get, patch, get} << true;
    QTest::newRow("the activation is refused")
        << Fault::status(404) << Fault::status(423) << QStringList{get, patch} << false;
    QTest::newRow("the manifest never appears")
        << Fault::status(404) << none << QStringList{get, patch, get} << false;
}

void TestNmosClient::activatesASenderWithoutSdp()
{
    QFETCH(const Fault, manifestFault);
    QFETCH(const Fault, stagedFault);
    QFETCH(const QStringList, methods);
    QFETCH(const bool, connected);
    SimulatedNode tx;
    const SimulatedNode rx(NodeDescription::receiver());
    const QString senderId = tx.senderIds(Essence::Video).value(0);
    NmosClient client;
    NmosClient::SenderLookup sender;
    QVERIFY(client.findSender(tx.host(), NmosClient::Video, &sender, senderId));
    const NmosClient::ReceiverLookup receiver{
        rx.receiverIds(Essence::Video).value(0), {}, rx.host(), {}, {}};
    tx.clearRequests();
    tx.setFault(SimulatedNode::manifestPath(senderId), manifestFault);
    tx.setFault(SimulatedNode::senderStagedPath(senderId), stagedFault);

    QString error;
    QCOMPARE(client.connectReceiver(sender, receiver, &error), connected);
    QStringList sent;
    const auto requests = tx.requests();
    for (const LoggedRequest &request : requests) {
        sent.append(request.method);
    }
    QCOMPARE(sent, methods);
    QCOMPARE(tx.requests(QStringLiteral("PATCH")).value(0).body,
             QByteArray("{\"activation\":{\"mode\":\"activate_immediate\"}}"));
    QCOMPARE(rx.requests().size(), connected ? 1 : 0);
    QCOMPARE(error, connected ? QString() : QStringLiteral("Failed to fetch Sender SDP."));
}

void TestNmosClient::reportsRefusedPatches_data()
{
    QTest::addColumn<Fault>("fault");
    QTest::addColumn<bool>("accepted");
    QTest::addColumn<bool>("explained");
    QTest::newRow("200") << Fault::status(200) << true << false;
    QTest::newRow("204") << Fault::status(204) << true << false;
    QTest::newRow("a redirect is no success and no error")
        << Fault::redirect("/x") << false << false;
    QTest::newRow("400") << Fault::status(400, "<b>no</b>", "text/html") << false << true;
    QTest::newRow("423") << Fault::status(423) << false << true;
    QTest::newRow("500") << Fault::status(500) << false << true;
    QTest::newRow("a reset") << Fault::reset() << false << true;
}

void TestNmosClient::reportsRefusedPatches()
{
    QFETCH(const Fault, fault);
    QFETCH(const bool, explained);
    SimulatedNode node(NodeDescription::receiver());
    const QString id = node.receiverIds(Essence::Video).value(0);
    node.setFault(SimulatedNode::receiverStagedPath(id), fault);
    NmosClient client;
    const QString before = QStringLiteral("as it was");
    QString error = before;
    QTEST(client.disconnectReceiver({id, {}, node.host(), {}, {}}, &error), "accepted");
    QCOMPARE(error != before, explained);
}

void TestNmosClient::readsStagedSdp_data()
{
    QTest::addColumn<QByteArray>("staged");
    QTest::addColumn<bool>("found");
    QTest::addColumn<QString>("sdp");
    const QString untouched = QStringLiteral("untouched");
    QTest::newRow("text") << json("{'transport_file':{'data':'v=0\\r\\n'}}") << true
                          << QStringLiteral("v=0\r\n");
    QTest::newRow("null") << json("{'transport_file':{'data':null}}") << false << untouched;
    QTest::newRow("missing") << json("{'transport_file':{}}") << true << QString();
    QTest::newRow("no string") << json("{'transport_file':{'data':[1]}}") << true << QString();
    QTest::newRow("no transport file") << json("{'a':1}") << true << QString();
    QTest::newRow("an empty object") << json("{}") << false << untouched;
    QTest::newRow("an array") << json("[{}]") << false << untouched;
    QTest::newRow("cut off") << json("{'transport_file':{'data':'v=") << false << untouched;
}

void TestNmosClient::readsStagedSdp()
{
    QFETCH(const QByteArray, staged);
    SimulatedNode node(NodeDescription::receiver());
    const QString id = node.receiverIds(Essence::Video).value(0);
    node.setResource(SimulatedNode::receiverStagedPath(id), staged);
    NmosClient client;
    QString sdp = QStringLiteral("untouched");
    QTEST(client.fetchReceiverSdp({id, {}, node.host(), {}, {}}, &sdp), "found");
    QTEST(sdp, "sdp");
}

NODEPATCH_TEST_MAIN(TestNmosClient)
#include "tst_nmosclient.moc"
