// The node queries and the connection operations against real nodes.

#include "SimulatedNode.h"
#include "nmos/NmosClient.h"
#include "support/LogRecorder.h"
#include "support/TestMain.h"

Q_DECLARE_METATYPE(Fault)

namespace {

QByteArray json(const char *text)
{
    return QByteArray(text).replace('\'', '"').replace("F:", "urn:x-nmos:format:");
}

NmosClient::ReceiverLookup receiverOf(const SimulatedNode &node, const QString &id)
{
    return {id, {}, node.host(), {}, {}};
}

} // namespace

class TestNmosClient final : public QObject {
    Q_OBJECT

private slots:
    void probesOverIpv6()
    {
        for (const char *text : {"::1", "fe80::1%vx0"}) {
            const QHostAddress address(QString::fromLatin1(text));
            const SimulatedNode tx(NodeDescription::transmitter(), address);
            const SimulatedNode rx(NodeDescription::receiver(), address);
            if (!tx.isListening() || !rx.isListening()) {
                QSKIP("this machine has no such address");
            }
            NmosClient client;
            QVERIFY(client.hasSenders(tx.host()));
            QCOMPARE(tx.requestLines(), QStringList("GET /x-nmos/node/v1.3/senders/"_s));

            NmosClient::SenderLookup sender;
            NmosClient::ReceiverLookup receiver;
            QVERIFY(client.findSender(tx.host(), NmosClient::Video, &sender, {}));
            QVERIFY(client.findReceiver(rx.host(), NmosClient::Video, &receiver, {}));
            QVERIFY(client.connectReceiver(sender, receiver));
            QCOMPARE(rx.receiverActive(receiver.id).value("sender_id"_s).toString(), sender.id);
        }
    }

    void asksInOrder_data()
    {
        // By each operation, by initial, and whether it succeeded. The row's name is a collection
        // that the node does not serve.
        columns<QString>("asked");
        QTest::newRow("nothing") << "s+ r+ r+ fs+ r+ fs+ s+ dr+ dsf+"_s;
        QTest::newRow("flows") << "s+ r+ r+ fs- r+ f- s+ dr+ dsf+"_s;
        QTest::newRow("senders") << "s- r+ r+ fs- r+ fs- s- dr+ ds-"_s;
        QTest::newRow("receivers") << "s+ r- r- fs+ r- fs+ s+ dr- dsf+"_s;
        QTest::newRow("devices") << "s+ r+ r+ fs+ r+ fs+ s+ d- d-"_s;
    }

    void asksInOrder()
    {
        SimulatedNode node(NodeDescription::wide({}, 1, 1));
        const QString missing = QString::fromLatin1(QTest::currentDataTag());
        node.setFault(SimulatedNode::collectionPath(missing), Fault::status(404));
        const QString host = node.host();
        const QString senderId = node.senderIds().value(0);
        NmosClient::SenderLookup sender{senderId, {}, {}, host, {}, {}};
        NmosClient::ReceiverLookup receiver = receiverOf(node, node.receiverIds().value(0));
        NmosClient client;
        QStringList asked;
        const auto note = [&node, &asked](bool result) {
            const QRegularExpression initial("^.*/(\\w)\\w+/$"_s);
            QStringList initials = node.requestLines();
            initials.replaceInStrings(initial, "\\1"_s);
            asked += QString(initials.join(QString()) + (result ? "+"_s : "-"_s));
            node.clearRequests();
        };
        note(client.hasSenders(host));
        note(client.hasReceivers(host));
        note(!client.listReceivers(host, {}).isEmpty());
        note(!client.listSenders(host, {}).isEmpty());
        note(client.findReceiver(host, NmosClient::Video, &receiver, {}));
        note(client.findSender(host, NmosClient::Video, &sender, {}));
        note(client.findSender(host, NmosClient::Video, &sender, senderId));
        note(client.fillDeviceReceivers(&receiver));
        note(client.fillDeviceSenders(&sender));
        QTEST(asked.join(" "_s), "asked");
    }

    void takesNonEmptyArraysOnly()
    {
        SimulatedNode node;
        const LogRecorder log;
        NmosClient client;
        const auto found = [&](const Fault &fault) {
            node.setFault("*"_s, fault);
            log.lines().clear();
            return client.hasSenders(node.host());
        };
        QVERIFY(found(Fault::body("[{}]")) && found(Fault::body("[null]")));
        QVERIFY(found(Fault::body(json("[{'tags':{},'tags':{'a':[]}}]"))));
        QVERIFY(
            found(Fault::body('[' + json("0,").repeated(1500000) + "0]"))); // all that a node has
        for (const char *body : {"[]", "{'a':1}", "<html>", ""}) {
            QVERIFY2(!found(Fault::body(json(body))), body);
            QCOMPARE(log.lines(), QStringList());
        }
        const QString failed = "warning: Unable to connect: \"%1\""_s;
        QVERIFY(!found(Fault::status(300, "[{}]")));
        QCOMPARE(log.lines(), QStringList(failed.arg(QString())));
        QVERIFY(!found(Fault::status(404, "[{}]")));
        const QString url = node.baseUrl() + SimulatedNode::collectionPath("senders"_s);
        const QString reason = "Error transferring %1 - server replied: Not Found"_s;
        QCOMPARE(log.lines(), QStringList(failed.arg(reason.arg(url))));
    }

    void listsOddCollections()
    {
        SimulatedNode node;
        node.setCollection("receivers"_s,
                           json("[{'id':'a','label':'X','format':'F:audio'},"
                                " {'id':'b','label':'X','format':'F:video'}, 7, null, [], {},"
                                " {'id':'c','label':'','format':'F:video'},"
                                " {'id':'d','label':null,'format':'F:video'},"
                                " {'id':5,'label':'Número 5 \\u30ab','format':'F:video'},"
                                " {'id':'f','label':'%1','format':'F:video'},"
                                " {'id':'g','label':'%1','format':'F:video'},"
                                " {'id':'h','label':' x','format':'F:video'},"
                                " {'id':'i','label':' X','format':'F:video'},"
                                " {'id':'j','label':'Y','format':'F:video.x'},"
                                " {'id':'k','label':'Z','format':'F:Video'}]"));
        node.setCollection("flows"_s,
                           json("[{'id':'v1','format':'F:video'}, {'id':'a1','format':'F:audio'},"
                                " {'id':'v2','format':'F:video'}, {'id':'v3'}]"));
        node.setCollection(
            "senders"_s,
            json("[{'id':'1','label':'A','flow_id':'a1'},"
                 " {'id':'2','label':'A','flow_id':'v2','manifest_href':null},"
                 " {'id':'3','label':'A','flow_id':'v1'}, {'id':'3','label':'','flow_id':'v1'},"
                 " {'id':'4','label':'B','flow_id':null}, {'id':'4','label':'B','flow_id':'V1'},"
                 " {'id':'5','label':' a','flow_id':'v1','manifest_href':'http://m'}]"));
        NmosClient client;
        QStringList listed;
        const auto note = [&listed](const auto &one, const QString &manifest) {
            listed += QStringList({one.id, one.label, manifest, one.host}).join(QLatin1Char('|'));
            QCOMPARE(one.displayName, QString("N%2 ("_s + one.host + "-"_s + one.label + ")"_s));
        };
        const auto receivers = client.listReceivers(node.host(), "N%2"_s);
        for (const auto &receiver : receivers) {
            note(receiver, {});
        }
        const auto senders = client.listSenders(node.host(), "N%2"_s);
        for (const auto &sender : senders) {
            note(sender, sender.manifestHref);
        }
        QCOMPARE(listed.replaceInStrings(node.host(), "@"_s),
                 QStringList({"|Número 5 カ||@"_s, "f|%1||@"_s, "h| x||@"_s, "i| X||@"_s,
                              "2|A||@"_s, "5| a|http://m|@"_s}));
    }

    void findsSenders_data()
    {
        // found is id and label, or empty.
        columns<QByteArray, int, QString, QString>("flows", "kind", "preferredId", "found");
        const auto row = [](const char *title, const QByteArray &flows, int kind, const char *id,
                            const char *found) {
            QTest::newRow(title) << flows << kind << QString::fromLatin1(id)
                                 << QString::fromLatin1(found);
        };
        const QByteArray av = json("[{'id':'fa','format':'F:audio'},"
                                   " {'id':'fv','format':'F:video'}]");
        row("the first of the format", av, NmosClient::Video, "", "v V");
        row("another format", av, NmosClient::Audio, "", "a A");
        row("an unknown kind means video", av, 9, "", "v V");
        row("an id counts, whatever its format", "[]", NmosClient::Video, "a", "a A");
        row("an id that is not listed", av, NmosClient::Video, "x", "");
        row("an id in other letters", av, NmosClient::Video, "A", "");
        row("a sender without a manifest", av, NmosClient::Video, "n", "");
        row("no flow of the format: a null flow id does not match", av, NmosClient::Data, "", "");
        row("only the first flow of the format is tried",
            av.left(1) + json("{'id':'unused','format':'F:video'},") + av.mid(1), NmosClient::Video,
            "", "");
    }

    void findsSenders()
    {
        QFETCH(const QByteArray, flows);
        QFETCH(const int, kind);
        QFETCH(const QString, preferredId);
        SimulatedNode node;
        node.setCollection("flows"_s, flows);
        node.setCollection(
            "senders"_s,
            json("[{'id':'n','flow_id':null},"
                 " {'id':'a','label':'A','flow_id':'fa','manifest_href':'http://a'},"
                 " {'id':'v','label':'V','flow_id':'fv','manifest_href':'http://v'},"
                 " {'id':'a','label':'2','flow_id':'fv','manifest_href':'http://2'}]"));
        NmosClient::SenderLookup sender{"earlier"_s, {}, "http://earlier"_s, {}, {}, {}};
        const bool found = NmosClient().findSender(node.host(), kind, &sender, preferredId);
        QTEST(found ? QString(sender.id + QLatin1Char(' ') + sender.label) : QString(), "found");
        QCOMPARE(sender.manifestHref, found ? QString("http://"_s + sender.id) : QString());
        QVERIFY(found ? sender.host == node.host() : sender.id != "earlier"_s);
    }

    void findsReceivers()
    {
        SimulatedNode node;
        node.setCollection("receivers"_s,
                           json("[{'id':'d','format':'F:data'},"
                                " {'id':'v','label':'V','format':'F:video'},"
                                " {'id':'a1','label':'A','format':'F:audio'},"
                                " {'id':'a2','format':'F:audio'}]"));
        NmosClient client;
        NmosClient::ReceiverLookup receiver;
        const auto found = [&](int kind, const char *id) {
            const bool result =
                client.findReceiver(node.host(), kind, &receiver, QString::fromLatin1(id));
            return result ? QString(receiver.id + receiver.label) : QString();
        };
        QCOMPARE(found(NmosClient::Data, ""), "d"_s);
        QCOMPARE(found(NmosClient::Audio, ""), "a1A"_s);
        QCOMPARE(receiver.host, node.host());
        QCOMPARE(found(NmosClient::Audio, "a2"), "a2"_s);
        QCOMPARE(found(NmosClient::Audio, "A2"), QString());
        QCOMPARE(found(9, ""), "vV"_s);
        QCOMPARE(found(NmosClient::Video, "a1"), QString());
        QCOMPARE(receiver.id, QString());
    }

    void fillsDeviceMembers()
    {
        SimulatedNode node;
        node.setCollection(
            "devices"_s,
            json(
                "[{'senders':null,'receivers':[7]}, {'senders':['v','a1','a2','a3','e','d'],"
                " 'receivers':['v','a1','a2','d']}, {'senders':['v','x'],'receivers':['v','x']}]"));
        node.setCollection("receivers"_s,
                           json("[{'id':'a1','format':'F:audio'}, {'id':'a2','format':'F:audio'},"
                                " {'id':'d','format':'F:data'}, {'id':'x','format':'F:data'}]"));
        node.setCollection("senders"_s,
                           json("[{'id':'a1','flow_id':'fa1'}, {'id':'a2','flow_id':'fa2'},"
                                " {'id':'a3','flow_id':'fa3'}, {'id':'e','flow_id':'fd'},"
                                " {'id':'d','flow_id':'fd'}, {'id':'x','flow_id':'fx'}]"));
        node.setCollection("flows"_s,
                           json("[{'id':'fx','format':'F:data'}, {'id':'fa1','format':'F:audio'},"
                                " {'id':'fa2','format':'F:audio'}, {'id':'fd','format':'F:data'},"
                                " {'id':'fa3','format':'F:audio'}]"));
        NmosClient::ReceiverLookup receiver = receiverOf(node, "v"_s);
        NmosClient::SenderLookup sender{"v"_s, {}, {}, node.host(), {}, {}};
        const auto fill = [&receiver, &sender, client = std::make_unique<NmosClient>()] {
            return client->fillDeviceReceivers(&receiver) && client->fillDeviceSenders(&sender);
        };
        QVERIFY(fill());
        QCOMPARE(receiver.audioReceiverId + receiver.dataReceiverId, "a2d"_s);
        QCOMPARE(sender.audioSenderId + sender.dataSenderId, "a2d"_s);

        receiver.id = sender.id = "in no device"_s;
        QVERIFY(fill());
        QCOMPARE(receiver.audioReceiverId + receiver.dataReceiverId, "a2d"_s);
        QCOMPARE(sender.audioSenderId + sender.dataSenderId, QString());

        sender.audioSenderId = "kept"_s;
        node.setCollection("senders"_s, "[]");
        QVERIFY(!fill());
        QCOMPARE(sender.audioSenderId, "kept"_s);
    }

    void connectsByteForByte()
    {
        const QByteArray sdp = QByteArray("v=0\r\ns=\"Caf\xc3\xa9~\" %1\n").replace('~', '\0');
        SimulatedNode node(NodeDescription::receiver());
        node.setResource("/sdp"_s, sdp, "text/plain");
        const QString receiverId = node.receiverIds(Essence::Video).value(0);
        const NmosClient::SenderLookup sender{"S-1"_s,     {}, node.baseUrl() + "/sdp"_s,
                                              node.host(), {}, {}};
        const NmosClient::ReceiverLookup receiver = receiverOf(node, receiverId);
        const QString staged = SimulatedNode::receiverStagedPath(receiverId);
        node.setFault(staged, Fault::status(202));
        NmosClient client;
        QVERIFY(client.connectReceiver(sender, receiver));
        QVERIFY(client.disconnectReceiver(receiver));
        QCOMPARE(node.requestLines(),
                 (QStringList{"GET /sdp"_s, "PATCH "_s + staged, "PATCH "_s + staged}));
        const auto patches = node.requests("PATCH"_s);
        QVERIFY(patches.at(0).headers.contains({"Content-Type", "application/json"}));
        QCOMPARE(
            patches.at(0).body,
            QByteArray("{\"activation\":{\"mode\":\"activate_immediate\",\"requested_time\":null},"
                       "\"master_enable\":true,\"sender_id\":\"S-1\",\"transport_file\":"
                       "{\"data\":\"v=0\\r\\ns=\\\"Caf\xc3\xa9\\u0000\\\" "
                       "%1\\n\",\"type\":\"application/sdp\"}}"));
        QCOMPARE(patches.at(1).body,
                 QByteArray(
                     "{\"activation\":{\"mode\":\"activate_immediate\",\"requested_time\":null},"
                     "\"master_enable\":false,\"transport_file\":{\"data\":null,\"type\":null}}"));
    }

    void activatesASenderWithoutSdp_data()
    {
        columns<Fault, Fault, QString>("manifestFault", "stagedFault", "sent");
        const Fault none = Fault::delay(0);
        const QString activated = "GET PATCH GET"_s;
        QTest::newRow("the manifest appears with the activation")
            << Fault::untilActivated() << none << activated;
        QTest::newRow("an empty manifest is none") << Fault::body({}).times(1) << none << activated;
        QTest::newRow("a redirect is no manifest")
            << Fault::status(302, "v=0").times(1) << none << activated;
        QTest::newRow("the activation is refused")
            << Fault::status(404) << Fault::status(423) << "GET PATCH, failed"_s;
        QTest::newRow("the manifest never appears")
            << Fault::status(404) << none << "GET PATCH GET, failed"_s;
    }

    void activatesASenderWithoutSdp()
    {
        QFETCH(const Fault, manifestFault);
        QFETCH(const Fault, stagedFault);
        QFETCH(const QString, sent);
        const bool connected = !sent.contains(QLatin1Char(','));
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

        QString error = "as it was"_s;
        QCOMPARE(client.connectReceiver(sender, receiver, &error), connected);
        QCOMPARE(error, connected ? "as it was"_s : "Failed to fetch Sender SDP."_s);
        QStringList methods = tx.requestLines();
        methods.replaceInStrings(QRegularExpression(" .*"_s), QString());
        QCOMPARE(methods.join(QLatin1Char(' ')), sent.section(QLatin1Char(','), 0, 0));
        QCOMPARE(tx.requests("PATCH"_s).value(0).body,
                 QByteArray("{\"activation\":{\"mode\":\"activate_immediate\"}}"));
        QCOMPARE(rx.requests().size(), connected ? 1 : 0);
        error.clear();
        const bool activated = client.activateSender(sender, &error);
        QCOMPARE(error.isEmpty(), activated);
    }

    void reportsRefusedPatches()
    {
        SimulatedNode node(NodeDescription::receiver());
        const QString id = node.receiverIds(Essence::Video).value(0);
        const auto error = [&](const Fault &fault, bool accepted) {
            node.setFault(SimulatedNode::receiverStagedPath(id), fault);
            QString text = "as it was"_s;
            const bool done = NmosClient().disconnectReceiver(receiverOf(node, id), &text);
            return done == accepted ? text : "not so"_s;
        };
        for (const int status : {200, 204, 206, 299}) {
            QCOMPARE(error(Fault::status(status), true), "as it was"_s);
        }
        QCOMPARE(error(Fault::redirect("/x"), false), "as it was"_s);
        const auto refused = error(Fault::status(400, "<b>no</b>", "text/html"), false);
        QVERIFY2(refused.endsWith("server replied: Bad Request"_s), qPrintable(refused));
        QVERIFY(error(Fault::status(423), false).endsWith("server replied: Locked"_s));
        QVERIFY(error(Fault::status(500), false).endsWith("Internal Server Error"_s));
        QCOMPARE(error(Fault::reset(), false), "Connection closed"_s);
    }

    void readsStagedSdp()
    {
        SimulatedNode node;
        const LogRecorder log;
        QString sdp;
        // Whether there is one, the text, and how many warnings there were.
        const auto read = [&](const Fault &staged) {
            node.setFault(SimulatedNode::receiverStagedPath("r"_s), staged);
            log.lines().clear();
            sdp = "before"_s;
            const bool found = NmosClient().fetchReceiverSdp(receiverOf(node, "r"_s), &sdp);
            const int warnings = log.lines().filter("Unable to connect:"_s).size();
            return QString((found ? "+"_s : "-"_s) + sdp + QString::number(warnings));
        };
        const QByteArray text = json("{'transport_file':{'data':' v=0\\r\\n'}}");
        QCOMPARE(read(Fault::body(text)), "+ v=0\r\n0"_s);
        QCOMPARE(read(Fault::body(json("{'transport_file':{'data':null}}"))), "-before0"_s);
        QCOMPARE(read(Fault::body(json("{'transport_file':{}}"))), "+0"_s);
        QCOMPARE(read(Fault::body(json("{'transport_file':{'data':[1]}}"))), "+0"_s);
        QCOMPARE(read(Fault::body(json("{'a':1}"))), "+0"_s);
        QCOMPARE(read(Fault::body("{}")), "-before0"_s);
        QCOMPARE(read(Fault::body("[{}]")), "-before0"_s);
        QCOMPARE(read(Fault::body(text.chopped(4))), "-before0"_s);
        QCOMPARE(read(Fault::status(302, text)), "-before1"_s);
        QCOMPARE(read(Fault::status(404, text)), "-before1"_s);
    }
};

NODEPATCH_TEST_MAIN(TestNmosClient)
#include "tst_nmosclient.moc"
