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
    void init()
    {
        manager = std::make_unique<QNetworkAccessManager>();
    }

    void cleanup()
    {
        // No reply outlives its request.
        QTRY_VERIFY(!manager || manager->findChildren<QNetworkReply *>().isEmpty());
        QCOMPARE(requestActivity().levels, 0);
    }

    void normalizesUrls_data()
    {
        columns<QString, QString>("url", "normalized");
        const auto row = [](const char *url, const char *normalized) {
            QTest::newRow(url) << QString::fromLatin1(url) << QString::fromLatin1(normalized);
        };
        row("http://fe80::1:8080/x?y#z", "http://[fe80::1]:8080/x?y#z");
        row("http://fe80::a:b/", "http://[fe80::a:b]/"); // no integer, so no port
        row("http://::1:80", "http://[::1]:80");
        row("http://::1:80#a", "http://[::1]:80#a");
        row("http://::1:80?a::b", "http://[::1]:80?a::b");
        row("http://[fe80::1]:8080/x", "http://[fe80::1]:8080/x");
        row("http://10.0.0.5:80/a::b", "http://10.0.0.5:80/a::b");
        row("http://1:2:3:4:5:6:7:8:80/", "http://1:2:3:4:5:6:7:8:80/");
        row("fe80::1:8080/x", "fe80::1:8080/x");
        row("http://fe80::1%eth0:8080/x", "http://[fe80::1%25eth0]:8080/x");
        row("http://fe80::1%eth0/x", "http://[fe80::1%25eth0]/x");
        row("http://fe80::1%25:80/", "http://[fe80::1%2525]:80/"); // a number
        row("http://fe80::1%25eth0:80/", "http://[fe80::1%25eth0]:80/");
        row("http://fe80::1%25g0:80/", "http://[fe80::1%2525g0]:80/"); // the name of an interface
    }

    void normalizesUrls()
    {
        QFETCH(const QString, url);
        QFETCH(const QString, normalized);
        if (url.contains("%25g0"_s)) {
            const QString add = "link add 25g0 type veth peer name 25g1"_s;
            if (QNetworkInterface::interfaceIndexFromName("vx0"_s) == 0
                || QProcess::execute("ip"_s, add.split(QLatin1Char(' '))) != 0) {
                QSKIP("needs a network namespace of its own (scripts/with-network)");
            }
        }
        QCOMPARE(normalizeUrl(url), normalized);
        QCOMPARE(normalizeUrl(normalized), normalized);
    }

    void requestsHttpOnly_data()
    {
        columns<QString, QUrl>("text", "url"); // invalid: none
        const auto row = [](const char *text, const char *url = "") {
            QTest::newRow(text) << QString::fromLatin1(text) << QUrl(QString::fromLatin1(url));
        };
        row("https://cam.local/x?y=%20", "https://cam.local/x?y=%20");
        row("192.0.2.1:80/x", "http://192.0.2.1:80/x");
        row(" http://192.0.2.1/x\n", "http://192.0.2.1/x");
        for (const char *text :
             {"", "file:///etc/hostname", "/etc/hostname", "qrc:/src/styles/DarkBlue.qss",
              "data:text/plain,v=0", "http://127.0.0.1:80 studio/x"}) {
            row(text);
        }
    }

    void requestsHttpOnly()
    {
        QFETCH(const QString, text);
        QFETCH(const QUrl, url);
        QCOMPARE(requestUrl(text), url);
        if (!url.isValid()) {
            int status = -1;
            QString error;
            QCOMPARE(syncGet(manager.get(), text, &status, &error), QByteArray());
            QCOMPARE(status, -1);
            QCOMPARE(error, QString("Not an HTTP address: "_s + text));
        }
    }

    void refusesTheFifthNestedRequest()
    {
        SimulatedNode node;
        const QString path = "/slow"_s;
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
                QCOMPARE(syncGet(manager.get(), node.baseUrl() + path, &status, &error),
                         QByteArray());
                QCOMPARE(error, "Reentrant call depth exceeded"_s);
                error.clear();
                QVERIFY(!syncPatchJson(manager.get(), QUrl(node.baseUrl()), {}, &status, &error));
                QCOMPARE(error, "Reentrant call depth exceeded"_s);
                QCOMPARE(status, -1);
                QCOMPARE(requestActivity().levels, 4);
                node.clearFaults();
            }
        };
        nest();
        QCOMPARE(bodies, (QByteArrayList{"answer", "answer", "answer"}));
        QCOMPARE(node.requests().size(), 4);
    }

    void endsAResponseThatIsTooLarge()
    {
        SimulatedNode node;
        node.setFault("/flood"_s, Fault::flood(0));
        int status = -1;
        QString error;
        QCOMPARE(syncGet(manager.get(), node.baseUrl() + "/flood"_s, &status, &error),
                 QByteArray());
        QCOMPARE(status, -1);
        QCOMPARE(error, "The response is too large"_s);

        // Qt's network thread has let go of it too, and serves the next request.
        QVERIFY(
            !syncGet(manager.get(), node.baseUrl() + "/x-nmos/node/v1.3/self"_s, &status, &error)
                 .isEmpty());
        QCOMPARE(status, 200);
    }

    void unpacksBodies_data()
    {
        columns<QByteArray, QByteArray, QByteArray, QString>("encoding", "body", "text", "failure");
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
        const QString broken = "The response cannot be unpacked"_s;
        QTest::newRow("not what it says") << QByteArray("gzip") << text << QByteArray() << broken;
        QTest::newRow("cut short")
            << QByteArray("gzip") << gzip(text).chopped(20) << QByteArray() << broken;
        QTest::newRow("unpacks to too much")
            << QByteArray("gzip") << gzip(QByteArray(maximumResponseBody + 1, ' ')) << QByteArray()
            << "The response is too large"_s;
    }

    void unpacksBodies()
    {
        QFETCH(QByteArray, encoding);
        QFETCH(QByteArray, body);
        QFETCH(QByteArray, text);
        QFETCH(QString, failure);
        SimulatedNode node;
        node.setFault("/packed"_s, Fault::body(body).encoded(encoding));
        QString error;
        QCOMPARE(syncGet(manager.get(), node.baseUrl() + "/packed"_s, nullptr, &error), text);
        QCOMPARE(error, failure);
        QVERIFY(
            node.requests().constFirst().headers.contains({"Accept-Encoding", "gzip, deflate"}));
    }

    void keepsPatchesOffStalledConnections()
    {
        // Header and body of a PATCH leave in two segments: on a connection that was in use before,
        // the second would wait for a delayed acknowledgement. Each PATCH has a connection of its
        // own.
        const RawServer server(httpAnswer({}));
        const QString url = "http://"_s + server.host();
        syncGet(manager.get(), url);
        QCOMPARE(server.connections, 1);
        QVERIFY(syncPatchJson(manager.get(), QUrl(url), {}));
        QCOMPARE(server.connections, 2);
    }

    void survivesTheEndOfItsManager()
    {
        const RawServer silent;
        QString error;
        QTimer::singleShot(0, this, [this] { manager.reset(); });
        syncGet(manager.get(), "http://"_s + silent.host(), nullptr, &error);
        QCOMPARE(error, "The request was dropped"_s);
    }

    void sendsNothingWhileTheProgramCloses()
    {
        const RawServer silent;
        const QString url = "http://"_s + silent.host();
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
        const QString closing = "The program is closing"_s;
        QCOMPARE(errors, QStringList({closing, closing, closing}));
        QVERIFY(!requestActivity().closing);
        QCOMPARE(log.lines(), QStringList());
    }

private:
    std::unique_ptr<QNetworkAccessManager> manager;
};

NODEPATCH_TEST_MAIN(TestSyncHttp)
#include "tst_synchttp.moc"
