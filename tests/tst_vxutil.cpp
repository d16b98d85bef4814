#include "FeedAddress.h"
#include "ReleaseFeed.h"
#include "VxUtil.h"

#include "support/TestMain.h"

#include <QScopeGuard>
#include <QSslConfiguration>
#include <QSslKey>
#include <QSslSocket>
#include <QTcpServer>

namespace {

QUrl &feedAddress()
{
    static QUrl address;
    return address;
}

// An HTTP server that sends the same bytes to everybody who has finished asking.
class FeedServer final : public QTcpServer {
public:
    QByteArray answer; // empty: stays silent
    QByteArray drip; // comes after the answer, again and again
    QByteArray flood; // likewise, as fast as it is taken
    QSslConfiguration tls; // null: plain HTTP
    QByteArrayList requests;

    FeedServer()
    {
        listen(QHostAddress::LocalHost);
        feedAddress() = QUrl(QStringLiteral("http://127.0.0.1:%1/feed").arg(serverPort()));
    }

protected:
    void incomingConnection(qintptr descriptor) override
    {
        auto *const socket = new QSslSocket(this);
        socket->setSocketDescriptor(descriptor);
        if (!tls.isNull()) {
            socket->setSslConfiguration(tls);
            socket->startServerEncryption();
        }
        connect(socket, &QSslSocket::readyRead, this, [this, socket] { serve(socket); });
    }

private:
    void serve(QSslSocket *socket)
    {
        requests += socket->readAll();
        socket->write(answer);
        if (!drip.isEmpty()) {
            auto *const timer = new QTimer(socket);
            connect(timer, &QTimer::timeout, socket, [this, socket] { socket->write(drip); });
            timer->start(10);
        } else if (!flood.isEmpty()) {
            connect(socket, &QSslSocket::bytesWritten, socket,
                    [this, socket] { socket->write(flood); });
        } else if (!answer.isEmpty()) {
            socket->disconnectFromHost();
        }
    }
};

QByteArray http(const QByteArray &body, const QByteArray &head = "200 OK")
{
    return "HTTP/1.1 " + head + "\r\nContent-Length: " + QByteArray::number(body.size())
        + "\r\n\r\n" + body;
}

QByteArray release(const QByteArray &version, const QByteArray &download = "https://x.example/?a=b")
{
    return "{\"nodepatch\": {\"notes\": \"http://x.example/\u00e9\", \"version\": " + version
        + ", \"download\": \"" + download + "\"}}";
}

int32_t ask(const Version &installed = {8, 0, 180})
{
    return vxOSGetAppVersion("nodepatch", installed[0], installed[1], installed[2], nullptr,
                             nullptr, nullptr);
}

} // namespace

Q_DECLARE_METATYPE(Version)

QUrl releaseFeedAddress()
{
    return feedAddress();
}

class TestVxUtil final : public QObject {
    Q_OBJECT

private slots:
    void judgesTheFeed_data()
    {
        QTest::addColumn<QByteArray>("answer");
        QTest::addColumn<int>("expected");
        QTest::addColumn<Version>("installed");
        const auto row = [](const char *name, const QByteArray &answer, int expected,
                            const Version &installed = {8, 0, 180}) {
            QTest::newRow(name) << answer << expected << installed;
        };
        row("a higher third number is newer", http(release("\"8.0.181\"")), VXUTIL_NEWER);
        row("the same version is not newer", http(release("\"8.0.180\"")), VXUTIL_NOT_NEWER);
        row("an older version is not newer", http(release("\"7.9.999\"")), VXUTIL_NOT_NEWER);
        row("8.10.0 is newer than 8.9.0", http(release("\"8.10.0\"")), VXUTIL_NEWER, {8, 9, 0});
        row("missing numbers count as zero", http(release("\"8.1.0.0\"")), VXUTIL_NOT_NEWER,
            {8, 1, 0});
        row("an application that the feed does not know", http("{\"other\": {}}"),
            VXUTIL_NOT_NEWER);
        row("release notes may be missing",
            http("{\"nodepatch\": {\"version\": \"9\", \"download\": \"https://x.example\"}}"),
            VXUTIL_NEWER);
        row("a chunked answer behind a hint",
            "HTTP/1.1 103 Early Hints\r\nLink: </x>\r\n\r\n"
            "HTTP/1.1 200 OK\r\ntransfer-encoding: Chunked\r\n\r\n"
            "5;x=y\r\n{\"nod\r\n"
                + QByteArray::number(release("\"9\"").size() - 5, 16) + "\r\n"
                + release("\"9\"").mid(5) + "\r\n0\r\nA: b\r\n\r\n",
            VXUTIL_NEWER);
        row("an answer that ends with the connection", "HTTP/1.0 200 OK\r\n\r\n" + release("\"9\""),
            VXUTIL_NEWER);
        row("a chunk that is larger than anything",
            "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n7ffffffe\r\n{}",
            VXUTIL_NO_ANSWER);
        row("no HTTP", "SSH-2.0-OpenSSH\r\n\r\n", VXUTIL_NO_ANSWER);
        row("a version with letters", http(release("\"8.1.0-beta\"")), VXUTIL_BAD_FEED);
        row("a version with a sign", http(release("\"9.+1\"")), VXUTIL_BAD_FEED);
        row("a number past 31 bits", http(release("\"9.4294967304.0\"")), VXUTIL_BAD_FEED);
        row("a version that is a number", http(release("9.1")), VXUTIL_BAD_FEED);
        row("a download by FTP", http(release("\"9.0\"", "ftp://x.example/")), VXUTIL_BAD_FEED);
        row("not JSON", http("<html>"), VXUTIL_BAD_FEED);
        row("a feed of more than 64 KiB", http(release("\"9.0\"").leftJustified(65537)),
            VXUTIL_BAD_FEED);
        row("a head of more than 64 KiB",
            http(release("\"9.0\""), "200 OK" + QByteArray("\r\nSet-Cookie: a=b").repeated(20000)),
            VXUTIL_BAD_FEED);
        row("an error status with a good body", http(release("\"9.0\""), "404 Gone"),
            VXUTIL_REFUSED);
        row("a redirect to a file", http("", "302 Found\r\nLocation: file:///x"), VXUTIL_REFUSED);
        row("a body that breaks off", http(release("\"9.0\"") + " ").chopped(1), VXUTIL_NO_ANSWER);
    }

    void judgesTheFeed()
    {
        QFETCH(const QByteArray, answer);
        QFETCH(const Version, installed);
        FeedServer server;
        server.answer = answer;
        QTEST(ask(installed), "expected");
    }

    void handsOutTheRelease()
    {
        FeedServer server;
        server.answer = http(release("\"8.1\""));
        const char *version = nullptr;
        const char *download = nullptr;
        const char *notes = nullptr;
        QCOMPARE(vxOSGetAppVersion("nodepatch", 8, 0, 180, &version, &download, &notes),
                 VXUTIL_NEWER);
        QCOMPARE(QByteArray(version), QByteArray("8.1"));
        QCOMPARE(QByteArray(download), QByteArray("https://x.example/?a=b"));
        QCOMPARE(QByteArray(notes), QByteArray("http://x.example/%C3%A9"));
        QCOMPARE(server.requests.size(), 1);
        QVERIFY(server.requests.first().startsWith("GET /feed HTTP/1.1\r\n"));
        QVERIFY2(!server.requests.first().contains("nodepatch"), "the feed learns who asks");
    }

    void hasNothingToSay()
    {
        FeedServer server;
        server.answer = http(release("\"8.0.180\""));
        const char *version = "a";
        const char *download = "b";
        const char *notes = "c";
        QCOMPARE(vxOSGetAppVersion("nodepatch", 8, 0, 180, &version, &download, &notes),
                 VXUTIL_NOT_NEWER);
        QCOMPARE(QByteArray(version) + download + notes, "abc");
        QCOMPARE(vxOSGetAppVersion(nullptr, 8, 0, 180, nullptr, nullptr, nullptr), VXUTIL_BAD_CALL);
        server.close();
        QCOMPARE(ask(), VXUTIL_NO_ANSWER);
        feedAddress().clear();
        QCOMPARE(ask(), VXUTIL_NOT_NEWER);
    }

    void followsARedirect()
    {
        FeedServer target;
        target.answer = http(release("\"9.0\""));
        const QByteArray location = feedAddress().toEncoded();
        FeedServer server;
        server.answer = http("", "301 Moved\r\nLocation: " + location);
        QCOMPARE(ask(), VXUTIL_NEWER);
    }

    void endsARoundOfRedirects()
    {
        FeedServer server;
        server.answer = http("", "302 Found\r\nLocation: /feed?again");
        QCOMPARE(ask(), VXUTIL_REFUSED);
        QCOMPARE(server.requests.size(), 4);
        QVERIFY(server.requests.last().startsWith("GET /feed?again HTTP/1.1\r\n"));
    }

    void goesThroughTheSystemsProxy_data()
    {
        QTest::addColumn<QUrl>("feed");
        QTest::addColumn<QByteArray>("request");
        QTest::addColumn<int>("expected");
        QTest::newRow("http: the proxy is asked for the feed")
            << QUrl(QStringLiteral("http://feed.example/a?b"))
            << QByteArray("GET http://feed.example/a?b HTTP/1.1\r\nHost: feed.example\r\n"
                          "Proxy-Authorization: Basic dXNlcjpzZWNyZXQ=\r\n")
            << int(VXUTIL_NEWER);
        QTest::newRow("https: the proxy is asked for a connection")
            << QUrl(QStringLiteral("https://feed.example/a"))
            << QByteArray("CONNECT feed.example:443 HTTP/1.1\r\n") << int(VXUTIL_NO_ANSWER);
    }

    void goesThroughTheSystemsProxy()
    {
        QFETCH(const QUrl, feed);
        QFETCH(const QByteArray, request);
        FeedServer proxy;
        proxy.answer = http(release("\"9.0\""));
        const QByteArray address = "http://user:secret@" + feedAddress().authority().toLatin1();
        qputenv("http_proxy", address);
        qputenv("https_proxy", address);
        const auto restore = qScopeGuard([] {
            qunsetenv("http_proxy");
            qunsetenv("https_proxy");
        });
        feedAddress() = feed;
        QTEST(int(ask()), "expected");
        const QByteArray sent = proxy.requests.value(0);
        QVERIFY2(sent.startsWith(request), sent.constData());
    }

    void meetsTheTimeLimit_data()
    {
        QTest::addColumn<QString>("scheme");
        QTest::addColumn<QByteArray>("answer");
        QTest::addColumn<QByteArray>("drip");
        QTest::addColumn<QByteArray>("flood");
        QTest::addColumn<int>("expected");
        const auto row = [](const char *name, const char *scheme, const QByteArray &answer,
                            const QByteArray &drip, const QByteArray &flood, int expected) {
            QTest::newRow(name) << QString::fromLatin1(scheme) << answer << drip << flood
                                << expected;
        };
        const QByteArray head("HTTP/1.1 200 OK\r\n");
        const QByteArray chunked = head + "Transfer-Encoding: chunked\r\n\r\n";
        row("a feed that never answers", "http", {}, {}, {}, VXUTIL_NO_ANSWER);
        row("a feed that drips bytes", "http", head + "\r\n", " ", {}, VXUTIL_NO_ANSWER);
        row("a feed that drips fields", "http", head, "A: b\r\n", {}, VXUTIL_NO_ANSWER);
        row("a TLS handshake that stops", "https", {}, {}, {}, VXUTIL_NO_ANSWER);
        row("a head without end", "http", head, {}, QByteArray("A: b\r\n").repeated(1000),
            VXUTIL_BAD_FEED);
        row("one-byte chunks without end", "http", chunked, {},
            QByteArray("1\r\n \r\n").repeated(1000), VXUTIL_BAD_FEED);
    }

    void meetsTheTimeLimit()
    {
        QFETCH(const QString, scheme);
        QFETCH(const QByteArray, answer);
        QFETCH(const QByteArray, drip);
        QFETCH(const QByteArray, flood);
        QFETCH(const int, expected);
        FeedServer server;
        feedAddress().setScheme(scheme);
        server.answer = answer;
        server.drip = drip;
        server.flood = flood;
        QElapsedTimer clock;
        clock.start();
        Release found;
        // A flood ends by its size. A machine that is busy needs a while to get that far.
        const bool endsBySize = expected == VXUTIL_BAD_FEED;
        const std::chrono::milliseconds limit(endsBySize ? 10000 : 200);
        QCOMPARE(
            askReleaseFeed(feedAddress(), QStringLiteral("nodepatch"), Version{8}, limit, &found),
            expected);
        const qint64 took = clock.elapsed();
        QVERIFY2(endsBySize || (took >= 200 && took < 1500), qPrintable(QString::number(took)));
        QCOMPARE(server.requests.size(), 1); // it was this server that kept it waiting
    }

    void trustsOnlyKnownCertificates()
    {
        const QTemporaryDir directory;
        QProcess openssl;
        openssl.setWorkingDirectory(directory.path());
        openssl.start(
            QStringLiteral("openssl"),
            QStringLiteral("req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=test "
                           "-addext subjectAltName=IP:127.0.0.1 -keyout key -out certificate")
                .split(QLatin1Char(' ')));
        QVERIFY2(openssl.waitForFinished() && openssl.exitCode() == 0,
                 "the openssl command is needed");
        QFile key(directory.filePath(QStringLiteral("key")));
        QVERIFY(key.open(QIODevice::ReadOnly));
        const auto chain =
            QSslCertificate::fromPath(directory.filePath(QStringLiteral("certificate")));

        FeedServer server;
        feedAddress().setScheme(QStringLiteral("https"));
        server.answer = http(release("\"9.0\""));
        server.tls = QSslConfiguration::defaultConfiguration();
        server.tls.setPrivateKey(QSslKey(&key, QSsl::Rsa));
        server.tls.setLocalCertificateChain(chain);
        QCOMPARE(ask(), VXUTIL_NO_ANSWER);
        QVERIFY(server.requests.isEmpty());

        const QSslConfiguration before = QSslConfiguration::defaultConfiguration();
        const auto restore =
            qScopeGuard([&before] { QSslConfiguration::setDefaultConfiguration(before); });
        QSslConfiguration trusting = before;
        trusting.addCaCertificates(chain);
        QSslConfiguration::setDefaultConfiguration(trusting);
        QCOMPARE(ask(), VXUTIL_NEWER);
    }
};

NODEPATCH_TEST_MAIN(TestVxUtil)

#include "tst_vxutil.moc"
