// The synchronous requests against real nodes: what is sent, and what ends a wait.

#include "SimulatedNode.h"
#include "nmos/RequestUrl.h"
#include "nmos/SyncHttp.h"
#include "support/TestMain.h"

#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>

#include <zlib.h>

namespace {

// A body as qCompress() and RFC 1950 have it, in the wrapper of RFC 1952.
QByteArray gzip(const QByteArray &text)
{
    const auto littleEndian = [](quint32 number) {
        const quint32 bytes = qToLittleEndian(number);
        return QByteArray(reinterpret_cast<const char *>(&bytes), sizeof bytes);
    };
    const auto *data = reinterpret_cast<const Bytef *>(text.constData());
    const auto size = static_cast<uInt>(text.size());
    return QByteArray::fromHex("1f8b0800000000000003") + qCompress(text).mid(6).chopped(4)
        + littleEndian(static_cast<quint32>(crc32(0, data, size))) + littleEndian(size);
}

} // namespace

class TestSyncHttp final : public QObject {
    Q_OBJECT

private slots:
    void normalizesUrls_data();
    void normalizesUrls();
    void requestsNothingButHttp_data();
    void requestsNothingButHttp();
    void refusesTheFifthNestedRequest();
    void endsAResponseThatIsTooLarge();
    void unpacksBodies_data();
    void unpacksBodies();
    void keepsPatchesOffStalledConnections();
    void readsNothingOfAnAbortedReply();
};

void TestSyncHttp::normalizesUrls_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<QString>("normalized");
    const auto row = [](const char *name, const char *url, const char *normalized) {
        QTest::newRow(name) << QString::fromLatin1(url) << QString::fromLatin1(normalized);
    };
    row("an IPv6 host gets brackets", "http://fe80::1:8080/x?y#z", "http://[fe80::1]:8080/x?y#z");
    row("a last group that is no integer is no port", "http://fe80::a:b/", "http://[fe80::a:b]/");
    row("the authority may end the text", "http://::1:80", "http://[::1]:80");
    row("a query may follow the authority", "http://::1:80?a::b", "http://[::1]:80?a::b");
    row("a bracketed host stays", "http://[fe80::1]:8080/x", "http://[fe80::1]:8080/x");
    row("an IPv4 host stays", "http://10.0.0.5:80/a::b", "http://10.0.0.5:80/a::b");
    row("a name stays", "https://cam.local:80/", "https://cam.local:80/");
    row("a literal without a run of zeros stays", "http://1:2:3:4:5:6:7:8:80/",
        "http://1:2:3:4:5:6:7:8:80/");
    row("text without a scheme stays", "fe80::1:8080/x", "fe80::1:8080/x");
    row("a zone is carried before the port", "http://fe80::1%eth0:8080/x",
        "http://[fe80::1%25eth0]:8080/x");
    row("a zone may stand without a port", "http://fe80::1%eth0/x", "http://[fe80::1%25eth0]/x");
    row("a zone may be a number", "http://fe80::1%25:80/", "http://[fe80::1%2525]:80/");
    row("a zone may be encoded already", "http://fe80::1%25eth0:80/",
        "http://[fe80::1%25eth0]:80/");
}

void TestSyncHttp::normalizesUrls()
{
    QFETCH(const QString, url);
    QFETCH(const QString, normalized);
    QCOMPARE(normalizeUrl(url), normalized);
    QCOMPARE(normalizeUrl(normalized), normalized);
}

void TestSyncHttp::requestsNothingButHttp_data()
{
    QTest::addColumn<QString>("url");
    QTest::newRow("a local file") << QStringLiteral("file:///etc/hostname");
    QTest::newRow("a path") << QStringLiteral("/etc/hostname");
    QTest::newRow("a resource of the program") << QStringLiteral("qrc:/src/styles/DarkBlue.qss");
    QTest::newRow("inline data") << QStringLiteral("data:text/plain,v=0");
    QTest::newRow("a host with a blank") << QStringLiteral("http://127.0.0.1:80 studio/x");
    QTest::newRow("nothing") << QString();
}

void TestSyncHttp::requestsNothingButHttp()
{
    QFETCH(const QString, url);
    QNetworkAccessManager manager;
    int status = -1;
    QString error;
    QCOMPARE(syncGet(&manager, url, &status, &error), QByteArray());
    QCOMPARE(status, -1);
    QVERIFY(!error.isEmpty());
}

void TestSyncHttp::refusesTheFifthNestedRequest()
{
    SimulatedNode node;
    const QString path = QStringLiteral("/slow");
    node.setResource(path, "answer");
    node.setFault(path, Fault::hang());
    QNetworkAccessManager manager;
    QByteArrayList bodies;
    std::function<void()> nest = [&] {
        if (requestActivity().depth < maximumRequestDepth) {
            QTimer::singleShot(0, &manager, nest);
            bodies.append(syncGet(&manager, node.baseUrl() + path));
            return;
        }
        int status = -1;
        QString error;
        QCOMPARE(syncGet(&manager, node.baseUrl() + path, &status, &error), QByteArray());
        QCOMPARE(error, QStringLiteral("Reentrant call depth exceeded"));
        error.clear();
        QVERIFY(!syncPatchJson(&manager, QUrl(node.baseUrl()), {}, &status, &error));
        QCOMPARE(error, QStringLiteral("Reentrant call depth exceeded"));
        QCOMPARE(status, -1);
        QCOMPARE(requestActivity().depth, maximumRequestDepth);
        node.clearFaults();
    };
    nest();
    QCOMPARE(bodies, (QByteArrayList{"answer", "answer", "answer", "answer"}));
    QCOMPARE(requestActivity().depth, 0);
    QCOMPARE(node.requests().size(), 4);
}

void TestSyncHttp::endsAResponseThatIsTooLarge()
{
    SimulatedNode node;
    node.setFault(QStringLiteral("/flood"), Fault::flood(0));
    QNetworkAccessManager manager;
    int status = -1;
    QString error;
    QCOMPARE(syncGet(&manager, node.baseUrl() + QStringLiteral("/flood"), &status, &error),
             QByteArray());
    QCOMPARE(status, -1);
    QCOMPARE(error, QStringLiteral("The response is too large"));

    // Qt's network thread has let go of it too, and serves the next request.
    QVERIFY(!syncGet(&manager, node.baseUrl() + QStringLiteral("/x-nmos/node/v1.3/self"), &status,
                     &error)
                 .isEmpty());
    QCOMPARE(status, 200);
}

void TestSyncHttp::unpacksBodies_data()
{
    QTest::addColumn<QByteArray>("encoding");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QString>("failure");
    const QByteArray text(3000000, ' ');
    const auto zlib = [](const QByteArray &unpacked) {
        return qCompress(unpacked).mid(4);
    };
    const QByteArray deflated = zlib(text).mid(2).chopped(4);
    QTest::newRow("not packed") << QByteArray("identity") << text << text << QString();
    QTest::newRow("gzip") << QByteArray("GZIP") << gzip(text) << text << QString();
    QTest::newRow("deflate") << QByteArray("deflate") << zlib(text) << text << QString();
    QTest::newRow("deflate without its wrapper")
        << QByteArray("deflate") << deflated << text << QString();
    const QString broken = QStringLiteral("The response cannot be unpacked");
    QTest::newRow("not what it says") << QByteArray("gzip") << text << QByteArray() << broken;
    QTest::newRow("cut short") << QByteArray("gzip") << gzip(text).chopped(20) << QByteArray()
                               << broken;
    QTest::newRow("unpacks to too much")
        << QByteArray("gzip") << gzip(QByteArray(maximumResponseBody + 1, ' ')) << QByteArray()
        << QStringLiteral("The response is too large");
}

void TestSyncHttp::unpacksBodies()
{
    QFETCH(QByteArray, encoding);
    QFETCH(QByteArray, body);
    QFETCH(QByteArray, text);
    QFETCH(QString, failure);
    SimulatedNode node;
    node.setFault(QStringLiteral("/packed"), Fault::body(body).encoded(encoding));
    QNetworkAccessManager manager;
    QString error;
    QCOMPARE(syncGet(&manager, node.baseUrl() + QStringLiteral("/packed"), nullptr, &error), text);
    QCOMPARE(error, failure);
    QVERIFY(node.requests().constFirst().headers.contains({"Accept-Encoding", "gzip, deflate"}));
}

void TestSyncHttp::keepsPatchesOffStalledConnections()
{
    // Header and body of a PATCH leave in two segments: on a connection that was in use before, the
    // second would wait for a delayed acknowledgement. Each PATCH has a connection of its own.
    QTcpServer server;
    QVERIFY(server.listen(QHostAddress::LocalHost));
    int connections = 0;
    connect(&server, &QTcpServer::newConnection, this, [&server, &connections] {
        ++connections;
        QTcpSocket *socket = server.nextPendingConnection();
        connect(socket, &QTcpSocket::readyRead, socket, [socket] {
            const QByteArray end = socket->peek(3) == "GET" ? "\r\n\r\n" : "{}";
            if (socket->peek(socket->bytesAvailable()).endsWith(end)) {
                socket->readAll();
                socket->write("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");
            }
        });
    });
    QNetworkAccessManager manager;
    const QString url = QStringLiteral("http://127.0.0.1:%1/").arg(server.serverPort());
    syncGet(&manager, url);
    QCOMPARE(connections, 1);
    QVERIFY(syncPatchJson(&manager, QUrl(url), {}));
    QCOMPARE(connections, 2);
}

void TestSyncHttp::readsNothingOfAnAbortedReply()
{
    static QStringList warnings;
    const auto previous = qInstallMessageHandler(
        [](QtMsgType, const QMessageLogContext &, const QString &text) { warnings += text; });
    SimulatedNode node;
    node.setFault(QStringLiteral("*"), Fault::hang());
    QNetworkAccessManager manager;
    QString error;
    QTimer::singleShot(0, &manager, [&manager, &node, &error] {
        QTimer::singleShot(0, qApp, &QCoreApplication::quit);
        syncGet(&manager, node.baseUrl(), nullptr, &error);
    });
    QCoreApplication::exec();
    qInstallMessageHandler(previous);
    QCOMPARE(error, QStringLiteral("The program is closing"));
    QCOMPARE(warnings, QStringList());
}

NODEPATCH_TEST_MAIN(TestSyncHttp)
#include "tst_synchttp.moc"
