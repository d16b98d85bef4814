#include "SimulatedNode.h"
#include "support/TestMain.h"

#include <QJsonDocument>
#include <QTcpSocket>

#include <poll.h>
#include <sys/socket.h>

Q_DECLARE_METATYPE(Fault)

namespace {

QByteArray httpRequest(const QByteArray &method, const QString &path, const QByteArray &body = {})
{
    return method + ' ' + path.toUtf8() + " HTTP/1.1\r\nHost: node\r\nAccept-Encoding: gzip\r\n"
        + "Content-Length: " + QByteArray::number(body.size()) + "\r\n\r\n" + body;
}

// A raw connection to a node, so that the test sees what is on the wire.
class Client {
public:
    explicit Client(const SimulatedNode &node)
    {
        socket.connectToHost(node.address(), node.port());
        socket.waitForConnected();
    }

    void send(const QByteArray &method, const QString &path, const QByteArray &body = {})
    {
        received.clear();
        socket.write(httpRequest(method, path, body));
    }

    // Reads until a whole answer is there or the connection has ended.
    QByteArray answer()
    {
        while (!isWhole() && socket.waitForReadyRead(5000)) {
            received += socket.readAll();
        }
        return received;
    }

    QByteArray exchange(const QByteArray &method, const QString &path, const QByteArray &body = {})
    {
        send(method, path, body);
        return answer();
    }

    QByteArray body() const
    {
        return received.mid(received.indexOf("\r\n\r\n") + 4);
    }

    int contentLength() const
    {
        const int at = received.indexOf("Content-Length: ");
        return at < 0 ? -1 : received.mid(at + 16, received.indexOf('\r', at) - at - 16).toInt();
    }

    QTcpSocket socket;

private:
    bool isWhole() const
    {
        return received.contains("\r\n\r\n") && contentLength() == body().size();
    }

    QByteArray received;
};

QByteArray connectBody(const QString &senderId, const QByteArray &sdp)
{
    const QJsonObject body{
        {QStringLiteral("sender_id"), senderId},
        {QStringLiteral("master_enable"), true},
        {QStringLiteral("transport_file"),
         QJsonObject{{QStringLiteral("data"), QString::fromUtf8(sdp)},
                     {QStringLiteral("type"), QStringLiteral("application/sdp")}}},
        {QStringLiteral("activation"),
         QJsonObject{{QStringLiteral("mode"), QStringLiteral("activate_immediate")},
                     {QStringLiteral("requested_time"), QJsonValue()}}}};
    return QJsonDocument(body).toJson(QJsonDocument::Compact);
}

} // namespace

class TestPlant final : public QObject {
    Q_OBJECT

private slots:
    void activatesWhatIsPatched();
    void answersAsTheApisSay_data();
    void answersAsTheApisSay();
    void sendsWhatTheFaultSays_data();
    void sendsWhatTheFaultSays();
    void endsConnectionsAsTheFaultSays_data();
    void endsConnectionsAsTheFaultSays();
    void cutsBodiesShort();
    void showsManifestsOnceActivated();
    void limitsFaultsToMethodAndNumber();
    void waitsForNobodyWhenItEnds_data();
    void waitsForNobodyWhenItEnds();
    void logsRequestsAsSent();
    void keepsPortAndStateOverARestart();

private:
    const QString senders = SimulatedNode::collectionPath(QStringLiteral("senders"));
};

void TestPlant::activatesWhatIsPatched()
{
    const SimulatedNode tx;
    const SimulatedNode rx(NodeDescription::receiver(), QHostAddress(QHostAddress::LocalHostIPv6));
    const QString senderId = tx.senderIds(Essence::Audio).value(0);
    const QString receiverId = rx.receiverIds(Essence::Audio).value(0);
    const QByteArray sdp = tx.manifest(senderId);
    const QString path = SimulatedNode::receiverStagedPath(receiverId);
    const auto subscription = [&rx] {
        return rx.collection(QStringLiteral("receivers")).at(1)[QStringLiteral("subscription")];
    };

    Client client(rx);
    QVERIFY(client.exchange("PATCH", path, connectBody(senderId, sdp)).startsWith("HTTP/1.1 200 "));
    const QJsonObject active = rx.receiverActive(receiverId);
    QCOMPARE(active[QStringLiteral("sender_id")].toString(), senderId);
    const QJsonValue leg = active[QStringLiteral("transport_params")][0];
    QVERIFY(sdp.contains("c=IN IP4 " + leg[QStringLiteral("multicast_ip")].toString().toUtf8()));
    QCOMPARE(leg[QStringLiteral("source_ip")].toString(), tx.address().toString());
    QCOMPARE(subscription()[QStringLiteral("sender_id")].toString(), senderId);

    client.exchange("PATCH", path,
                    R"({"master_enable":false,"activation":{"mode":"activate_immediate"}})");
    QVERIFY(!rx.receiverActive(receiverId)[QStringLiteral("master_enable")].toBool(true));
    QVERIFY(subscription()[QStringLiteral("sender_id")].isNull());
}

void TestPlant::answersAsTheApisSay_data()
{
    QTest::addColumn<QByteArray>("method");
    QTest::addColumn<QString>("path"); // %1: the id of an audio receiver
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QByteArray>("part"); // of the answer
    const QString node = QStringLiteral("/x-nmos/node/v1.3/");
    const QString connection = QStringLiteral("/x-nmos/connection/v1.1/");
    const QString receiver = connection + QStringLiteral("single/receivers/%1");
    const QString staged = receiver + QStringLiteral("/staged");
    const auto row = [](const char *title, const char *method, const QString &path,
                        const QByteArray &body, const char *part) {
        QTest::newRow(title) << QByteArray(method) << path << body << QByteArray(part);
    };
    const auto patch = [&](const char *title, const QByteArray &body, const char *part) {
        row(title, "PATCH", staged, body, part);
    };
    row("a listing", "GET", QStringLiteral("/x-nmos"), {}, R"(["connection/","node/"])");
    row("one of a collection", "GET", node + QStringLiteral("receivers/%1"), {}, "{\"caps\":");
    row("an unknown id", "GET", node + QStringLiteral("senders/%1"), {}, " 404 ");
    row("an unknown path", "GET", QStringLiteral("/%1"), {}, "\"code\":404");
    row("a method that a path does not have", "POST", node, {}, " 405 ");
    row("constraints", "GET", receiver + QStringLiteral("/constraints"), {},
        R"("interface_ip":{"enum":["127.0.0.1"]})");
    patch("a scheduled activation",
          R"({"activation":{"mode":"activate_scheduled_relative","requested_time":"1:0"}})",
          " 501 ");
    patch("what is staged only", R"({"master_enable":true})", "\"master_enable\":true");
    patch("no JSON", "{", " 400 ");
    patch("an unknown member", R"({"receiver_id":null})", "receiver_id");
    patch("an activation without a mode", R"({"activation":{"requested_time":null}})", " 400 ");
    patch("a transport file without a type", R"({"transport_file":{"data":"v=0"}})", " 400 ");
    patch("a transport file that is no SDP",
          R"({"transport_file":{"data":"v=0","type":"application/sdp"}})", "not a usable SDP");
    const SimulatedNode tx;
    const QString video = tx.senderIds().value(0);
    patch("the SDP of another format", connectBody(video, tx.manifest(video)), "another format");
    patch("a parameter that is not valid", R"({"transport_params":[{"destination_port":0}]})",
          "destination_port");
    patch("two legs", R"({"transport_params":[{},{}]})", " 400 ");
}

void TestPlant::answersAsTheApisSay()
{
    QFETCH(QByteArray, method);
    QFETCH(QString, path);
    QFETCH(QByteArray, body);
    QFETCH(QByteArray, part);
    const SimulatedNode node(NodeDescription::receiver());
    const QString id = node.receiverIds(Essence::Audio).value(0);
    const QJsonObject before = node.receiverActive(id);
    Client client(node);
    const QString requested = path.contains(QStringLiteral("%1")) ? path.arg(id) : path;
    const QByteArray answer = client.exchange(method, requested, body);
    QVERIFY2(answer.contains(part), answer.constData());
    QVERIFY(answer.contains("Access-Control-Allow-Origin: *"));
    QCOMPARE(node.receiverActive(id), before);
}

void TestPlant::sendsWhatTheFaultSays_data()
{
    QTest::addColumn<Fault>("fault");
    QTest::addColumn<QByteArray>("part"); // of the answer
    QTest::addColumn<int>("size"); // of the body; -1: that of the right answer
    QTest::newRow("status with the NMOS error object")
        << Fault::status(423) << QByteArray("\"code\":423") << 58;
    QTest::newRow("status with a page of HTML")
        << Fault::status(500, "<h1>", "text/html") << QByteArray("Content-Type: text/html") << 4;
    QTest::newRow("body that is no JSON") << Fault::body("[{") << QByteArray("HTTP/1.1 200 ") << 2;
    QTest::newRow("redirect that leads elsewhere")
        << Fault::redirect("http://127.0.0.1:9/") << QByteArray("Location: http://127.0.0.1:9/")
        << 0;
    QTest::newRow("right answer in drips") << Fault::drip(0) << QByteArray("HTTP/1.1 200 ") << -1;
    QTest::newRow("large body") << Fault::flood(3000000) << QByteArray("Content-Length: 3000000")
                                << 3000000;
}

void TestPlant::sendsWhatTheFaultSays()
{
    QFETCH(Fault, fault);
    QFETCH(QByteArray, part);
    QFETCH(int, size);
    SimulatedNode node;
    Client right(node);
    right.exchange("GET", senders);
    node.setFault(senders, fault);
    Client client(node);
    const QByteArray answer = client.exchange("GET", senders);
    QVERIFY2(answer.contains(part), answer.left(300).constData());
    QCOMPARE(client.body().size(), size < 0 ? right.body().size() : size);
}

void TestPlant::endsConnectionsAsTheFaultSays_data()
{
    QTest::addColumn<Fault>("fault");
    QTest::addColumn<int>("error"); // of recv(); 0: it says that the peer has closed
    QTest::newRow("reset") << Fault::reset() << ECONNRESET;
    QTest::newRow("closed in good order") << Fault::drop() << 0;
}

void TestPlant::endsConnectionsAsTheFaultSays()
{
    QFETCH(Fault, fault);
    QFETCH(int, error);
    SimulatedNode node;
    node.setFault(senders, fault);
    Client client(node);
    client.send("GET", senders);
    client.socket.waitForBytesWritten();
    // QTcpSocket tells both apart by its error text only.
    pollfd end{static_cast<int>(client.socket.socketDescriptor()), POLLIN, 0};
    QCOMPARE(::poll(&end, 1, 5000), 1);
    char byte = 0;
    errno = 0;
    QVERIFY(::recv(end.fd, &byte, 1, 0) <= 0);
    QCOMPARE(errno, error);
}

void TestPlant::cutsBodiesShort()
{
    SimulatedNode node;
    node.setFault(QStringLiteral("/x-nmos/node/*"), Fault::truncate());
    Client client(node);
    client.exchange("GET", senders);
    QCOMPARE(client.body().size(), client.contentLength() / 2);
    QCOMPARE(client.socket.error(), QAbstractSocket::RemoteHostClosedError);
}

void TestPlant::showsManifestsOnceActivated()
{
    SimulatedNode node;
    const QString id = node.senderIds().value(0);
    node.setFault(SimulatedNode::manifestPath(id), Fault::untilActivated());
    Client client(node);
    const QByteArray immediate = R"({"activation":{"mode":"activate_immediate"}})";
    QVERIFY(client.exchange("GET", SimulatedNode::manifestPath(id)).startsWith("HTTP/1.1 404 "));
    client.exchange("PATCH", SimulatedNode::senderStagedPath(node.senderIds().value(1)), immediate);
    QVERIFY(client.exchange("GET", SimulatedNode::manifestPath(id)).startsWith("HTTP/1.1 404 "));
    client.exchange("PATCH", SimulatedNode::senderStagedPath(id), immediate);
    client.exchange("GET", SimulatedNode::manifestPath(id));
    QCOMPARE(client.body(), node.manifest(id));
}

void TestPlant::limitsFaultsToMethodAndNumber()
{
    SimulatedNode node;
    node.setFault(senders, Fault::status(503).onMethod("GET").times(2));
    Client client(node);
    for (const char *status : {" 405 ", " 503 ", " 503 ", " 200 "}) {
        const QByteArray method = qstrcmp(status, " 405 ") == 0 ? "POST" : "GET";
        QVERIFY(client.exchange(method, senders).startsWith(QByteArray("HTTP/1.1") + status));
    }
}

void TestPlant::waitsForNobodyWhenItEnds_data()
{
    constexpr int day = 24 * 3600 * 1000;
    QTest::addColumn<Fault>("fault");
    QTest::newRow("requests that hang") << Fault::hang();
    QTest::newRow("requests that are delayed") << Fault::delay(day);
    QTest::newRow("bodies that drip") << Fault::drip(day);
    QTest::newRow("floods that nobody reads") << Fault::flood(0);
}

void TestPlant::waitsForNobodyWhenItEnds()
{
    QFETCH(Fault, fault);
    std::vector<std::unique_ptr<Client>> waiting;
    SimulatedNode node;
    node.setFault(senders, fault);
    for (int count = 0; count < 30; ++count) {
        waiting.push_back(std::make_unique<Client>(node));
        waiting.back()->send("GET", senders);
        waiting.back()->socket.waitForBytesWritten();
    }
    QTRY_COMPARE(node.requests().size(), 30);
    Client client(node);
    QVERIFY(client.exchange("GET", QStringLiteral("/x-nmos")).startsWith("HTTP/1.1 200 "));
    node.stop();
    QVERIFY(!node.isListening());
    waiting.front()->answer();
    QVERIFY(waiting.front()->socket.error() == QAbstractSocket::RemoteHostClosedError);
}

void TestPlant::logsRequestsAsSent()
{
    SimulatedNode node;
    Client client(node);
    client.exchange("PATCH", QStringLiteral("/a%20b?c=%2F"), "body");
    QCOMPARE(node.requestLines(), QStringList{QStringLiteral("PATCH /a%20b?c=%2F")});
    const LoggedRequest request = node.requests().value(0);
    QCOMPARE(request.body, QByteArray("body"));
    QVERIFY(request.headers.contains({"Accept-Encoding", "gzip"}));
    QCOMPARE(request.headers.size(), 3);
}

void TestPlant::keepsPortAndStateOverARestart()
{
    SimulatedNode node;
    node.setCollection(QStringLiteral("senders"), QByteArray("[7]"));
    const QString host = node.host();
    node.stop();
    QCOMPARE(Client(node).socket.error(), QAbstractSocket::ConnectionRefusedError);
    QVERIFY(node.start());
    QCOMPARE(node.host(), host);
    const SimulatedNode rival(NodeDescription::transmitter(), node.address(), node.port());
    QVERIFY(!rival.isListening());
    Client client(node);
    client.exchange("GET", senders.chopped(1));
    QCOMPARE(client.body(), QByteArray("[7]"));
}

NODEPATCH_TEST_MAIN(TestPlant)
#include "tst_plant.moc"
