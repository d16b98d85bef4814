// What the client and discovery put on the wire when they ask a node, what they keep off it, and
// how many requests begin at once.

#include "MdnsPacket.h"
#include "discovery/NMOSMdnsBrowser.h"
#include "net/RequestGate.h"
#include "nmos/NmosClient.h"
#include "support/Certificate.h"
#include "support/LogRecorder.h"
#include "support/RawServer.h"
#include "support/TestMain.h"

#include <QCryptographicHash>
#include <QLoggingCategory>
#include <QNetworkReply>
#include <QScopeGuard>

#include <algorithm>

namespace {

QString stagedPath(const char *id)
{
    return "/x-nmos/connection/v1.1/single/receivers/%1/staged"_s.arg(QLatin1String(id));
}

NmosClient::SenderLookup senderAt(const QString &manifest)
{
    return {{}, {}, manifest, {}, {}, {}};
}

QByteArray md5(const QByteArray &text)
{
    return QCryptographicHash::hash(text, QCryptographicHash::Md5).toHex();
}

} // namespace

class TestNodeRequests final : public QObject {
    Q_OBJECT

private slots:
    void asksOverTls()
    {
        const Certificate certificate;
        QVERIFY2(!certificate.chain.isEmpty(), "the openssl command is needed");
        RawServer node(httpAnswer("v=0"));
        node.tls = certificate.server;
        QString sdp;
        const auto lookup = senderAt("https://%1/sdp"_s.arg(node.host()));
        QVERIFY(!NmosClient().fetchSenderSdp(lookup, &sdp));
        certificate.trust();
        QVERIFY(NmosClient().fetchSenderSdp(lookup, &sdp));
        QCOMPARE(sdp, "v=0"_s);

        NMOSMdnsBrowser browser;
        QSignalSpy ready(&browser, &NMOSMdnsBrowser::nodeSelfReady);
        browser.start();
        announce(node, {"api_proto=https"});
        QTRY_COMPARE(ready.size(), 1);
        QCOMPARE(node.requestLines(), QStringList({"GET /sdp"_s, "GET /x-nmos/node/v1.3/self"_s}));
    }

    // Without the environment's proxies, the address's zone, and the cookies of an earlier answer.
    void asksPlainly()
    {
        const RawServer proxy(httpAnswer("[]", "502 Bad Gateway"));
        const RawServer node(httpAnswer("[]", "200 OK\r\nSet-Cookie: a=b; Path=/"),
                             QHostAddress("fe80::1%vx0"_s));
        if (!node.isListening()) {
            QSKIP("this machine has no such address");
        }
        const auto variables = {"http_proxy", "HTTP_PROXY", "all_proxy", "ALL_PROXY"};
        for (const char *variable : variables) {
            qputenv(variable, "http://" + proxy.host().toLatin1());
        }
        const auto restore = qScopeGuard([&variables] {
            for (const char *variable : variables) {
                qunsetenv(variable);
            }
        });
        NmosClient client;
        client.hasSenders(node.host());
        client.hasSenders(node.host());
        QCOMPARE(node.requests.size(), 2);
#ifdef NODEPATCH_MDNS_LAYER // an installed QMdnsEngine finds addresses without their zones
        NMOSMdnsBrowser browser;
        QSignalSpy ready(&browser, &NMOSMdnsBrowser::nodeSelfReady);
        browser.start();
        announce(node);
        QTRY_COMPARE(ready.size(), 1);
        announce(node, {"api_ver=v1.2"});
        QTRY_VERIFY(ready.size() >= 2);
#endif
        QCOMPARE(proxy.connections, 0);
        const QByteArray port = QByteArray::number(node.serverPort());
        for (const QByteArray &request : node.requests) {
            QVERIFY2(request.contains("\r\nHost: [fe80::1]:" + port + "\r\n"), request.constData());
            QVERIFY2(!request.contains("\r\nCookie:"), request.constData());
        }
    }

    void answersChallenges_data()
    {
        // In answer, # is the response and @ the cnonce; secret is "nonce:nc:cnonce:qop" of the
        // response.
        columns<QByteArray, QByteArray, QByteArray>("challenge", "answer", "secret");
        const auto row = [](const char *name, const QByteArray &challenge,
                            const QByteArray &answer = {}, const QByteArray &secret = {}) {
            QTest::newRow(name) << challenge << answer << secret;
        };
        const QByteArray digest = "Digest username='us\\'er', realm='x\\'', nonce='\\\\a', "
                                  "uri='/sdp?a=%20b', algorithm=MD5, response='#'";
        const QByteArray asked = "Digest realm='x\\'', nonce='\\\\a'";
        row("Basic", "Basic realm='x, Digest'",
            "Basic " + QByteArray("us\"er:p:\xc3\xa4").toBase64());
        row("Digest", "digest Realm='x\\'', nonce='\\\\a', algorithm=md5", digest, "\\a");
        row("Digest that is always stale, and more",
            "Negotiate, Basic realm='x', " + asked + ", stale=true, opaque='\\''",
            digest + ", opaque='\\''", "\\a");
        row("Digest with a quality of protection", asked + ", qop='auth-int, AUTH'",
            digest + ", qop=auth, nc=00000001, cnonce='@'", "\\a:00000001:@:auth");
        row("an algorithm that nobody knows", asked + ", algorithm=SHA-1");
        row("a quality that nobody knows", asked + ", qop='auth-int'");
        row("NTLM", "NTLM");
        row("nothing", "',=,x='");
    }

    void answersChallenges()
    {
        QFETCH(QByteArray, challenge);
        QFETCH(QByteArray, answer);
        QFETCH(QByteArray, secret);
        challenge.replace('\'', '"');
        RawServer node(httpAnswer("[]", "401 No\r\nWWW-Authenticate: " + challenge));
        const QString host = "us%22er:p%3A%C3%A4@"_s + node.host();
        const auto manifest = senderAt("http://%1/sdp?a=%20b#c"_s.arg(host));
        NmosClient client;
        QString sdp;
        QVERIFY(!client.fetchSenderSdp(manifest, &sdp));
        const QByteArray sent = authorizations(node).constLast();
        const QByteArray cnonce = sent.mid(sent.indexOf("cnonce=") + 8, 32);
        secret.replace('@', cnonce);
        secret = md5(md5("us\"er:x\":p:\xc3\xa4") + ':' + secret + ':' + md5("GET:/sdp?a=%20b"));
        answer.replace('\'', '"').replace('@', cnonce).replace('#', secret);
        QCOMPARE(authorizations(node),
                 QByteArrayList({"", answer}).mid(0, answer.isEmpty() ? 1 : 2));

        // They are kept for nothing else, and are one line.
        node.requests.clear();
        client.hasSenders(host);
        client.fetchSenderSdp(senderAt("http://%1/"_s.arg(node.host())), &sdp);
        node.answer.replace("401", "403");
        client.fetchSenderSdp(manifest, &sdp);
        node.answer.replace("403", "401");
        QCOMPARE(authorizations(node), QByteArrayList({"", "", ""}));
        client.fetchSenderSdp(senderAt("http://a@%1?b"_s.arg(node.host())), &sdp);
        QCOMPARE(node.requests.last().contains(", uri=\"/?b\""), answer.startsWith("Digest"));
        client.fetchSenderSdp(senderAt("http://a%0D%0AB@"_s + node.host()), &sdp);
        QVERIFY(node.requests.size() > 4 && !node.requests.last().contains("\nB"));

        node.answerTo = [refusal = node.answer](const QByteArray &request) {
            return request.contains("\r\nAuthorization: ") ? httpAnswer("v=0") : refusal;
        };
        QCOMPARE(client.fetchSenderSdp(manifest, &sdp), !answer.isEmpty());
        QCOMPARE(sdp, answer.isEmpty() ? QString() : "v=0"_s);
    }

    void keepsIdsInTheirSegment_data()
    {
        columns<QByteArray>("segment"); // of the id that names the row; empty: nothing is requested
        const auto row = [](const char *id, const char *segment) {
            QTest::newRow(id) << QByteArray(segment);
        };
        row("3b8be755-08ff-452b-b217-c9151eb21193", "3b8be755-08ff-452b-b217-c9151eb21193");
        row("urn:x_y~z!$&'()*+,;=@.", "urn:x_y~z!$&'()*+,;=@.");
        row("../../../../../../evil", "..%2F..%2F..%2F..%2F..%2F..%2Fevil");
        row("a?b#c", "a%3Fb%23c");
        row("%2e%2e", "%252e%252e");
        row("\xc3\xa4 \\\"", "%C3%A4%20%5C%22");
        row(".", "");
        row("..", "");
    }

    void keepsIdsInTheirSegment()
    {
        QFETCH(const QByteArray, segment);
        const RawServer node(httpAnswer("{}"));
        NmosClient client;
        const NmosClient::ReceiverLookup receiver{
            QString::fromUtf8(QTest::currentDataTag()), {}, node.host(), {}, {}};
        QString error;
        QString sdp;
        QCOMPARE(client.disconnectReceiver(receiver, &error), !segment.isEmpty());
        QCOMPARE(error.isEmpty(), !segment.isEmpty());
        QVERIFY(!client.fetchReceiverSdp(receiver, &sdp));
        const QString path = stagedPath(segment.constData());
        QCOMPARE(node.requestLines(),
                 QStringList({"PATCH "_s + path, "GET "_s + path}).mid(segment.isEmpty() ? 2 : 0));
    }

    void logsRefusedPatches()
    {
        const LogRecorder log("nodepatch.requests");
        const auto restore = qScopeGuard([] { QLoggingCategory::setFilterRules({}); });
        RawServer node(httpAnswer({}, "423 Locked"));
        const NmosClient::ReceiverLookup receiver{"r"_s, {}, "user@"_s + node.host(), {}, {}};
        NmosClient client;
        client.disconnectReceiver(receiver);
        QCOMPARE(log.lines(), QStringList());

        QLoggingCategory::setFilterRules("nodepatch.requests.info=true"_s);
        client.disconnectReceiver(receiver);
        QCOMPARE(
            log.lines(),
            QStringList("info: PATCH http://user@%1 status 423: Error transferring http://%1 - "
                        "server replied: Locked"_s.arg(node.host() + stagedPath("r"))));
        node.answer = httpAnswer({}, "204 No Content");
        client.disconnectReceiver(receiver);
        QCOMPARE(log.lines().size(), 1);
    }

    void beginsInOrderAsPlacesComeFree()
    {
        QNetworkAccessManager manager;
        RawServer server(httpAnswer("{}"), QHostAddress::AnyIPv4);
        RequestGate gate(80);
        QVector<int> begun; // the numbers of the requests
        QSignalSpy ended(&manager, &QNetworkAccessManager::finished);
        int count = 0;
        const auto enqueue = [&](int more, bool ofOneHost = false) {
            for (const int end = count + more; count < end; ++count) {
                const quint32 host = 0x7f010000 + (ofOneHost ? 0 : static_cast<quint32>(count));
                const QUrl url("http://%1:%2/%3"_s.arg(QHostAddress(host).toString())
                                   .arg(server.serverPort())
                                   .arg(count));
                gate.enqueue(url, [&, url, number = count] {
                    begun += number;
                    return manager.get(QNetworkRequest(url));
                });
            }
        };
        // Of one host no more count than Qt has connections to it.
        enqueue(110, true);
        QCOMPARE(begun.size(), 110);
        QTRY_COMPARE(ended.size(), 110);
        QCoreApplication::sendPostedEvents(&gate); // by which it hears of each end
        enqueue(100);
        QCOMPARE(begun.size(), 110 + 64);
        QTRY_COMPARE(ended.size(), 210);
        QCoreApplication::sendPostedEvents(&gate); // by which it hears of each end

        // Those that hang make room for others after a second, once each, until the maximum is met.
        server.answer.clear();
        // Timers of one thread end in their order, however late.
        QVector<int> later;
        const auto look = [&begun, &later] {
            later += begun.size();
        };
        QTimer::singleShot(800, Qt::PreciseTimer, &gate, look);
        enqueue(110, true);
        enqueue(64 - 6 + 1);
        QTimer::singleShot(1700, Qt::PreciseTimer, &gate, look);
        QCOMPARE(begun.size(), 320 + 64 - 6);
        QTRY_COMPARE(later, QVector<int>({320 + 64 - 6, 320 + 64 - 6 + 1}));
        enqueue(80 - 64 - 1);
        QTRY_COMPARE(begun.size(), 320 + 80 - 6);
        enqueue(1, true);
        enqueue(100);
        QCOMPARE(begun.size(), 320 + 80 - 6 + 1);
        QVERIFY(std::is_sorted(begun.cbegin(), begun.cend()));

        gate.clear();
        const auto replies = manager.findChildren<QNetworkReply *>();
        for (QNetworkReply *reply : replies) {
            reply->abort();
        }
        QTRY_COMPARE(ended.size(), begun.size());
        QCoreApplication::sendPostedEvents(&gate);
        QCOMPARE(begun.size(), 320 + 80 - 6 + 1);
    }

private:
    static QByteArrayList authorizations(const RawServer &node)
    {
        const QByteArray name("\r\nAuthorization: ");
        QByteArrayList headers;
        for (const QByteArray &request : node.requests) {
            const int at = request.indexOf(name);
            headers += at < 0 ? "" : request.mid(at + name.size()).split('\r').constFirst();
        }
        return headers;
    }

    void announce(const RawServer &node, const QByteArrayList &attributes = {})
    {
        QHostAddress address = node.serverAddress();
        address.setScopeId({});
        QVERIFY(sender.send(Mdns::service("Cam 1", attributes, Mdns::hour, node.serverPort())
                                .address("cam1.local", address.toString())
                                .bytes()));
    }

    Mdns::Sender sender;
};

NODEPATCH_TEST_MAIN(TestNodeRequests)
#include "tst_noderequests.moc"
