// The time from an announcement to the entry in the selector.

#include "Announcer.h"
#include "Comparison.h"
#include "LoopTurns.h"
#include "MainWindow.h"
#include "MdnsPacket.h"
#include "Rows.h"
#include "SimulatedNode.h"
#include "WindowDriver.h"

#include <QComboBox>

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace {

// A socket that receives the multicast DNS packets of all interfaces. The kernel notes when each
// arrives, so no thread has to be awake at that time.
class Wire final {
public:
    Wire()
        : descriptor(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0))
    {
        const int on = 1;
        ::setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        ::setsockopt(descriptor, SOL_SOCKET, SO_REUSEPORT, &on, sizeof on);
        ::setsockopt(descriptor, SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof on);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(5353);
        if (::bind(descriptor, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
            qFatal("cannot listen to multicast DNS");
        }
        for (const char *interface : {"lo", "vx0", "vx1"}) { // of scripts/with-network
            ip_mreqn group{};
            group.imr_multiaddr.s_addr = htonl(0xe00000fb); // 224.0.0.251
            group.imr_ifindex = static_cast<int>(::if_nametoindex(interface));
            ::setsockopt(descriptor, IPPROTO_IP, IP_ADD_MEMBERSHIP, &group, sizeof group);
        }
    }

    ~Wire()
    {
        ::close(descriptor);
    }
    Q_DISABLE_COPY_MOVE(Wire)

    // Reads all packets that have arrived since the last call. Returns when the first response that
    // names the service arrived, on the monotonic clock; 0 when there is none.
    long long firstResponse(const QByteArray &name) const
    {
        timespec now{};
        ::clock_gettime(CLOCK_REALTIME, &now);
        const long long offset = monotonicNanoseconds() - nanoseconds(now);
        long long first = 0;
        std::array<char, 9000> data{};
        alignas(cmsghdr) std::array<char, 64> control{};
        iovec buffer{data.data(), data.size()};
        for (;;) {
            msghdr message{nullptr, 0, &buffer, 1, control.data(), control.size(), 0};
            const ssize_t size = ::recvmsg(descriptor, &message, 0);
            if (size < 0) {
                return first;
            }
            const bool isResponse = (data[2] & 0x80) != 0;
            const auto packet = QByteArray::fromRawData(data.data(), static_cast<int>(size));
            if (first == 0 && isResponse && packet.contains(name)) {
                timespec arrival{};
                std::memcpy(&arrival, CMSG_DATA(CMSG_FIRSTHDR(&message)), sizeof arrival);
                first = nanoseconds(arrival) + offset;
            }
        }
    }

private:
    static long long nanoseconds(const timespec &time)
    {
        return time.tv_sec * 1000000000LL + time.tv_nsec;
    }

    const int descriptor;
};

// Measures the time from an announcement until the program lists its service, and until
// avahi-browse prints it; both receive the same packets. The time begins when the announcement is
// on the wire, because the announcer probes for a second before to find out whether the name is
// free.
class Race final {
public:
    Race()
        : browse(::popen("echo $$; exec stdbuf -oL avahi-browse -rp _nmos-node._tcp", "re"))
        , reading([this] { read(); })
        , hands(&window)
    {
        window.show();
        QObject::connect(hands.tx->model(), &QAbstractItemModel::rowsInserted, &window,
                         [this] { listed = monotonicNanoseconds(); });
    }

    ~Race()
    {
        ::kill(browseId, SIGTERM);
        reading.join();
        ::pclose(browse);
    }
    Q_DISABLE_COPY_MOVE(Race)

    double program()
    {
        announceUnlessAsked();
        return static_cast<double>(listed - sent) / 1e6;
    }

    double beside()
    {
        announceUnlessAsked();
        return static_cast<double>(printed - sent) / 1e6;
    }

private:
    // Runs in a thread of its own, so that the window's work does not delay it.
    void read()
    {
        std::array<char, 4096> line{};
        while (std::fgets(line.data(), line.size(), browse)) {
            const std::scoped_lock lock(mutex);
            if (browseId == 0) {
                browseId = std::atoi(line.data());
            } else if (line[0] == '=' && QByteArray(line.data()).contains(name) && printed == 0) {
                printed = monotonicNanoseconds();
            }
        }
    }

    // Announces once for each pair: one announcement gives the figures of both sides.
    void announceUnlessAsked()
    {
        half = !half;
        if (!half) {
            return;
        }
        {
            const std::scoped_lock lock(mutex);
            name = "number" + QByteArray::number(1000 + ++count);
            listed = printed = 0;
        }
        announcer.announce({name, "node", {node.address()}, node.port()});
        Comparison::waitUntil([this] { return listed != 0 && printed != 0; });
        sent = wire.firstResponse(name);
    }

    const SimulatedNode node{NodeDescription::transmitter(),
                             QHostAddress(QStringLiteral("127.0.0.10"))};
    Announcer announcer;
    const Wire wire;
    std::FILE *browse;
    std::atomic<pid_t> browseId{0};
    std::mutex mutex;
    QByteArray name;
    std::atomic<long long> printed{0};
    std::atomic<long long> listed{0};
    std::thread reading;
    MainWindow window;
    WindowDriver hands;
    long long sent = 0;
    int count = 0;
    bool half = false;
};

Comparison::Result announcementToEntry(benchmark::State &state)
{
    if (!qEnvironmentVariableIsSet("DBUS_SYSTEM_BUS_ADDRESS")) {
        Comparison::Result result;
        result.error = QStringLiteral("needs avahi-daemon and avahi-browse");
        return result;
    }
    Race race;
    return Comparison::compare(
        state, [&race] { return race.program(); }, [&race] { return race.beside(); });
}

// Announces services of which none answers, a thousand a second.
void announceCrowd(int count)
{
    Mdns::Sender sender;
    for (int i = 0; i < count; ++i) {
        const QByteArray number = QByteArray::number(i);
        const QByteArray name = Mdns::instance("crowd " + number);
        const QByteArray host = "crowd" + number + ".local";
        sender.send(Mdns::pointer("crowd " + number)
                        .target(name, host, 9)
                        .text(name, {"api_ver=v1.3"})
                        .address(host, QHostAddress(0x7f010000U + i).toString())
                        .bytes());
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

Comparison::Result entryInACrowd(benchmark::State &state)
{
    Comparison::Result result;
    for ([[maybe_unused]] auto turn : state) {
        const SimulatedNode node(NodeDescription::transmitter(),
                                 QHostAddress(QStringLiteral("127.0.0.10")));
        MainWindow window;
        const WindowDriver hands(&window);
        window.show();
        LoopTurns turns;
        turns.start([&hands] { return QString::number(hands.tx->count()); });
        std::atomic<bool> ended{false};
        std::thread crowd([&ended] {
            announceCrowd(2000);
            ended = true;
        });
        Comparison::waitUntil([&ended] { return ended.load(); });
        crowd.join();
        result.figure =
            Comparison::timed([&] {
                const QByteArray name = Mdns::instance("late");
                Mdns::Sender().send(Mdns::pointer("late")
                                        .target(name, "late.local", node.port())
                                        .text(name, {"api_ver=v1.3"})
                                        .address("late.local", QStringLiteral("127.0.0.10"))
                                        .bytes());
                Comparison::waitUntil([&hands] { return hands.tx->count() > 0; });
            })
            / 1000;
        turns.stop();
        result.remark = turns.summary();
        state.SetIterationTime(result.figure);
    }
    return result;
}

} // namespace

void Rows::addDiscoveryRows()
{
    Comparison::addRow({"Announcement to entry in the selector", "avahi-browse -r", "ms", 1.3, 15},
                       announcementToEntry);
    Comparison::addRow({"A node's entry behind 2,000 services at 1,000 a second", "", "s", 5, 1},
                       entryInACrowd);
}
