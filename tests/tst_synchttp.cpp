// The synchronous requests against real nodes: what is sent, and what ends a wait.

#include "SimulatedNode.h"
#include "net/NodeRequest.h"
#include "net/SyncHttp.h"
#include "support/LogRecorder.h"
#include "support/RawServer.h"
#include "support/TestMain.h"

#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkInterface>
#include <QNetworkReply>
#include <QProcess>

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
    void init();
    void cleanup();
    void normalizesUrls_data();
    void normalizesUrls();
    void requestsHttpOnly_data();
    void requestsHttpOnly();
    void refusesTheFifthNestedRequest();
    void endsAResponseThatIsTooLarge();
    void unpacksBodies_data();
    void unpacksBodies();
    void keepsPatchesOffStalledConnections();
    void survivesTheEndOfItsManager();
    void sendsNothingWhileTheProgramCloses();

private:
    std::unique_ptr<QNetworkAccessManager> manager;
};

void TestSyncHttp::init()
{
    manager = std::make_unique<QNetworkAccessManager>();
}

void TestSyncHttp::cleanup()
{
    // No reply outlives its request.
    QTRY_VERIFY(!manager || manager->findChildren<QNetworkReply *>().isEmpty());
    QCOMPARE(requestActivity().levels, 0);
}

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
    row("a fragment may follow the authority", "http://::1:80#a", "http://[::1]:80#a");
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
    row("unless an interface is called so", "http://fe80::1%25g0:80/",
        "http://[fe80::1%2525g0]:80/");
}

void TestSyncHttp::normalizesUrls()
{
    QFETCH(const QString, url);
    QFETCH(const QString, normalized);
    if (url.contains(QLatin1String("%25g0"))) {
        const QString add = QStringLiteral("link add 25g0 type veth peer name 25g1");
        if (QNetworkInterface::interfaceIndexFromName(QStringLiteral("vx0")) == 0
            || QProcess::execute(QStringLiteral("ip"), add.split(QLatin1Char(' '))) != 0) {
            QSKIP("needs a network namespace of its own (scripts/with-network)");
        }
    }
    QCOMPARE(normalizeUrl(url), normalized);
    QCOMPARE(normalizeUrl(normalized), normalized);
}

void TestSyncHttp::requestsHttpOnly_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QUrl>("url"); // invalid: none
    const auto row = [](const char *name, const char *text, const char *url = "") {
        QTest::newRow(name) << QString::fromLatin1(text) << QUrl(QString::fromLatin1(url));
    };
    row("a secure address", "https://cam.local/x?y=%20", "https://cam.local/x?y=%20");
    row("an address without its scheme", "192.0.2.1:80/x", "http://192.0.2.1:80/x");
    row("an address among blanks", " http://192.0.2.1/x\n", "http://192.0.2.1/x");
    row("a local file", "file:///etc/hostname");
    row("a path", "/etc/hostname");
    row("a resource of the program", "qrc:/src/styles/DarkBlue.qss");
    row("inline data", "data:text/plain,v=0");
    row("a host with a blank", "http://127.0.0.1:80 studio/x");
    row("nothing", "");
}

void TestSyncHttp::requestsHttpOnly()
{
    QFETCH(const QString, text);
    QFETCH(const QUrl, url);
    QCOMPARE(requestUrl(text), url);
    if (!url.isValid()) {
        int status = -1;
        QString error;
        QCOMPARE(syncGet(manager.get(), text, &status, &error), QByteArray());
        QCOMPARE(status, -1);
        QCOMPARE(error, QString(QStringLiteral("Not an HTTP address: ") + text));
    }
}

void TestSyncHttp::refusesTheFifthNestedRequest()
{
    SimulatedNode node;
    const QString path = QStringLiteral("/slow");
    node.setResource(path, "answer");
    node.setFault(path, Fault::hang());
    QByteArrayList bodies;
    std::function<void()> nest = [&] {
        int status = -1;
        QString error;
        const int levels = requestActivity().levels;
        if (levels < maximumLevels) {
            QTimer::singleShot(0, manager.get(), nest);
        }
        if (levels < maximumLevels - 1) {
            bodies.append(syncGet(manager.get(), node.baseUrl() + path));
        } else if (levels < maximumLevels) {
            // It leaves the connections of the others alone.
            QVERIFY(!syncPatchJson(manager.get(), QUrl(node.baseUrl() + path), {}, &status));
            QCOMPARE(status, 404);
        } else {
            QCOMPARE(syncGet(manager.get(), node.baseUrl() + path, &status, &error), QByteArray());
            QCOMPARE(error, QStringLiteral("Reentrant call depth exceeded"));
            error.clear();
            QVERIFY(!syncPatchJson(manager.get(), QUrl(node.baseUrl()), {}, &status, &error));
            QCOMPARE(error, QStringLiteral("Reentrant call depth exceeded"));
            QCOMPARE(status, -1);
            QCOMPARE(requestActivity().levels, 4);
            node.clearFaults();
        }
    };
    nest();
    QCOMPARE(bodies, (QByteArrayList{"answer", "answer", "answer"}));
    QCOMPARE(node.requests().size(), 4);
}

void TestSyncHttp::endsAResponseThatIsTooLarge()
{
    SimulatedNode node;
    node.setFault(QStringLiteral("/flood"), Fault::flood(0));
    int status = -1;
    QString error;
    QCOMPARE(syncGet(manager.get(), node.baseUrl() + QStringLiteral("/flood"), &status, &error),
             QByteArray());
    QCOMPARE(status, -1);
    QCOMPARE(error, QStringLiteral("The response is too large"));

    // Qt's network thread has let go of it too, and serves the next request.
    QVERIFY(!syncGet(manager.get(), node.baseUrl() + QStringLiteral("/x-nmos/node/v1.3/self"),
                     &status, &error)
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
    QTest::newRow("gzip by its old name")
        << QByteArray("x-gzip") << gzip(text) << text << QString();
    QTest::newRow("nothing, but packed")
        << QByteArray("gzip") << QByteArray() << QByteArray() << QString();
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
    QString error;
    QCOMPARE(syncGet(manager.get(), node.baseUrl() + QStringLiteral("/packed"), nullptr, &error),
             text);
    QCOMPARE(error, failure);
    QVERIFY(node.requests().constFirst().headers.contains({"Accept-Encoding", "gzip, deflate"}));
}

void TestSyncHttp::keepsPatchesOffStalledConnections()
{
    // Header and body of a PATCH leave in two segments: on a connection that was in use before, the
    // second would wait for a delayed acknowledgement. Each PATCH has a connection of its own.
    const RawServer server(httpAnswer({}));
    const QString url = QLatin1String("http://") + server.host();
    syncGet(manager.get(), url);
    QCOMPARE(server.connections, 1);
    QVERIFY(syncPatchJson(manager.get(), QUrl(url), {}));
    QCOMPARE(server.connections, 2);
}

void TestSyncHttp::survivesTheEndOfItsManager()
{
    const RawServer silent;
    QString error;
    QTimer::singleShot(0, this, [this] { manager.reset(); });
    syncGet(manager.get(), QLatin1String("http://") + silent.host(), nullptr, &error);
    QCOMPARE(error, QStringLiteral("The request was dropped"));
}

void TestSyncHttp::sendsNothingWhileTheProgramCloses()
{
    const RawServer silent;
    const QString url = QLatin1String("http://") + silent.host();
    const LogRecorder log;
    QStringList errors{{}, {}, {}};
    QTimer::singleShot(0, this, [this, url, &errors] {
        QTimer::singleShot(0, qApp, &QCoreApplication::quit);
        syncGet(manager.get(), url, nullptr, &errors[0]);
        QVERIFY(requestActivity().closing);
        syncGet(manager.get(), url, nullptr, &errors[1]);
        syncPatchJson(manager.get(), QUrl(url), {}, nullptr, &errors[2]);
    });
    QCoreApplication::exec();
    const QString closing = QStringLiteral("The program is closing");
    QCOMPARE(errors, QStringList({closing, closing, closing}));
    QVERIFY(!requestActivity().closing);
    QCOMPARE(log.lines(), QStringList());
}

NODEPATCH_TEST_MAIN(TestSyncHttp)
#include "tst_synchttp.moc"
