#include "FeedAddress.h"
#include "ReleaseFeed.h"
#include "VxUtil.h"

#include "support/Certificate.h"
#include "support/RawServer.h"
#include "support/TestMain.h"

#include <QScopeGuard>

namespace {

QUrl &feedAddress()
{
    static QUrl address;
    return address;
}

// The feed's server. What it sends behind its answer comes again and again.
class FeedServer final : public RawServer {
public:
    FeedServer()
    {
        closes = true;
        feedAddress() = QUrl(QStringLiteral("http://%1/feed").arg(host()));
    }

    QByteArray drip; // comes behind the answer
    QByteArray flood; // likewise, as fast as it is taken

protected:
    void reply(QSslSocket *socket) override
    {
        closes = drip.isEmpty() && flood.isEmpty() && !answer.isEmpty();
        RawServer::reply(socket);
        if (!drip.isEmpty()) {
            auto *const timer = new QTimer(socket);
            connect(timer, &QTimer::timeout, socket, [this, socket] { socket->write(drip); });
            timer->start(10);
        } else if (!flood.isEmpty()) {
            connect(socket, &QSslSocket::bytesWritten, socket,
                    [this, socket] { socket->write(flood); });
        }
    }
};

QByteArray release(const QByteArray &version, const QByteArray &download = "https://x.example/?a=b",
                   const QByteArray &notes = "\"http://x.example/\u00e9\"")
{
    return "{\"nodepatch\": {\"notes\": " + notes + ", \"version\": " + version
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
        row("a higher third number is newer", httpAnswer(release("\"8.0.181\"")), VXUTIL_NEWER);
        row("the same version is not newer", httpAnswer(release("\"8.0.180\"")), VXUTIL_NOT_NEWER);
        row("an older version is not newer", httpAnswer(release("\"7.9.999\"")), VXUTIL_NOT_NEWER);
        row("8.10.0 is newer than 8.9.0", httpAnswer(release("\"8.10.0\"")), VXUTIL_NEWER,
            {8, 9, 0});
        row("missing numbers count as zero", httpAnswer(release("\"8.1.0.0\"")), VXUTIL_NOT_NEWER,
            {8, 1, 0});
        row("an application that the feed does not know", httpAnswer("{\"other\": {}}"),
            VXUTIL_NOT_NEWER);
        row("release notes may be missing",
            httpAnswer(
                "{\"nodepatch\": {\"version\": \"9\", \"download\": \"https://x.example\"}}"),
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
        row("a version with letters", httpAnswer(release("\"8.1.0-beta\"")), VXUTIL_BAD_FEED);
        row("a version with a sign", httpAnswer(release("\"9.+1\"")), VXUTIL_BAD_FEED);
        row("a number past 31 bits", httpAnswer(release("\"9.4294967304.0\"")), VXUTIL_BAD_FEED);
        row("a version that is a number", httpAnswer(release("9.1")), VXUTIL_BAD_FEED);
        row("a download by FTP", httpAnswer(release("\"9.0\"", "ftp://x.example/")),
            VXUTIL_BAD_FEED);
        row("a download without a host", httpAnswer(release("\"9.0\"", "https:///x")),
            VXUTIL_BAD_FEED);
        row("release notes that are null", httpAnswer(release("\"9.0\"", "https://x", "null")),
            VXUTIL_BAD_FEED);
        row("not JSON", httpAnswer("<html>"), VXUTIL_BAD_FEED);
        row("a feed of more than 64 KiB", httpAnswer(release("\"9.0\"").leftJustified(65537)),
            VXUTIL_BAD_FEED);
        row("a head of more than 64 KiB",
            httpAnswer(release("\"9.0\""),
                       "200 OK" + QByteArray("\r\nSet-Cookie: a=b").repeated(20000)),
            VXUTIL_BAD_FEED);
        row("an error status with a good body", httpAnswer(release("\"9.0\""), "404 Gone"),
            VXUTIL_REFUSED);
        row("a redirect to a file", httpAnswer("", "302 Found\r\nLocation: file:///x"),
            VXUTIL_REFUSED);
        row("a body that breaks off", httpAnswer(release("\"9.0\"") + " ").chopped(1),
            VXUTIL_NO_ANSWER);
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
        server.answer = httpAnswer(release("\"8.1\""));
        const char *version = nullptr;
        const char *download = nullptr;
        const char *notes = nullptr;
        QCOMPARE(vxOSGetAppVersion("nodepatch", 8, 0, 180, &version, &download, &notes),
                 VXUTIL_NEWER);
        QCOMPARE(QByteArray(version), QByteArray("8.1"));
        QCOMPARE(QByteArray(download), QByteArray("https://x.example/?a=b"));
        QCOMPARE(QByteArray(notes), QByteArray("http://x.example/%C3%A9"));
        QCOMPARE(server.requests.size(), 1);
        const QByteArray host = server.host().toLatin1();
        QVERIFY(server.requests.first().startsWith("GET /feed HTTP/1.1\r\nHost: " + host + "\r\n"));
        QVERIFY2(!server.requests.first().contains("nodepatch"), "the feed learns who asks");
    }

    void hasNothingToSay()
    {
        FeedServer server;
        server.answer = httpAnswer(release("\"8.0.180\""));
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

    void followsRedirects_data()
    {
        QTest::addColumn<QByteArray>("status");
        QTest::addColumn<int>("expected");
        for (const char *status : {"301", "302", "303", "307", "308"}) {
            QTest::newRow(status) << QByteArray(status) << static_cast<int>(VXUTIL_NEWER);
        }
        QTest::newRow("a choice") << QByteArray("300") << static_cast<int>(VXUTIL_REFUSED);
    }

    void followsRedirects()
    {
        QFETCH(const QByteArray, status);
        FeedServer target;
        target.answer = httpAnswer(release("\"9.0\""));
        const QByteArray location = feedAddress().toEncoded();
        FeedServer server;
        server.answer = httpAnswer("", status + " Moved\r\nLocation: " + location + "#here");
        QTEST(static_cast<int>(ask()), "expected");
        QCOMPARE(target.requestLines(),
                 status == "300" ? QStringList() : QStringList(QStringLiteral("GET /feed")));
    }

    void endsARoundOfRedirects()
    {
        FeedServer server;
        server.answer = httpAnswer("", "302 Found\r\nLocation: /feed?again");
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
            << static_cast<int>(VXUTIL_NEWER);
        QTest::newRow("https: the proxy is asked for a connection")
            << QUrl(QStringLiteral("https://feed.example/a"))
            << QByteArray("CONNECT feed.example:443 HTTP/1.1\r\n")
            << static_cast<int>(VXUTIL_NO_ANSWER);
    }

    void goesThroughTheSystemsProxy()
    {
        QFETCH(const QUrl, feed);
        QFETCH(const QByteArray, request);
        FeedServer proxy;
        proxy.answer = httpAnswer(release("\"9.0\""));
        const QByteArray address = "http://user:secret@" + feedAddress().authority().toLatin1();
        qputenv("http_proxy", address);
        qputenv("https_proxy", address);
        const auto restore = qScopeGuard([] {
            qunsetenv("http_proxy");
            qunsetenv("https_proxy");
        });
        feedAddress() = feed;
        QTEST(static_cast<int>(ask()), "expected");
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
        QCOMPARE(server.connections, 1); // it was this server that kept it waiting
    }

    void waitsForThreeSeconds()
    {
        const FeedServer silent;
        QElapsedTimer clock;
        clock.start();
        QCOMPARE(ask(), VXUTIL_NO_ANSWER);
        const qint64 took = clock.elapsed();
        QVERIFY2(took >= 3000 && took < 6000, qPrintable(QString::number(took)));
    }

    void trustsOnlyKnownCertificates()
    {
        const Certificate certificate;
        QVERIFY2(!certificate.chain.isEmpty(), "the openssl command is needed");
        FeedServer plain;
        plain.answer = httpAnswer(release("\"9.0\""));
        const QByteArray elsewhere = feedAddress().toEncoded();
        FeedServer server;
        feedAddress().setScheme(QStringLiteral("https"));
        server.answer = plain.answer;
        server.tls = certificate.server;
        QCOMPARE(ask(), VXUTIL_NO_ANSWER);
        QVERIFY(server.requests.isEmpty());
        certificate.trust();
        QCOMPARE(ask(), VXUTIL_NEWER);
        // What is asked over TLS is not answered without.
        server.answer = httpAnswer("", "302 Found\r\nLocation: " + elsewhere);
        QCOMPARE(ask(), VXUTIL_REFUSED);
        QVERIFY(plain.requests.isEmpty());
    }
};

NODEPATCH_TEST_MAIN(TestVxUtil)

#include "tst_vxutil.moc"
