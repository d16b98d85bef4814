// The synchronous requests against real nodes: what is sent, and what ends a wait.

#include "SimulatedNode.h"
#include "net/NestedWait.h"
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
        // Ends what waits without end.
        QTimer::singleShot(60000, manager.get(), [this] { manager.reset(); });
    }

    void cleanup()
    {
        // No reply outlives its request.
        QTRY_VERIFY(!manager || manager->findChildren<QNetworkReply *>().isEmpty());
        QCOMPARE(requestActivity().levels + requestActivity().waitTime.count(), 0);
    }

    void normalizesUrls()
    {
        // header: the value of Host, where we set it.
        const auto row = [](const char *text, const char *expected, const char *header = "") {
            const QString normalized = QString::fromLatin1(expected);
            QCOMPARE(normalizeUrl(QString::fromLatin1(text)), normalized);
            QCOMPARE(normalizeUrl(normalized), normalized);
            QCOMPARE(nodeRequest(QUrl(normalized)).rawHeader("Host"), QByteArray(header));
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
        row("http://fe80::1%eth0:8080/x", "http://[fe80::1%25eth0]:8080/x", "[fe80::1]:8080");
        row("http://fe80::1%eth0/x", "http://[fe80::1%25eth0]/x", "[fe80::1]");
        row("http://fe80::1%5", "http://[fe80::1%255]", "[fe80::1]");
        row("http://fe80::1%25:80/", "http://[fe80::1%2525]:80/", "[fe80::1]:80"); // a number
        row("http://fe80::1%25eth0:80/", "http://[fe80::1%25eth0]:80/", "[fe80::1]:80");
        const QString add = "link add 25g0 type veth peer name 25g1"_s;
        if (QNetworkInterface::interfaceIndexFromName("vx0"_s) == 0
            || QProcess::execute("ip"_s, add.split(QLatin1Char(' '))) != 0) {
            QSKIP("needs a network namespace of its own (scripts/with-network)");
        }
        // The name of an interface.
        row("http://fe80::1%25g0:80/", "http://[fe80::1%2525g0]:80/", "[fe80::1]:80");
    }

    void requestsHttpOnly()
    {
        const auto requested = [](const char *text) {
            return requestUrl(QString::fromLatin1(text)).toEncoded();
        };
        QCOMPARE(requested("https://cam.local/x?y=%20"), QByteArray("https://cam.local/x?y=%20"));
        QCOMPARE(requested("192.0.2.1:80/x"), QByteArray("http://192.0.2.1:80/x"));
        QCOMPARE(requested(" http://192.0.2.1/x\n"), QByteArray("http://192.0.2.1/x"));
        for (const QString &text :
             {QString(), "file:///etc/hostname"_s, "/etc/hostname"_s, "qrc:/x"_s,
              "httpx://127.0.0.1/"_s, "data:text/plain,v=0"_s, "http://127.0.0.1:80 studio/x"_s}) {
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
            if (levels == 1) {
                // It leaves the connections of the others alone.
                QVERIFY(!syncPatchJson(manager.get(), QUrl(node.baseUrl() + path), {}, &status));
                QCOMPARE(status, 404);
            } else if (levels < maximumLevels) {
                bodies.append(syncGet(manager.get(), node.baseUrl() + path));
            } else {
                const QString tooDeep = "Reentrant call depth exceeded"_s;
                syncGet(manager.get(), node.baseUrl() + path, &status, &error);
                QCOMPARE(std::exchange(error, {}), tooDeep);
                QVERIFY(!syncPatchJson(manager.get(), QUrl(node.baseUrl()), {}, &status, &error));
                QCOMPARE(error, tooDeep);
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
        const auto get = [&](const char *path) {
            const QString url = node.baseUrl() + QString::fromLatin1(path);
            return syncGet(manager.get(), url, &status, &error);
        };
        QCOMPARE(get("/flood"), QByteArray());
        QCOMPARE(status, -1);
        QCOMPARE(error, "The response is too large"_s);
        // Qt's network thread has let go of it too, and serves the next request.
        QVERIFY(!get("/x-nmos/node/v1.3/self").isEmpty());
        QCOMPARE(status, 200);
    }

    void unpacksBodies_data()
    {
        columns<QByteArray, QByteArray, QByteArray, QString>("encoding", "body", "text", "failure");
        const QByteArray text(3000000, ' ');
        const auto zlib = [](const QByteArray &unpacked) {
            return qCompress(unpacked).mid(4);
        };
        const auto row = [](const char *title, const char *encoding, const QByteArray &body,
                            const QByteArray &unpacked, const QString &failure = {}) {
            QTest::newRow(title) << QByteArray(encoding) << body << unpacked << failure;
        };
        row("not packed", "identity", text, text);
        row("gzip", "GZIP", gzip(text), text);
        row("gzip by its old name", "x-gzip", gzip(text), text);
        row("nothing, but packed", "gzip", {}, {});
        row("deflate", "deflate", zlib(text), text);
        row("deflate without its wrapper", "deflate", zlib(text).mid(2).chopped(4), text);
        const QString broken = "The response cannot be unpacked"_s;
        row("not what it says", "gzip", text, {}, broken);
        row("cut short", "gzip", gzip(text).chopped(20), {}, broken);
        const QByteArray most(64 * 1024 * 1024, ' ');
        row("as much as is taken", "gzip", gzip(most), most);
        row("unpacks to too much", "gzip", gzip(most + ' '), {}, "The response is too large"_s);
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
        QVERIFY(node.requests().at(0).headers.contains({"Accept-Encoding", "gzip, deflate"}));
    }

    void keepsPatchesOffStalledConnections()
    {
        // Header and body of a PATCH leave in two segments: on a connection that was in use before,
        // the second would wait for a delayed acknowledgement. Each PATCH has a connection of its
        // own.
        RawServer server(httpAnswer({}));
        const QString url = "http://"_s + server.host();
        syncGet(manager.get(), url);
        QCOMPARE(server.connections, 1);
        QVERIFY(syncPatchJson(manager.get(), QUrl(url), {}));
        QCOMPARE(server.connections, 2);
        server.close();
        int status = -1;
        QVERIFY(!syncPatchJson(manager.get(), QUrl(url), {}, &status));
        QCOMPARE(status, 0);
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
        QStringList errors{{}, {}, {}, {}, {}};
        const auto get = [this, &url, &errors](int number) {
            syncGet(manager.get(), url, nullptr, &errors[number]);
        };
        QTimer::singleShot(0, this, [&] {
            QTimer::singleShot(0, qApp, &QCoreApplication::quit);
            get(0);
            QVERIFY(requestActivity().closing);
            get(1);
            syncPatchJson(manager.get(), QUrl(url), {}, nullptr, &errors[2]);
        });
        QCoreApplication::exec();
        QVERIFY(!requestActivity().closing);
        QTimer::singleShot(0, this, [&get] {
            QTimer::singleShot(0, qApp, &Closing::begin);
            get(3);
        });
        get(4);
        Closing::over();
        for (const QString &error : qAsConst(errors)) {
            QCOMPARE(error, "The program is closing"_s);
        }
        QCOMPARE(log.lines(), QStringList());
    }

private:
    std::unique_ptr<QNetworkAccessManager> manager;
};

NODEPATCH_TEST_MAIN(TestSyncHttp)
#include "tst_synchttp.moc"
