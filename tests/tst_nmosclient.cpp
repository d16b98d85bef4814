// The node queries and the connection operations against real nodes.

#include "SimulatedNode.h"
#include "nmos/NmosClient.h"
#include "support/LogRecorder.h"
#include "support/TestMain.h"

Q_DECLARE_METATYPE(Fault)

namespace {

QByteArray json(const char *text)
{
    return QByteArray(text).replace('\'', '"');
}

NmosClient::ReceiverLookup receiverOf(const SimulatedNode &node, const QString &id)
{
    return {id, {}, node.host(), {}, {}};
}

} // namespace

class TestNmosClient final : public QObject {
    Q_OBJECT

private slots:
    void probesOverIpv6_data();
    void probesOverIpv6();
    void asksInOrder_data();
    void asksInOrder();
    void takesNonEmptyArraysOnly_data();
    void takesNonEmptyArraysOnly();
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
    QCOMPARE(tx.requestLines(), QStringList(QStringLiteral("GET /x-nmos/node/v1.3/senders/")));

    NmosClient::SenderLookup sender;
    NmosClient::ReceiverLookup receiver;
    QVERIFY(client.findSender(tx.host(), NmosClient::Video, &sender, {}));
    QVERIFY(client.findReceiver(rx.host(), NmosClient::Video, &receiver, {}));
    QVERIFY(client.connectReceiver(sender, receiver));
    QCOMPARE(rx.receiverActive(receiver.id).value(QLatin1String("sender_id")).toString(),
             sender.id);
}

void TestNmosClient::asksInOrder_data()
{
    QTest::addColumn<QString>("missing"); // a collection that the node does not serve
    QTest::addColumn<QByteArrayList>("asked"); // by each operation, and what came of it
    const auto row = [](const char *missing, const QByteArrayList &asked) {
        QTest::newRow(*missing ? missing : "nothing") << QString::fromLatin1(missing) << asked;
    };
    row("",
        {"senders yes", "receivers yes", "receivers yes", "flows senders yes", "receivers yes",
         "flows senders yes", "senders yes", "devices receivers yes", "devices senders flows yes"});
    row("flows",
        {"senders yes", "receivers yes", "receivers yes", "flows senders no", "receivers yes",
         "flows no", "senders yes", "devices receivers yes", "devices senders flows yes"});
    row("senders",
        {"senders no", "receivers yes", "receivers yes", "flows senders no", "receivers yes",
         "flows senders no", "senders no", "devices receivers yes", "devices senders no"});
    row("receivers",
        {"senders yes", "receivers no", "receivers no", "flows senders yes", "receivers no",
         "flows senders yes", "senders yes", "devices receivers no", "devices senders flows yes"});
    row("devices",
        {"senders yes", "receivers yes", "receivers yes", "flows senders yes", "receivers yes",
         "flows senders yes", "senders yes", "devices no", "devices no"});
}

void TestNmosClient::asksInOrder()
{
    QFETCH(const QString, missing);
    SimulatedNode node(NodeDescription::wide({}, 1, 1));
    if (!missing.isEmpty()) {
        node.setFault(SimulatedNode::collectionPath(missing), Fault::status(404));
    }
    const QString host = node.host();
    const QString senderId = node.senderIds().value(0);
    NmosClient::SenderLookup sender{senderId, {}, {}, host, {}, {}};
    NmosClient::SenderLookup found;
    NmosClient::ReceiverLookup receiver = receiverOf(node, node.receiverIds().value(0));
    NmosClient client;
    QByteArrayList asked;
    const auto note = [&node, &asked](bool result) {
        QString line;
        const QStringList lines = node.requestLines();
        for (const QString &request : lines) {
            line += request.section(QLatin1Char('/'), 4, 4) + QLatin1Char(' ');
        }
        asked += line.toLatin1() + (result ? "yes" : "no");
        node.clearRequests();
    };
    note(client.hasSenders(host));
    note(client.hasReceivers(host));
    note(!client.listReceivers(host, {}).isEmpty());
    note(!client.listSenders(host, {}).isEmpty());
    NmosClient::ReceiverLookup any;
    note(client.findReceiver(host, NmosClient::Video, &any, {}));
    note(client.findSender(host, NmosClient::Video, &found, {}));
    note(client.findSender(host, NmosClient::Video, &found, senderId));
    note(client.fillDeviceReceivers(&receiver));
    note(client.fillDeviceSenders(&sender));
    QTEST(asked, "asked");
}

void TestNmosClient::takesNonEmptyArraysOnly_data()
{
    QTest::addColumn<Fault>("fault");
    QTest::addColumn<bool>("found");
    QTest::addColumn<QString>("logged"); // %1 is the address
    const auto row = [](const char *title, const Fault &fault, bool found,
                        const char *logged = "") {
        QTest::newRow(title) << fault << found << QString::fromLatin1(logged);
    };
    row("an array with an element", Fault::body("[{}]"), true);
    row("an array of anything", Fault::body("[null]"), true);
    row("an empty array", Fault::body("[]"), false);
    row("an object", Fault::body(json("{'a':1}")), false);
    row("a repeated object", Fault::body(json("[{'tags':{},'tags':{'a':[]}}]")), true);
    row("all that a node has", Fault::body('[' + json("0,").repeated(1500000) + "0]"), true);
    row("no JSON", Fault::body("<html>"), false);
    row("nothing", Fault::body({}), false);
    row("a redirect with an array", Fault::status(302, "[{}]"), false,
        "warning: Unable to connect: \"\"");
    row("an error with an array", Fault::status(404, "[{}]"), false,
        "warning: Unable to connect: \"Error transferring %1 - server replied: Not Found\"");
}

void TestNmosClient::takesNonEmptyArraysOnly()
{
    QFETCH(const Fault, fault);
    QFETCH(const QString, logged);
    SimulatedNode node;
    node.setFault(QStringLiteral("*"), fault);
    const LogRecorder log;
    NmosClient client;
    QTEST(client.hasSenders(node.host()), "found");
    const QString url = node.baseUrl() + SimulatedNode::collectionPath(QStringLiteral("senders"));
    QCOMPARE(log.lines(),
             logged.isEmpty() ? QStringList()
                              : QStringList(QString(logged).replace(QLatin1String("%1"), url)));
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
    const auto senders = client.listSenders(node.host(), QStringLiteral("N"));
    QCOMPARE(senders.size(), 2);
    QCOMPARE(senders.at(0).id, QStringLiteral("2"));
    QCOMPARE(senders.at(1).manifestHref, QStringLiteral("http://m"));
}

void TestNmosClient::findsSenders_data()
{
    const int video = NmosClient::Video;
    const int audio = NmosClient::Audio;
    const int data = NmosClient::Data;
    QTest::addColumn<QByteArray>("flows");
    QTest::addColumn<int>("kind");
    QTest::addColumn<QString>("preferredId");
    QTest::addColumn<QString>("found"); // id and label; empty: none
    const QByteArray av = json("[{'id':'fa','format':'urn:x-nmos:format:audio'},"
                               " {'id':'fv','format':'urn:x-nmos:format:video'}]");
    QTest::newRow("the first of the format") << av << video << QString() << QStringLiteral("v V");
    QTest::newRow("another format") << av << audio << QString() << QStringLiteral("a A");
    QTest::newRow("an unknown kind means video") << av << 9 << QString() << QStringLiteral("v V");
    QTest::newRow("an id counts, whatever its format")
        << QByteArray("[]") << video << QStringLiteral("a") << QStringLiteral("a A");
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
                            " {'id':'a','label':'A','flow_id':'fa','manifest_href':'http://a'},"
                            " {'id':'v','label':'V','flow_id':'fv','manifest_href':'http://v'},"
                            " {'id':'a','label':'2','flow_id':'fv','manifest_href':'http://2'}]"));
    NmosClient client;
    NmosClient::SenderLookup sender{QStringLiteral("earlier"), {}, {}, {}, {}, {}};
    const bool found = client.findSender(node.host(), kind, &sender, preferredId);
    QTEST(found ? QString(sender.id + QLatin1Char(' ') + sender.label) : QString(), "found");
    if (found) {
        QCOMPARE(sender.manifestHref, QString(QLatin1String("http://") + sender.id));
        QCOMPARE(sender.host, node.host());
    }
}

void TestNmosClient::findsReceivers()
{
    SimulatedNode node;
    node.setCollection(QStringLiteral("receivers"),
                       json("[{'id':'d','format':'urn:x-nmos:format:data'},"
                            " {'id':'v','label':'V','format':'urn:x-nmos:format:video'},"
                            " {'id':'a1','label':'A','format':'urn:x-nmos:format:audio'},"
                            " {'id':'a2','format':'urn:x-nmos:format:audio'}]"));
    NmosClient client;
    NmosClient::ReceiverLookup receiver;
    const auto found = [&](int kind, const char *id) {
        const bool result =
            client.findReceiver(node.host(), kind, &receiver, QString::fromLatin1(id));
        return result ? QString(receiver.id + receiver.label) : QString();
    };
    QCOMPARE(found(NmosClient::Data, ""), QStringLiteral("d"));
    QCOMPARE(found(NmosClient::Audio, ""), QStringLiteral("a1A"));
    QCOMPARE(receiver.host, node.host());
    QCOMPARE(found(NmosClient::Audio, "a2"), QStringLiteral("a2"));
    QCOMPARE(found(NmosClient::Audio, "a"), QString());
    QCOMPARE(found(9, ""), QStringLiteral("vV"));
    QCOMPARE(found(NmosClient::Video, "a1"), QString());
    QCOMPARE(receiver.id, QString());
}

void TestNmosClient::fillsDeviceMembers()
{
    SimulatedNode node;
    node.setCollection(
        QStringLiteral("devices"),
        json("[{'senders':null,'receivers':[7]}, {'senders':['v','a1','a2','a3','d'],"
             " 'receivers':['v','a1','a2','d']}, {'senders':['v','x'],'receivers':['v','x']}]"));
    node.setCollection(QStringLiteral("receivers"),
                       json("[{'id':'a1','format':'urn:x-nmos:format:audio'},"
                            " {'id':'a2','format':'urn:x-nmos:format:audio'},"
                            " {'id':'d','format':'urn:x-nmos:format:data'},"
                            " {'id':'x','format':'urn:x-nmos:format:data'}]"));
    node.setCollection(QStringLiteral("senders"),
                       json("[{'id':'a1','flow_id':'fa1'}, {'id':'a2','flow_id':'fa2'},"
                            " {'id':'a3','flow_id':'fa3'}, {'id':'d','flow_id':'fd'},"
                            " {'id':'x','flow_id':'fx'}]"));
    node.setCollection(QStringLiteral("flows"),
                       json("[{'id':'fx','format':'urn:x-nmos:format:data'},"
                            " {'id':'fa1','format':'urn:x-nmos:format:audio'},"
                            " {'id':'fa2','format':'urn:x-nmos:format:audio'},"
                            " {'id':'fd','format':'urn:x-nmos:format:data'},"
                            " {'id':'fa3','format':'urn:x-nmos:format:audio'}]"));
    NmosClient client;
    NmosClient::ReceiverLookup receiver = receiverOf(node, QStringLiteral("v"));
    NmosClient::SenderLookup sender{QStringLiteral("v"), {}, {}, node.host(), {}, {}};
    const auto fill = [&] {
        return client.fillDeviceReceivers(&receiver) && client.fillDeviceSenders(&sender);
    };
    QVERIFY(fill());
    QCOMPARE(receiver.audioReceiverId + receiver.dataReceiverId, QStringLiteral("a2d"));
    QCOMPARE(sender.audioSenderId + sender.dataSenderId, QStringLiteral("a2d"));

    receiver.id = sender.id = QStringLiteral("in no device");
    QVERIFY(fill());
    QCOMPARE(receiver.audioReceiverId + receiver.dataReceiverId, QStringLiteral("a2d"));
    QCOMPARE(sender.audioSenderId + sender.dataSenderId, QString());

    sender.audioSenderId = QStringLiteral("kept");
    node.setCollection(QStringLiteral("senders"), "[]");
    QVERIFY(!fill());
    QCOMPARE(sender.audioSenderId, QStringLiteral("kept"));
}

void TestNmosClient::connectsByteForByte()
{
    const QByteArray sdp = QByteArray("v=0\r\ns=\"Caf\xc3\xa9~\" %1\n").replace('~', '\0');
    SimulatedNode node(NodeDescription::receiver());
    node.setResource(QStringLiteral("/sdp"), sdp, "text/plain");
    const QString receiverId = node.receiverIds(Essence::Video).value(0);
    const NmosClient::SenderLookup sender{
        QStringLiteral("s-1"), {}, node.baseUrl() + QStringLiteral("/sdp"), node.host(), {}, {}};
    const NmosClient::ReceiverLookup receiver = receiverOf(node, receiverId);
    const QString staged = SimulatedNode::receiverStagedPath(receiverId);
    node.setFault(staged, Fault::status(202));
    NmosClient client;
    QVERIFY(client.connectReceiver(sender, receiver));
    QVERIFY(client.disconnectReceiver(receiver));
    QCOMPARE(node.requestLines(),
             (QStringList{QStringLiteral("GET /sdp"), QStringLiteral("PATCH ") + staged,
                          QStringLiteral("PATCH ") + staged}));
    const auto patches = node.requests(QStringLiteral("PATCH"));
    QVERIFY(patches.at(0).headers.contains({"Content-Type", "application/json"}));
    QCOMPARE(patches.at(0).body,
             QByteArray("{\"activation\":{\"mode\":\"activate_immediate\",\"requested_time\":null},"
                        "\"master_enable\":true,\"sender_id\":\"s-1\",\"transport_file\":"
                        "{\"data\":\"v=0\\r\\ns=\\\"Caf\xc3\xa9\\u0000\\\" "
                        "%1\\n\",\"type\":\"application/sdp\"}}"));
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
    QTest::newRow("a redirect is no manifest")
        << Fault::status(302, "v=0").times(1) << none << QStringList{get, patch, get} << true;
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
    const auto receiver = receiverOf(rx, rx.receiverIds(Essence::Video).value(0));
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
    QTEST(client.disconnectReceiver(receiverOf(node, id), &error), "accepted");
    QCOMPARE(error != before, explained);
}

void TestNmosClient::readsStagedSdp_data()
{
    QTest::addColumn<Fault>("staged");
    QTest::addColumn<bool>("found");
    QTest::addColumn<QString>("sdp");
    QTest::addColumn<int>("warnings");
    const auto row = [](const char *title, const Fault &staged, bool found,
                        const char *sdp = "untouched", int warnings = 0) {
        QTest::newRow(title) << staged << found << QString::fromLatin1(sdp) << warnings;
    };
    const QByteArray text = json("{'transport_file':{'data':'v=0\\r\\n'}}");
    row("text", Fault::body(text), true, "v=0\r\n");
    row("null", Fault::body(json("{'transport_file':{'data':null}}")), false);
    row("missing", Fault::body(json("{'transport_file':{}}")), true, "");
    row("no string", Fault::body(json("{'transport_file':{'data':[1]}}")), true, "");
    row("no transport file", Fault::body(json("{'a':1}")), true, "");
    row("an empty object", Fault::body("{}"), false);
    row("an array", Fault::body("[{}]"), false);
    row("cut off", Fault::body(text.chopped(4)), false);
    row("a redirect", Fault::status(302, text), false, "untouched", 1);
    row("an error", Fault::status(404, text), false, "untouched", 1);
}

void TestNmosClient::readsStagedSdp()
{
    QFETCH(const Fault, staged);
    SimulatedNode node;
    node.setFault(SimulatedNode::receiverStagedPath(QStringLiteral("r")), staged);
    const LogRecorder log;
    QString sdp = QStringLiteral("untouched");
    QTEST(NmosClient().fetchReceiverSdp(receiverOf(node, QStringLiteral("r")), &sdp), "found");
    QTEST(sdp, "sdp");
    QTEST(log.lines().filter(QStringLiteral("Unable to connect:")).size(), "warnings");
}

NODEPATCH_TEST_MAIN(TestNmosClient)
#include "tst_nmosclient.moc"
