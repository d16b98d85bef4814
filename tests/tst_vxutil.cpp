#include "FeedAddress.h"
#include "ReleaseFeed.h"
#include "VxUtil.h"

#include "support/TestMain.h"

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
    bool dripping = false; // one byte at a time, without end
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
        if (dripping) {
            auto *const drip = new QTimer(socket);
            connect(drip, &QTimer::timeout, socket, [socket] { socket->write(" "); });
            drip->start(10);
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
        row("a version with letters", http(release("\"8.1.0-beta\"")), VXUTIL_BAD_FEED);
        row("a version with a sign", http(release("\"9.+1\"")), VXUTIL_BAD_FEED);
        row("a number past 31 bits", http(release("\"9.4294967304.0\"")), VXUTIL_BAD_FEED);
        row("a version that is a number", http(release("9.1")), VXUTIL_BAD_FEED);
        row("a download by FTP", http(release("\"9.0\"", "ftp://x.example/")), VXUTIL_BAD_FEED);
        row("not JSON", http("<html>"), VXUTIL_BAD_FEED);
        row("a feed of more than 64 KiB", http(release("\"9.0\"").leftJustified(65537)),
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

    void meetsTheTimeLimit_data()
    {
        QTest::addColumn<QString>("scheme");
        QTest::addColumn<bool>("dripping");
        QTest::newRow("a feed that never answers") << QStringLiteral("http") << false;
        QTest::newRow("a feed that drips bytes") << QStringLiteral("http") << true;
        QTest::newRow("a TLS handshake that stops") << QStringLiteral("https") << false;
    }

    void meetsTheTimeLimit()
    {
        QFETCH(const QString, scheme);
        QFETCH(const bool, dripping);
        FeedServer server;
        feedAddress().setScheme(scheme);
        server.dripping = dripping;
        server.answer = dripping ? QByteArray("HTTP/1.1 200 OK\r\n\r\n") : QByteArray();
        QElapsedTimer clock;
        clock.start();
        Release found;
        QCOMPARE(askReleaseFeed(feedAddress(), QStringLiteral("nodepatch"), Version{8},
                                std::chrono::milliseconds(200), &found),
                 VXUTIL_NO_ANSWER);
        const qint64 took = clock.elapsed();
        QVERIFY2(took >= 200 && took < 1500, qPrintable(QString::number(took)));
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

        QSslConfiguration trusting = QSslConfiguration::defaultConfiguration();
        trusting.addCaCertificates(chain);
        QSslConfiguration::setDefaultConfiguration(trusting);
        QCOMPARE(ask(), VXUTIL_NEWER);
    }
};

NODEPATCH_TEST_MAIN(TestVxUtil)

#include "tst_vxutil.moc"
