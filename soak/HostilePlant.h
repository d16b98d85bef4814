#pragma once

#include "Announcer.h"
#include "Dice.h"
#include "Plant.h"

#include <QByteArrayList>
#include <QSemaphore>
#include <QThread>

#include <map>

// Fifty nodes that misbehave, driven by a thread of their own. Each tenth of a second one step
// switches on a fault or an outage, which a later step takes back within eight seconds, or changes
// what is announced. The seed decides what each step does.
//
// Every request that a node receives is checked: it must name that node as its host, be a GET or a
// PATCH of a staged endpoint, and ask for a path below /x-nmos/. Anything else is a finding.
class HostilePlant final {
public:
    // Starts the nodes and the thread. bystander is a host and port that nobody may connect to, but
    // that nodes name in their answers. The findings must outlive the plant.
    HostilePlant(quint32 theSeed, const QByteArray &bystander, Findings *theFindings)
        : seed(theSeed)
        , elsewhere{"http://" + bystander, "//" + bystander, "file:///etc/hostname", "http://[", ""}
        , findings(theFindings)
        , thread(QThread::create([this] { work(); }))
    {
        Announcer::silenceAvahi();
        for (const char *address : {"::1", "fd00:6e70:1::1"}) {
            plant.add(describe(plant.size()), QHostAddress(QLatin1String(address)));
        }
        plant.addMany(48, [this](int index) { return describe(index); });
        for (int i = 0; i < plant.size(); ++i) {
            const QString node = plant.at(i).baseUrl().mid(7);
            plant.at(i).setRequestObserver(
                [this, node](const auto &request) { check(node, request); });
        }
        thread->start();
    }
    // Waits for the step that runs, and takes back what is switched on.
    ~HostilePlant()
    {
        ending.release();
        thread->wait();
    }
    Q_DISABLE_COPY_MOVE(HostilePlant)

    const Plant &nodes() const
    {
        return plant;
    }

private:
    NodeDescription describe(int index) const
    {
        Dice dice(seed, 0, static_cast<quint32>(index));
        const QString label = dice.hostileText().left(200) + QString::number(index);
        const QVector<EndpointDescription> all{
            {label}, {label, Essence::Audio}, {label, Essence::Data}, {QString()}};
        return {label, {{label, all.mid(dice.below(4)), all}}};
    }

    void check(const QString &node, const LoggedRequest &request)
    {
        const bool isHost = request.headers.contains({"Host", node.toUtf8()});
        const bool patches = request.method == QLatin1String("PATCH")
            && request.path.endsWith(QLatin1String("/staged"));
        if (!isHost || (request.method != QLatin1String("GET") && !patches)
            || !request.path.startsWith(QLatin1String("/x-nmos/"))) {
            findings->add(QStringLiteral("to %1: ").arg(node) + request.method + request.path);
        }
    }

    void work()
    {
        for (; !ending.tryAcquire(1, 100); ++step) {
            for (; !undos.empty() && undos.begin()->first <= step; undos.erase(undos.begin())) {
                undos.begin()->second();
            }
            Dice dice(seed, 1, step);
            const int index = dice.below(plant.size());
            plant.at(index).clearRequests();
            change(index, plant.at(index), dice);
        }
        for (const auto &undo : undos) {
            undo.second();
        }
    }

    void change(int index, SimulatedNode &node, Dice &dice)
    {
        const quint32 end = step + 5 + static_cast<quint32>(dice.below(75));
        switch (dice.below(7)) {
        case 0:
            node.stop();
            undos.emplace(end, [&node] { node.start(); });
            break;
        case 1:
        case 2:
            announce(index, node, dice);
            break;
        default:
            const QString path = QLatin1String(dice.pick(
                QList<const char *>{"/x-nmos/node/v1.3/devices", "/x-nmos/node/v1.3/flows",
                                    "/x-nmos/node/v1.3/senders", "/x-nmos/node/v1.3/receivers",
                                    "/x-nmos/node/v1.3/self", "/x-nmos/connection/*", "*"}));
            node.setFault(path, anyFault(dice));
            undos.emplace(end, [&node, path] { node.clearFaults(path); });
        }
    }

    Fault anyFault(Dice &dice) const
    {
        // 80 MiB, packed into 80 KiB.
        static const QByteArray bomb = qCompress(QByteArray(80 * 1024 * 1024, '[')).mid(4);
        const QByteArray place = dice.pick(elsewhere);
        return dice.pick(QList<Fault>{
            Fault::delay(dice.below(3000)),
            Fault::status(dice.pick(QList<int>{204, 206, 400, 401, 423, 500, 503})),
            Fault::hang(),
            Fault::hang().onMethod("PATCH"),
            Fault::reset(),
            Fault::redirect(place, dice.pick(QList<int>{301, 302, 307, 308})),
            Fault::flood(dice.oneIn(2) ? 200 * 1024 * 1024 : 0),
            Fault::untilActivated(),
            Fault::body(bomb).encoded("deflate"),
            Fault::body(anySenders(dice)),
            Fault::body(anySenders(dice)),
            Fault::body("[{\"id\": {}, \"label\": [], \"format\": null, \"flow_id\": 7}]"),
            Fault::body("[{\"id\": \"\xff\xc0\x80\", \"label\": \"\\ud800\\u0000\"}]"),
            Fault::body("[" + QByteArray("{\"id\": \"1\"},").repeated(5000) + "{}]"),
            Fault::body(QByteArray(10000, '[') + QByteArray(10000, ']')),
            Fault::body("[\"" + QByteArray(1000000, '\\')),
        });
    }

    // Senders with hostile labels, whose manifests are another node's or none.
    QByteArray anySenders(Dice &dice) const
    {
        const SimulatedNode &node = plant.at(dice.below(plant.size()));
        QJsonArray altered;
        const QJsonArray senders = node.collection(QStringLiteral("senders"));
        for (const QJsonValue &sender : senders) {
            const QJsonObject lies =
                jsonObject({{"manifest_href", dice.pick(elsewhere).constData()},
                            {"label", dice.hostileText()}});
            altered.append(merged(sender.toObject(), dice.oneIn(3) ? QJsonObject() : lies));
        }
        return toJson(altered);
    }

    // Each announcer serves ten nodes. When it goes, it says goodbye for all of them.
    void announce(int index, const SimulatedNode &node, Dice &dice)
    {
        auto &announcer = announcers[index % 5];
        if (!announcer || dice.oneIn(10)) {
            announcer = std::make_unique<Announcer>();
        }
        const QByteArray name = QByteArray::number(index);
        Announcement announcement{QByteArray(name + node.label().toUtf8()).left(63),
                                  "n" + name,
                                  {node.address()},
                                  node.port()};
        announcement.hasTxt = !dice.oneIn(8);
        announcer->announce(announcement);
    }

    const quint32 seed;
    const QByteArrayList elsewhere; // where no request may lead
    Findings *const findings;
    Plant plant;
    std::map<int, std::unique_ptr<Announcer>> announcers;
    std::multimap<quint32, std::function<void()>> undos; // by step
    quint32 step = 0;
    QSemaphore ending;
    const std::unique_ptr<QThread> thread;
};
