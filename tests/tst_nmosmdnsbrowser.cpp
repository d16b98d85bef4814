#include "MdnsPacket.h"
#include "discovery/NMOSMdnsBrowser.h"
#include "net/Descriptors.h"
#include "net/Utf8.h"
#include "support/LogRecorder.h"
#include "support/RawServer.h"
#include "support/TestMain.h"

#include <QDir>

#include <optional>

#include <sys/resource.h>
#include <sys/socket.h>

using Mdns::Packet;

namespace {

// A node at every address, which ends each connection behind its answer.
struct Node : RawServer {
    explicit Node(const QByteArray &body)
        : RawServer(httpAnswer(body), QHostAddress::Any)
    {
        closes = true;
    }
};

// The HTTP side of any number of nodes that take a connection and say nothing until the object is
// destroyed; then the connections break. It needs one descriptor.
class HangingNodes : public QTcpServer {
public:
    explicit HangingNodes(int count)
    {
        listen(QHostAddress::AnyIPv4);
        pauseAccepting();
        ::listen(static_cast<int>(socketDescriptor()), count);
    }
};

int descriptors()
{
    return QDir("/proc/self/fd"_s).entryList(QDir::Files | QDir::System).size();
}

const QByteArray camName("Cam 1 \xc3\xa4");

Packet announcement(quint16 port, const QByteArrayList &strings,
                    const QString &address = "192.0.2.1"_s)
{
    return Mdns::service(camName, strings, Mdns::hour, port).address("cam1.local", address);
}

Packet farewell()
{
    return Mdns::service(camName, {}, Mdns::goodbye);
}

// A browser and what it said. It has been stopped, which does nothing, and started.
struct Discovery {
    Discovery()
    {
        browser.stop();
        browser.start();
    }

    NMOSMdnsBrowser browser{};
    QSignalSpy discovered{&browser, &NMOSMdnsBrowser::nodeDiscovered};
    QSignalSpy ready{&browser, &NMOSMdnsBrowser::nodeSelfReady};
    QSignalSpy errors{&browser, &NMOSMdnsBrowser::nodeError};
    QSignalSpy removed{&browser, &NMOSMdnsBrowser::nodeRemoved};
};

// Counts the replies that are deleted when control returns to the event loop.
class DeletedReplies final : public QObject {
public:
    DeletedReplies()
    {
        qApp->installEventFilter(this);
    }

    int count = 0;

protected:
    bool eventFilter(QObject *object, QEvent *event) override
    {
        count += event->type() == QEvent::DeferredDelete && object->inherits("QNetworkReply");
        return false;
    }
};

} // namespace

class TestNMOSMdnsBrowser final : public QObject {
    Q_OBJECT

private slots:
    void init()
    {
        qRegisterMetaType<QMap<QString, QString>>("QMap<QString,QString>"); // for QSignalSpy
        log.emplace();
    }

    void selectsTheApiVersion()
    {
        const auto chosenFrom = [](const char *version, std::initializer_list<const char *> texts) {
            for (const char *text : texts) {
                const QString chosen = NMOSMdnsBrowser::selectApiVersion(QString::fromLatin1(text));
                QVERIFY2(chosen == QLatin1String(version), text);
            }
        };
        chosenFrom("v1.3", {"", ",,", " , ", "v1.0,v1.1,v1.2,v1.3"});
        chosenFrom("v1.10", {"v1.3, v1.10", "v1.10,v1.9"});
        chosenFrom("v2.0", {"v2.0,v1.9"});
        chosenFrom("latest", {"latest"});
        chosenFrom("v1.2", {"latest,v1.2", "v1.2,latest", ",\tv1.1\n,v1.2 \n"});
        chosenFrom("v1.1", {"V1.3,v1.1", "v1.1,v9.9x,xv9.9,v9,v9.9.9", "v1.1,v99999999999.1"});
        chosenFrom("v1.03", {"v1.03,v1.3"});
    }

    void asksForTheSelfResource_data()
    {
        // In result, %1 is the address.
        columns<QByteArrayList, QByteArray, QStringList, QString>("attributes", "answer", "result",
                                                                  "path");
        const QStringList json{"ready|Cam 1 ä|%1|[{\"id\":\"x\"}]"_s, "info: OK %1"_s};
        const QStringList noJson{"ready|Cam 1 ä|%1|"_s, "info: OK (non-JSON) %1"_s};
        const QByteArray self = httpAnswer("[{\"id\": \"x\"}]");
        const auto row = [](const char *title, const QByteArrayList &attributes,
                            const QByteArray &answer, const QStringList &result,
                            const char *version = "v1.3") {
            QTest::newRow(title) << attributes << answer << result
                                 << "/x-nmos/node/%1/self"_s.arg(QLatin1String(version));
        };
        row("a node without attributes", {}, self, json);
        row("a node that says all",
            {"api_proto=HTTP", "api_ver=v1.0,v1.1", "bare",
             QByteArray("label=\xc3\xa4~").replace('~', '\0')},
            self, json, "v1.1");
        row("keys with capitals are not used", {"API_VER=v1.1", "Api_Proto=ftp"}, self, json);
        row("a version stays in the path", {"api_ver=a?b#c%41"}, self, json, "a%3Fb%23c%2541");
        row("a way up", {"api_ver=../../x"}, self, json, "..%2F..%2Fx");
        row("a web page", {}, httpAnswer("<html></html>"), noJson);
        row("an empty answer", {}, httpAnswer(""), noJson);
        row("a redirect is not followed", {},
            httpAnswer({}, "302 Found\r\nLocation: file:///etc/hostname"), noJson);
        const auto failed = [](const QString &reason) {
            return QStringList{"error|Cam 1 ä|%1|"_s + reason,
                               "warning: GET %1 failed: "_s + reason};
        };
        row("not found", {}, httpAnswer({}, "404 Not Found"),
            failed("Error transferring %1 - server replied: Not Found"_s));
        row("not what it says", {}, httpAnswer("x", "200 OK\r\nContent-Encoding: gzip"),
            failed("The response cannot be unpacked"_s));
        const QByteArray mebibyte(1024 * 1024, ' ');
        const QStringList tooLarge = failed("The response is too large"_s);
        row("an answer of 1 MiB", {}, httpAnswer(mebibyte), noJson);
        row("an answer of a byte more", {}, httpAnswer(mebibyte + ' '), tooLarge);
        // The last half of a megabyte is read when the answer ends.
        row("an answer without end", {}, "HTTP/1.1 200 OK\r\n\r\n" + mebibyte.repeated(2),
            tooLarge);
    }

    void asksForTheSelfResource()
    {
        QFETCH(const QByteArrayList, attributes);
        QFETCH(const QByteArray, answer);
        QFETCH(const QString, path);
        QFETCH(QStringList, result);
        const RawServer node(answer, QHostAddress::Any);
        const DeletedReplies deleted;
        NMOSMdnsBrowser browser{};
        record(browser);
        browser.start();
        QVERIFY(sender.send(announcement(node.serverPort(), attributes).bytes()));

        const QString port = QString::number(node.serverPort());
        QString discovered = "discovered|Cam 1 ä|cam1.local.|"_s + port;
        for (const QByteArray &attribute : attributes) {
            discovered += "|"_s + utf8Text(attribute) + (attribute.contains('=') ? ""_s : "="_s);
        }
        result.replaceInStrings("%1"_s, "http://192.0.2.1:"_s + port + path);
        QTRY_COMPARE(LogRecorder::lines(),
                     QStringList({"info: Browsing for _nmos-node._tcp.local."_s, discovered})
                         + result);
        QCOMPARE(node.requestLines(), QStringList(QLatin1String("GET ") + path));
        QTRY_COMPARE(deleted.count, 1);
    }

    void neverOpensOtherProtocols()
    {
        Node node("{}");
        node.close();
        QVERIFY(node.listen(QHostAddress::Any, 80));
        Discovery discovery;
        for (const char *attribute :
             {"api_proto=", "api_proto=file", "api_proto=ftp", "api_proto=qrc", "api_proto=data",
              "api_proto=javascript", "api_proto=preconnect-http", "api_proto=a b", "api_ver=.",
              "api_ver=.."}) {
            // A service of its own each time: updates wait for a second. QMdnsEngine reports no
            // name with a dot.
            const QByteArray name = QByteArray(attribute).replace('.', 'x');
            QVERIFY(sender.send(Mdns::service(name, {attribute}, Mdns::hour, 80)
                                    .address("cam1.local", "192.0.2.1"_s)
                                    .bytes()));
            QTRY_COMPARE(discovery.errors.size(), 1);
            const QVariantList error = discovery.errors.takeFirst();
            const QUrl url = error.at(1).toUrl();
            const QString text = QByteArray(attribute).startsWith("api_ver")
                ? "The API version cannot be part of an address"_s
                : "Protocol \"%1\" is unknown"_s.arg(url.scheme());
            QCOMPARE(url.port(), 80);
            QCOMPARE(error.at(2).toString(), text);
            QCOMPARE(LogRecorder::lines().last(),
                     "warning: GET %1 failed: %2"_s.arg(url.toString(), text));
        }
        QCOMPARE(node.connections, 0);
    }

    void asksEveryAddress()
    {
        const Node node("{}");
        QStringList addresses{"192.0.2.1"_s, "[fd00:6e70:1::1]"_s};
        Packet packet = announcement(node.serverPort(), {});
        packet.address("cam1.local", "fd00:6e70:1::1"_s);
#ifdef NODEPATCH_MDNS_LAYER // an installed QMdnsEngine does not say where it heard an address
        packet.address("cam1.local", "fe80::1"_s);
        addresses += "[fe80::1%25vx0]"_s;
#endif
        Discovery discovery;
        QVERIFY(sender.send(packet.bytes()));
        const QString rest = ":%1/x-nmos/node/v1.3/self"_s.arg(node.serverPort());
        QTRY_COMPARE(discovery.ready.size(), addresses.size());
        for (const QVariantList &signal : qAsConst(discovery.ready)) {
            const QString url = signal.at(1).toUrl().toString();
            QVERIFY2(addresses.removeOne(url.mid(7).remove(rest)), qPrintable(url));
        }
    }

    void leavesHalfOfTheDescriptorsToOthers()
    {
        rlimit before{};
        QCOMPARE(getrlimit(RLIMIT_NOFILE, &before), 0);
        const rlimit usual{1024, before.rlim_max};
        QCOMPARE(setrlimit(RLIMIT_NOFILE, &usual), 0);
        // Qt keeps the descriptors of connections that failed for two minutes: those of 1100 nodes
        // would fill the limit, and the healthy node's request would fail with "Out of resources".
        constexpr int count = 1000;
        Node healthy("{}");
        auto hanging = std::make_unique<HangingNodes>(count);
        Discovery discovery;
        announceHanging(hanging->serverPort(), count);
        QTRY_VERIFY_WITH_TIMEOUT(descriptors() > 512, 30000);
        QVERIFY(
            sender.send(Mdns::pointer("behind")
                            .target(Mdns::instance("behind"), "cam2.local", healthy.serverPort())
                            .text(Mdns::instance("behind"), {})
                            .address("cam2.local", "192.0.2.1"_s)
                            .bytes()));
        QTRY_COMPARE(discovery.discovered.size(), 2);
        QVERIFY(!discovery.errors.wait(2500)); // without the limit, twice 64 more would be asked
        QVERIFY(descriptors() <= 600);
        QCOMPARE(discovery.ready.size(), 0);
        // What has not begun when it stops is dropped.
        discovery.browser.stop();
        hanging.reset();
        discovery.browser.start();
        QVERIFY(sender.send(announcement(healthy.serverPort(), {}).bytes())); // behind what is left
        QTRY_COMPARE_WITH_TIMEOUT(discovery.ready.size(), 1, 30000);
        QVERIFY2(discovery.errors.size() < 600,
                 qPrintable(QString::number(discovery.errors.size())));
        Descriptors::raiseLimit();
        QCOMPARE(Descriptors::limit(), static_cast<int>(qMin<rlim_t>(before.rlim_max, 1'000'000)));
        QCOMPARE(setrlimit(RLIMIT_NOFILE, &before), 0);
    }

    void asksAgainAfterAnUpdate()
    {
        Node node("{}");
        Discovery discovery;
        QVERIFY(sender.send(announcement(node.serverPort(), {}).bytes()));
        QTRY_COMPARE(discovery.ready.size(), 1);
        QVERIFY(sender.send(Packet().text(Mdns::instance(camName), {"api_ver=v1.1"}).bytes()));
        QTRY_COMPARE(discovery.ready.size(), 2);
        QCOMPARE(discovery.ready.at(1).at(1).toUrl().path(), "/x-nmos/node/v1.1/self"_s);
        QVERIFY(sender.send(farewell().bytes()));
        QTRY_COMPARE(discovery.removed.size(), 1);
        QCOMPARE(discovery.removed.at(0).at(0).toString(), "Cam 1 ä"_s);
        QCOMPARE(discovery.discovered.size(), 2);
        QCOMPARE(node.requests.size(), 2);
        // Both resolutions go on.
        QVERIFY(sender.send(Packet().address("cam1.local", "198.51.100.1"_s).bytes()));
        QTRY_COMPARE(discovery.ready.size(), 4);
    }

    void startsAndStops()
    {
        Node node("{}");
        Discovery discovery;
        NMOSMdnsBrowser &browser = discovery.browser;
        browser.start();
        QCOMPARE(LogRecorder::lines(), QStringList("info: Browsing for _nmos-node._tcp.local."_s));
        QVERIFY(sender.send(announcement(node.serverPort(), {}).bytes()));
        QTRY_COMPARE(discovery.ready.size(), 1);
        browser.stop();
        browser.stop();
        browser.start();
        // Heard by the new engine; what the old one left behind asks nobody.
        QVERIFY(sender.send(announcement(node.serverPort(), {}, "198.51.100.1"_s).bytes()));
        QTRY_COMPARE(discovery.ready.size(), 2);
        QCOMPARE(discovery.ready.at(1).at(1).toUrl().host(), "198.51.100.1"_s);
        QCOMPARE(node.requests.size(), 2);
    }

    void endsInItsOwnSignals_data()
    {
        columns<QString, bool>("signal", "stopOnly");
        QStringList inSignals{"ready"_s, "error"_s};
#ifdef NODEPATCH_MDNS_LAYER // an installed QMdnsEngine does not live through its end in its signals
        inSignals += {"discovered"_s, "removed"_s};
#endif
        for (const QString &signal : qAsConst(inSignals)) {
            QTest::addRow("destroyed when %s", qPrintable(signal)) << signal << false;
            QTest::addRow("stopped when %s", qPrintable(signal)) << signal << true;
        }
    }

    void endsInItsOwnSignals()
    {
        QFETCH(const QString, signal);
        QFETCH(const bool, stopOnly);
        Node node("{}");
        auto browser = std::make_unique<NMOSMdnsBrowser>();
        bool done = false;
        const auto end = [&](const char *when) {
            if (signal == QLatin1String(when)) {
                stopOnly ? browser->stop() : browser.reset();
                done = true;
            }
        };
        connect(browser.get(), &NMOSMdnsBrowser::nodeDiscovered, this, [&] { end("discovered"); });
        connect(browser.get(), &NMOSMdnsBrowser::nodeSelfReady, this, [&] { end("ready"); });
        connect(browser.get(), &NMOSMdnsBrowser::nodeError, this, [&] { end("error"); });
        connect(browser.get(), &NMOSMdnsBrowser::nodeRemoved, this, [&] { end("removed"); });
        browser->start();
        const quint16 port = signal == "error"_s ? quint16{1} : node.serverPort();
        QVERIFY(sender.send(announcement(port, {}).bytes()));
        QTRY_VERIFY(done || !node.requests.isEmpty());
        QVERIFY(sender.send(farewell().bytes()));
        QTRY_VERIFY(done);
    }

private:
    void record(NMOSMdnsBrowser &browser)
    {
        connect(&browser, &NMOSMdnsBrowser::nodeDiscovered, this,
                [](const QString &name, const QString &host, quint16 port,
                   const QMap<QString, QString> &txt) {
                    QStringList parts{"discovered"_s, name, host, QString::number(port)};
                    for (auto it = txt.cbegin(); it != txt.cend(); ++it) {
                        parts += it.key() + QLatin1Char('=') + it.value();
                    }
                    LogRecorder::lines() += parts.join(QLatin1Char('|'));
                });
        connect(&browser, &NMOSMdnsBrowser::nodeSelfReady, this,
                [](const QString &name, const QUrl &url, const QJsonDocument &self) {
                    LogRecorder::lines() += "ready|%1|%2|%3"_s.arg(
                        name, url.toString(),
                        QString::fromUtf8(self.toJson(QJsonDocument::Compact)));
                });
        connect(&browser, &NMOSMdnsBrowser::nodeError, this,
                [](const QString &name, const QUrl &url, const QString &text) {
                    LogRecorder::lines() += "error|%1|%2|%3"_s.arg(name, url.toString(), text);
                });
    }

    // Each is an address of its own: of one host Qt asks for six resources at a time.
    void announceHanging(quint16 port, int count)
    {
        // QMdnsEngine keeps one address of what comes with the service.
        sender.send(announcement(port, {}, "127.1.0.0"_s).bytes());
        for (int i = 1; i < count;) {
            Packet packet;
            for (const int end = qMin(i + 40, count); i < end; ++i) {
                packet.address("cam1.local",
                               QHostAddress(0x7f010000U + static_cast<uint>(i)).toString());
            }
            sender.send(packet.bytes());
        }
    }

    std::optional<LogRecorder> log;
    Mdns::Sender sender;
};

NODEPATCH_TEST_MAIN(TestNMOSMdnsBrowser)
#include "tst_nmosmdnsbrowser.moc"
