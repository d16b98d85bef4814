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

// The feed's server.
class FeedServer final : public RawServer {
public:
    explicit FeedServer(const QByteArray &always = {})
        : RawServer(always)
    {
        feedAddress() = QUrl("http://%1/feed"_s.arg(host()));
    }

    QByteArray drip; // comes behind the answer, each 60 ms

protected:
    void reply(QSslSocket *socket) override
    {
        closes = drip.isEmpty() && !answer.isEmpty();
        RawServer::reply(socket);
        if (!drip.isEmpty()) {
            auto *const timer = new QTimer(socket);
            connect(timer, &QTimer::timeout, socket, [this, socket] { socket->write(drip); });
            timer->start(60);
        }
    }
};

QByteArray release(const QByteArray &version, const QByteArray &download = "https://x.example/?a=b",
                   const QByteArray &notes = "\"http://x.example/\u00e9\"")
{
    return "{\"nodepatch\": {\"notes\": " + notes + ", \"version\": " + version
        + ", \"download\": \"" + download + "\"}}";
}

const QByteArray newer = release("\"9.0\"");

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
        columns<QByteArray, int, Version>("answer", "expected", "installed");
        const auto row = [](const QByteArray &name, const QByteArray &answer, int expected,
                            const Version &installed = {8, 0, 180}) {
            QTest::newRow(name.constData()) << answer << expected << installed;
        };
        const auto version = [&row](const char *text, int expected, const Version &installed) {
            row(text, httpAnswer(release('"' + QByteArray(text) + '"')), expected, installed);
        };
        const auto feed = [&row](const char *name, const QByteArray &body,
                                 int expected = VXUTIL_BAD_FEED) {
            row(name, httpAnswer(body), expected);
        };
        version("8.0.181", VXUTIL_NEWER, {8, 0, 180});
        version("7.9.999", VXUTIL_NOT_NEWER, {8, 0, 180});
        version("8.10.0", VXUTIL_NEWER, {8, 9, 0});
        version("9", VXUTIL_NEWER, {8, 9, 0});
        version("8.1.0.0", VXUTIL_NOT_NEWER, {8, 1, 0});
        for (const char *text : {"8.1.0-beta", "9.+1", "9..1", "9.0.0.0.0", "9.4294967304.0"}) {
            version(text, VXUTIL_BAD_FEED, {8, 0, 180});
        }
        feed("a version that is a number", release("9.1"));
        feed("an unknown application", "{\"other\": {}}", VXUTIL_NOT_NEWER);
        feed("an application that is no object", "{\"nodepatch\": []}");
        feed("a download by FTP", release("\"9.0\"", "ftp://x.example/"));
        feed("a download without a host", release("\"9.0\"", "https:///x"));
        feed("notes that are null", release("\"9.0\"", "https://x", "null"));
        feed("not JSON", "<html>");
        feed("nothing", {});
        feed("no object", "[]");
        feed("64 KiB", newer.leftJustified(65536 - 42), VXUTIL_NEWER);
        feed("a byte more than 64 KiB", newer.leftJustified(65537 - 42));
        row("a head of more than 64 KiB",
            httpAnswer(newer, "200 OK" + QByteArray("\r\nSet-Cookie: a=b").repeated(20000)),
            VXUTIL_BAD_FEED);
        row("a large error page", httpAnswer(newer.leftJustified(65537), "404 Gone"),
            VXUTIL_REFUSED);
        row("a redirect to a file", httpAnswer("", "302 Found\r\nLocation: file:///x"),
            VXUTIL_REFUSED);
        row("a redirect to nowhere", httpAnswer(newer, "302 Found"), VXUTIL_REFUSED);
        row("a body that breaks off", httpAnswer(newer + ' ').chopped(1), VXUTIL_NO_ANSWER);
        row("a body that ends with the connection", "HTTP/1.0 200\r\n\r\n" + newer, VXUTIL_NEWER);
        row("bytes behind the body", httpAnswer(newer) + "x", VXUTIL_NEWER);
        row("no HTTP", "SSH-2.0-OpenSSH\r\n\r\n", VXUTIL_NO_ANSWER);
        for (const char *status : {"2000", "20", "+20", "2x0"}) {
            row(QByteArray("status ") + status, httpAnswer(newer, status), VXUTIL_NO_ANSWER);
        }
        const QByteArray chunked("HTTP/1.1 200 OK\r\ntransfer-encoding: Chunked\r\n\r\n");
        const QByteArray chunks = "5;x=y\r\n" + newer.left(5) + "\r\n"
            + QByteArray::number(newer.size() - 5, 16) + "\r\n" + newer.mid(5)
            + "\r\n0\r\nA: b\r\n\r\n";
        row("chunks behind a hint", "HTTP/1.1 103 Hints\r\nLink: </x>\r\n\r\n" + chunked + chunks,
            VXUTIL_NEWER);
        row("lines without CR", QByteArray(chunked + chunks).replace('\r', ""), VXUTIL_NEWER);
        for (const char *size : {"-6", "+2", " 2", "0x2", "2z", "", "7ffffffe"}) {
            row(QByteArray("chunk size ") + size, chunked + size + "\r\n{}\r\n0\r\n\r\n",
                VXUTIL_NO_ANSWER);
        }
        row("a chunk that goes on", chunked + "2\r\n{}0\r\n0\r\n\r\n", VXUTIL_NO_ANSWER);
    }

    void judgesTheFeed()
    {
        QFETCH(const QByteArray, answer);
        QFETCH(const Version, installed);
        const FeedServer server(answer);
        QTEST(ask(installed), "expected");
        QCOMPARE(server.requests.size(), 1);
    }

    void handsOutTheRelease()
    {
        FeedServer server(httpAnswer(release("\"8.1\"")));
        const char *version = "a";
        const char *download = "b";
        const char *notes = "c";
        const auto query = [&](int minor, const char *key = "nodepatch") {
            return vxOSGetAppVersion(key, 8, minor, 0, &version, &download, &notes);
        };
        QCOMPARE(query(1), VXUTIL_NOT_NEWER);
        QCOMPARE(query(0, nullptr), VXUTIL_BAD_CALL);
        QCOMPARE(QByteArray(version) + download + notes, "abc");
        QCOMPARE(query(0), VXUTIL_NEWER);
        QCOMPARE(QByteArray(version), QByteArray("8.1"));
        QCOMPARE(QByteArray(download), QByteArray("https://x.example/?a=b"));
        QCOMPARE(QByteArray(notes), QByteArray("http://x.example/%C3%A9"));
        server.answer = httpAnswer(release("\"8.1\"").replace("notes", "other"));
        QCOMPARE(query(0), VXUTIL_NEWER);
        QVERIFY(notes == nullptr);
        QCOMPARE(server.requests.size(), 3);
        const QByteArray host = server.host().toLatin1();
        QVERIFY(server.requests.first().startsWith("GET /feed HTTP/1.1\r\nHost: " + host + "\r\n"));
        QVERIFY2(!server.requests.first().contains("nodepatch"), "the feed learns who asks");
        server.answer.clear();
        QElapsedTimer clock;
        clock.start();
        QCOMPARE(query(0), VXUTIL_NO_ANSWER);
        QVERIFY(clock.elapsed() >= 3000 && clock.elapsed() < 6000);
        server.close();
        QCOMPARE(query(0), VXUTIL_NO_ANSWER);
        feedAddress().clear();
        QCOMPARE(query(0), VXUTIL_NOT_NEWER);
        QCOMPARE(query(0, nullptr), VXUTIL_BAD_CALL);
    }

    void followsRedirects()
    {
        const FeedServer target(httpAnswer(newer));
        const QByteArray location = feedAddress().toEncoded() + "#here";
        FeedServer server;
        for (const char *status : {"300", "301", "302", "303", "307", "308"}) {
            server.answer = httpAnswer("", QByteArray(status) + " Moved\r\nLocation: " + location);
            QCOMPARE(ask(), status == QByteArray("300") ? VXUTIL_REFUSED : VXUTIL_NEWER);
        }
        QCOMPARE(target.requestLines().count("GET /feed"_s), 5);
        server.requests.clear();
        server.answer = httpAnswer("", "302 Moved\r\nLocation: /feed?again");
        QCOMPARE(ask(), VXUTIL_REFUSED);
        QCOMPARE(server.requestLines(),
                 QStringList({"GET /feed"_s, "GET /feed?again"_s, "GET /feed?again"_s,
                              "GET /feed?again"_s}));
    }

    void goesThroughTheSystemsProxy()
    {
        const FeedServer proxy(httpAnswer(newer));
        const QByteArray address = "http://user:secret@" + feedAddress().authority().toLatin1();
        qputenv("http_proxy", address);
        qputenv("https_proxy", address);
        const auto restore = qScopeGuard([] {
            qunsetenv("http_proxy");
            qunsetenv("https_proxy");
        });
        feedAddress() = QUrl("http://feed.example?b"_s);
        QCOMPARE(ask(), VXUTIL_NEWER); // the proxy is asked for the feed
        QVERIFY2(proxy.requests.value(0).startsWith(
                     "GET http://feed.example/?b HTTP/1.1\r\nHost: feed.example\r\n"
                     "Proxy-Authorization: Basic dXNlcjpzZWNyZXQ=\r\n"),
                 proxy.requests.value(0).constData());
        feedAddress() = QUrl("https://feed.example/a"_s);
        QCOMPARE(ask(), VXUTIL_NO_ANSWER); // for a connection
        QCOMPARE(proxy.requestLines().value(1), "CONNECT feed.example:443"_s);
    }

    void meetsTheTimeLimit_data()
    {
        columns<QString, QByteArray, QByteArray, int>("scheme", "answer", "drip", "expected");
        const auto row = [](const char *name, const char *scheme, const QByteArray &answer,
                            const QByteArray &drip, int expected = VXUTIL_NO_ANSWER) {
            QTest::newRow(name) << QString::fromLatin1(scheme) << answer << drip << expected;
        };
        const QByteArray head("HTTP/1.1 200 OK\r\n");
        const QByteArray chunked = head + "Transfer-Encoding: chunked\r\n\r\n";
        row("a feed that never answers", "http", {}, {});
        row("a feed that drips bytes", "http", head + "\r\n", " ");
        row("a feed that drips fields", "http", head, "A: b\r\n");
        row("redirects that come slowly", "http", {}, httpAnswer("", "302 Found\r\nLocation: /"));
        row("a TLS handshake that stops", "https", {}, {});
        row("a head without end", "http", head, QByteArray("A: b\r\n").repeated(1000),
            VXUTIL_BAD_FEED);
        row("one-byte chunks without end", "http", chunked, QByteArray("1\r\n \r\n").repeated(1000),
            VXUTIL_BAD_FEED);
    }

    void meetsTheTimeLimit()
    {
        QFETCH(const QString, scheme);
        QFETCH(const QByteArray, answer);
        QFETCH(const QByteArray, drip);
        QFETCH(const int, expected);
        FeedServer server(answer);
        server.drip = drip;
        feedAddress().setScheme(scheme);
        QElapsedTimer clock;
        clock.start();
        Release found;
        // What has no end ends by its size. A busy machine needs a while to get that far.
        const bool endsBySize = expected == VXUTIL_BAD_FEED;
        const std::chrono::milliseconds limit(endsBySize ? 10000 : 200);
        QCOMPARE(askReleaseFeed(feedAddress(), "nodepatch"_s, Version{8}, limit, &found), expected);
        const qint64 took = clock.elapsed();
        QVERIFY2(endsBySize || (took >= 200 && took < 1500), qPrintable(QString::number(took)));
        QVERIFY(server.connections > 0); // it was this server that kept it waiting
    }

    void trustsOnlyKnownCertificates()
    {
        const Certificate certificate;
        QVERIFY2(!certificate.chain.isEmpty(), "the openssl command is needed");
        FeedServer plain(httpAnswer(newer));
        const QUrl elsewhere = feedAddress();
        FeedServer server(plain.answer);
        feedAddress().setScheme("https"_s);
        server.tls = certificate.server;
        QCOMPARE(ask(), VXUTIL_NO_ANSWER);
        QVERIFY(server.requests.isEmpty());
        certificate.trust();
        QCOMPARE(ask(), VXUTIL_NEWER);
        // What is asked over TLS is not answered without; the other way about it is.
        server.answer = httpAnswer("", "302 Found\r\nLocation: " + elsewhere.toEncoded());
        QCOMPARE(ask(), VXUTIL_REFUSED);
        QVERIFY(plain.requests.isEmpty());
        server.answer = std::exchange(
            plain.answer, httpAnswer("", "302 Found\r\nLocation: " + feedAddress().toEncoded()));
        feedAddress() = elsewhere;
        QCOMPARE(ask(), VXUTIL_NEWER);
    }
};

NODEPATCH_TEST_MAIN(TestVxUtil)

#include "tst_vxutil.moc"
