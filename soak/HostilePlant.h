#pragma once

#include "Announcer.h"
#include "Plant.h"
#include "MdnsPacket.h"

#include <QSemaphore>

#include <array>
#include <functional>
#include <map>
#include <memory>

class Dice;
class QThread;
class Record;

// Fifty nodes that misbehave, driven by a thread of their own. Each tenth of a second one step
// switches on a fault or an outage, which a later step takes back within eight seconds, or changes
// what is announced. The seed decides what each step does.
//
// Every request that a node receives is checked: it must name that node as its host, be a GET or a
// PATCH of a staged endpoint, and ask for a path below /x-nmos/. Anything else is a finding.
class HostilePlant final {
public:
    // Starts the nodes and the thread. bystander is a host and port that nobody may connect to,
    // canary a file that nobody may open; nodes name both in their answers. theRecord must outlive
    // the plant.
    HostilePlant(quint32 theSeed, QString theBystander, QString theCanary, Record *theRecord);
    // Waits for the step that runs, and takes back what is switched on.
    ~HostilePlant();
    Q_DISABLE_COPY_MOVE(HostilePlant)

    const Plant &nodes() const;

private:
    void work();
    void undoLater(Dice &dice, const std::function<void()> &undo);
    void check(const QString &node, const LoggedRequest &request);
    SimulatedNode &anyNode(Dice &dice) const;
    QString anyManifest(Dice &dice) const;

    // What a step does.
    void setFault(Dice &dice);
    void setBody(Dice &dice);
    void alterSenders(Dice &dice);
    void switchOff(Dice &dice);
    void announce(Dice &dice);
    void update(Dice &dice);
    void withdraw(Dice &dice);
    void sendGarbage(Dice &dice);

    // Each announcer serves ten nodes. Makes it when there is none.
    std::unique_ptr<Announcer> &announcerOf(int node);
    QByteArray instanceOf(int node) const;

    const quint32 seed;
    const QString bystander;
    const QString canary;
    Record *const record;
    Plant plant;
    std::array<std::unique_ptr<Announcer>, 5> announcers;
    std::unique_ptr<Mdns::Sender> packets = std::make_unique<Mdns::Sender>();
    std::multimap<quint32, std::function<void()>> undos; // by step
    quint32 step = 0;
    QSemaphore ending;
    const std::unique_ptr<QThread> thread;
};
