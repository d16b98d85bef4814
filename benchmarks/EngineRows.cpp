// What the mDNS engine hears when much is said at once, what it asks, and how a plant of hanging
// nodes holds up discovery. The packets are written byte by byte.

#include "Comparison.h"
#include "MdnsPacket.h"
#include "Rows.h"
#include "discovery/NMOSMdnsBrowser.h"
#include "net/Descriptors.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QSemaphore>
#include <QTcpServer>
#include <QTcpSocket>
#include <QThread>

#include <memory>

#include <sys/resource.h>
#include <sys/socket.h>

namespace {

// An engine, and how many services it has heard of.
struct Engine {
    Engine()
    {
        QObject::connect(&browser, &QMdnsEngine::Browser::serviceAdded, &browser,
                         [this] { ++heard; });
    }

    int heard = 0;
    QMdnsEngine::Server server;
    QMdnsEngine::Cache cache;
    QMdnsEngine::Browser browser{&server, "_nmos-node._tcp.local.", &cache};
};

Comparison::Result figure(double value, const QString &remark)
{
    Comparison::Result result;
    result.figure = value;
    result.remark = remark;
    return result;
}

void runFor(int milliseconds)
{
    QElapsedTimer clock;
    clock.start();
    Comparison::waitUntil([&] { return clock.hasExpired(milliseconds); });
}

// Sixty new services a second, which say goodbye half a second later.
class Churn final {
public:
    Churn()
        : thread(QThread::create([this] { run(); }))
    {
        thread->start();
    }
    ~Churn()
    {
        end.release();
        thread->wait();
    }
    Q_DISABLE_COPY_MOVE(Churn)

    QSemaphore packets;

private:
    void run()
    {
        Mdns::Sender sender;
        for (int i = 0; !end.tryAcquire(1, 16); ++i) {
            sender.send(Mdns::service("churn " + QByteArray::number(i)).bytes());
            sender.send(Mdns::service("churn " + QByteArray::number(i - 30), {"a=1"}, Mdns::goodbye)
                            .bytes());
            packets.release();
        }
    }

    QSemaphore end;
    std::unique_ptr<QThread> thread;
};

Comparison::Result hearAfterStandingStill(benchmark::State &state)
{
    QString remark;
    int missed = 0;
    for ([[maybe_unused]] auto turn : state) {
        Engine engine;
        Churn churn;
        runFor(3000);
        const int before = churn.packets.available();
        churn.packets.acquire(before + 240); // about four seconds
        const int heard = engine.heard;
        runFor(1000);
        const int sent = 240 + churn.packets.available();
        missed = sent - (engine.heard - heard);
        remark = QStringLiteral("%1 sent since it stood still, %2 heard")
                     .arg(sent)
                     .arg(engine.heard - heard);
        state.SetIterationTime(1);
    }
    return figure(missed, remark);
}

Comparison::Result hearACrowd(benchmark::State &state)
{
    constexpr int crowd = 300;
    int heard = 0;
    double took = 0;
    for ([[maybe_unused]] auto turn : state) {
        Engine engine;
        Mdns::Sender sender;
        runFor(500);
        took = Comparison::timed([&] {
            for (int i = 0; i < crowd; ++i) {
                sender.send(Mdns::service("crowd " + QByteArray::number(i)).bytes());
            }
        });
        runFor(3000);
        heard = engine.heard;
        state.SetIterationTime(1);
    }
    return figure(crowd - heard, QStringLiteral("300 within %1 ms").arg(took, 0, 'f', 1));
}

Comparison::Result healthyBehindHanging(benchmark::State &state)
{
    constexpr int nodes = 1000;
    rlimit before{};
    ::getrlimit(RLIMIT_NOFILE, &before);
    const rlimit usual{1024, before.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &usual);
    Descriptors::raiseLimit();
    const auto descriptors = [] {
        return QDir(QStringLiteral("/proc/self/fd")).entryList(QDir::Files | QDir::System).size();
    };
    double seconds = 0;
    int most = 0;
    for ([[maybe_unused]] auto turn : state) {
        QTcpServer hanging;
        hanging.listen(QHostAddress::AnyIPv4);
        hanging.pauseAccepting();
        ::listen(static_cast<int>(hanging.socketDescriptor()), nodes);
        QTcpServer healthy;
        healthy.listen(QHostAddress::AnyIPv4);
        QObject::connect(&healthy, &QTcpServer::newConnection, &healthy, [&healthy] {
            QTcpSocket *const socket = healthy.nextPendingConnection();
            socket->write("HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: 2\r\n\r\n{}");
            socket->disconnectFromHost();
        });
        bool ready = false;
        NMOSMdnsBrowser browser;
        QObject::connect(&browser, &NMOSMdnsBrowser::nodeSelfReady, &browser,
                         [&ready] { ready = true; });
        browser.start();
        Mdns::Sender sender;
        sender.send(Mdns::service("hanging", {}, Mdns::hour, hanging.serverPort()).bytes());
        for (int i = 0; i < nodes; ++i) {
            const QHostAddress address(0x7f010000 + static_cast<quint32>(i));
            sender.send(Mdns::Packet().address("cam1.local", address.toString()).bytes());
            QCoreApplication::processEvents();
        }
        Comparison::waitUntil([&descriptors] { return descriptors() > 64; });
        seconds = Comparison::timed([&] {
                      sender.send(
                          Mdns::pointer("healthy")
                              .target(Mdns::instance("healthy"), "cam2.local", healthy.serverPort())
                              .text(Mdns::instance("healthy"), {})
                              .address("cam2.local", QStringLiteral("192.0.2.1"))
                              .bytes());
                      Comparison::waitUntil([&ready] { return ready; });
                  })
            / 1000;
        most = descriptors();
        state.SetIterationTime(seconds);
    }
    ::setrlimit(RLIMIT_NOFILE, &before);
    return figure(
        seconds,
        QStringLiteral("soft limit raised from 1,024; %1 descriptors open then").arg(most));
}

} // namespace

void Rows::addEngineRows()
{
    using Comparison::addRow;
    addRow({"Services not heard a second after 4 s of standing still, 60 new ones a second", "", "",
            6, 1},
           hearAfterStandingStill);
    addRow({"Services not found of 300 that are announced at once", "", "", 0, 1}, hearACrowd);
    addRow({"A healthy node is asked behind 1,000 that hang", "", "s", 20, 1},
           healthyBehindHanging);
}
