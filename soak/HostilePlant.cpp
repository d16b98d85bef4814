#include "HostilePlant.h"

#include "Side.h"

#include <QThread>

namespace {

NodeDescription describe(int index)
{
    const QStringList texts = hostileTexts();
    const QString label = texts.at(index % texts.size()).left(200) + QString::number(index);
    NodeDescription both = NodeDescription::transmitter(label);
    both.devices.first().receivers = NodeDescription::receiver(label).devices.first().receivers;
    return index % 3 == 0 ? NodeDescription::wide(label, 6, 6) : both;
}

// A host and port without the IPv6 zone, which a Host header does not carry.
QString authority(QString text)
{
    const int zone = text.indexOf(QLatin1Char('%'));
    return zone < 0 ? text : text.remove(zone, text.indexOf(QLatin1Char(']')) - zone);
}

QString anyPath(Dice &dice)
{
    const QString path = SimulatedNode::collectionPath(
        dice.pick(QStringList{QStringLiteral("devices"), QStringLiteral("flows"),
                              QStringLiteral("senders"), QStringLiteral("receivers")}));
    return dice.pick(QStringList{path, path, path, QStringLiteral("*"),
                                 QStringLiteral("/x-nmos/connection/*"),
                                 QStringLiteral("/x-nmos/node/v1.3/self")});
}

// 80 MiB, packed into 80 KiB.
QByteArray bomb()
{
    static const QByteArray packed = qCompress(QByteArray(80 * 1024 * 1024, '[')).mid(4);
    return packed;
}

// Bodies that are no collection, or that break a careless parser.
QByteArray anyBody(Dice &dice)
{
    return dice.pick(QList<QByteArray>{
        "", "null", "{}", "[]", "[null, true, 1e999, \"x\", [], {}]",
        "<!DOCTYPE html><html><body>It works!</body></html>",
        "[{\"id\": \"\xff\xc0\x80\", \"label\": \"\\ud800\\u0000\", \"format\": {}}]",
        "[{\"id\": {}, \"label\": [], \"format\": null, \"flow_id\": 7, \"senders\": \"x\"}]",
        QByteArray(10000, '['), QByteArray(10000, '[') + QByteArray(10000, ']'),
        QByteArray("{\"a\":").repeated(10000) + "1" + QByteArray(10000, '}'),
        "[" + QByteArray("{\"id\": \"1\", \"label\": \"same\"},").repeated(5000) + "{}]",
        "[{\"a\": [" + QByteArray("[0],").repeated(5000) + "0], \"a\": 0}]",
        "[\"" + QByteArray(1000000, '\\')});
}

} // namespace

HostilePlant::HostilePlant(quint32 theSeed, QString theBystander, QString theCanary,
                           Record *theRecord)
    : seed(theSeed)
    , bystander(std::move(theBystander))
    , canary(std::move(theCanary))
    , record(theRecord)
    , thread(QThread::create([this] { work(); }))
{
    Announcer::silenceAvahi();
    for (const char *address : {"::1", "fd00:6e70:1::1", "fe80::1%vx0"}) {
        plant.add(describe(plant.size()), QHostAddress(QLatin1String(address)));
    }
    plant.addMany(50 - plant.size(), describe);
    for (int i = 0; i < plant.size(); ++i) {
        const QString node = authority(plant.at(i).baseUrl().mid(7));
        plant.at(i).setRequestObserver(
            [this, node](const LoggedRequest &request) { check(node, request); });
    }
    thread->start();
}

HostilePlant::~HostilePlant()
{
    ending.release();
    thread->wait();
}

const Plant &HostilePlant::nodes() const
{
    return plant;
}

void HostilePlant::check(const QString &node, const LoggedRequest &request)
{
    QString host;
    for (const auto &header : request.headers) {
        host = header.first.toLower() == "host" ? QString::fromUtf8(header.second) : host;
    }
    const bool patches =
        request.method == QLatin1String("PATCH") && request.path.endsWith(QLatin1String("/staged"));
    if (authority(host) != node || (request.method != QLatin1String("GET") && !patches)
        || !request.path.startsWith(QLatin1String("/x-nmos/"))) {
        record->finding(QStringLiteral("%1 %2 for %3 came to %4")
                            .arg(request.method, request.path.left(80), host, node));
    }
}

void HostilePlant::work()
{
    using Operation = void (HostilePlant::*)(Dice &);
    const QList<Operation> operations{
        &HostilePlant::setFault,     &HostilePlant::setFault,  &HostilePlant::setBody,
        &HostilePlant::alterSenders, &HostilePlant::switchOff, &HostilePlant::announce,
        &HostilePlant::announce,     &HostilePlant::update,    &HostilePlant::withdraw,
        &HostilePlant::sendGarbage,
    };
    for (; !ending.tryAcquire(1, 100); ++step) {
        for (; !undos.empty() && undos.begin()->first <= step; undos.erase(undos.begin())) {
            undos.begin()->second();
        }
        Dice dice(seed, 1, step);
        (this->*dice.pick(operations))(dice);
        plant.at(static_cast<int>(step) % plant.size()).clearRequests();
    }
    for (const auto &undo : undos) {
        undo.second();
    }
    packets.reset();
}

void HostilePlant::undoLater(Dice &dice, const std::function<void()> &undo)
{
    undos.emplace(step + 5 + static_cast<quint32>(dice.below(75)), undo);
}

SimulatedNode &HostilePlant::anyNode(Dice &dice) const
{
    return plant.at(dice.below(plant.size()));
}

void HostilePlant::setFault(Dice &dice)
{
    const QByteArray place = dice.pick(
        QList<QByteArray>{"http://" + bystander.toUtf8() + "/", "file://" + canary.toUtf8(), "//",
                          "http://[", "", "/x-nmos/node/v1.3/senders/"});
    const QList<Fault> faults{
        Fault::delay(dice.below(3000)),
        Fault::status(dice.pick(QList<int>{204, 206, 400, 401, 423, 500, 503})),
        Fault::status(404, QByteArray(100000, '<'), "text/html"),
        Fault::hang(),
        Fault::hang().onMethod("PATCH"),
        Fault::reset(),
        Fault::drop(),
        Fault::truncate(),
        Fault::redirect(place, dice.pick(QList<int>{301, 302, 307, 308})),
        Fault::drip(1 + dice.below(5)),
        Fault::flood(dice.oneIn(2) ? 200 * 1024 * 1024 : 0),
        Fault::body(bomb()).encoded("deflate"),
        Fault::untilActivated(),
    };
    SimulatedNode &node = anyNode(dice);
    const QString path = anyPath(dice);
    const Fault fault = dice.pick(faults);
    node.setFault(path, fault);
    record->count(QStringLiteral("plant: fault %1").arg(static_cast<int>(fault.kind)));
    undoLater(dice, [&node, path] { node.clearFaults(path); });
}

void HostilePlant::setBody(Dice &dice)
{
    SimulatedNode &node = anyNode(dice);
    node.setResource(anyPath(dice), anyBody(dice));
    record->count(QStringLiteral("plant: garbage in place of a resource"));
    undoLater(dice, [&node] { node.clearResources(); });
}

QString HostilePlant::anyManifest(Dice &dice) const
{
    const SimulatedNode &other = anyNode(dice);
    const QString path = SimulatedNode::manifestPath(other.senderIds().value(0));
    return dice.pick(QStringList{
        other.baseUrl() + path, QStringLiteral("HTTP://") + other.host() + path,
        QStringLiteral("file://") + canary, canary, QStringLiteral("//") + bystander,
        QStringLiteral("ftp://") + bystander, QStringLiteral("ws://") + bystander,
        QStringLiteral("qrc:/img"), QStringLiteral("data:,v=0"), QStringLiteral("http://["),
        QStringLiteral("javascript:x"), QStringLiteral("http:///") + canary, QString()});
}

void HostilePlant::alterSenders(Dice &dice)
{
    SimulatedNode &node = anyNode(dice);
    QJsonArray altered;
    const QJsonArray senders = node.collection(QStringLiteral("senders"));
    for (const QJsonValue &value : senders) {
        QJsonObject sender = value.toObject();
        sender.insert(QLatin1String("manifest_href"), anyManifest(dice));
        sender.insert(QLatin1String("label"), dice.pick(hostileTexts()));
        altered.append(sender);
    }
    node.setCollection(QStringLiteral("senders"), toJson(altered));
    record->count(QStringLiteral("plant: manifests elsewhere, hostile labels"));
    undoLater(dice, [&node] { node.clearResources(); });
}

void HostilePlant::switchOff(Dice &dice)
{
    SimulatedNode &node = anyNode(dice);
    node.stop();
    record->count(QStringLiteral("plant: node off"));
    undoLater(dice, [&node] { node.start(); });
}

std::unique_ptr<Announcer> &HostilePlant::announcerOf(int node)
{
    auto &announcer = announcers.at(static_cast<size_t>(node) % announcers.size());
    if (!announcer) {
        announcer = std::make_unique<Announcer>();
    }
    return announcer;
}

QByteArray HostilePlant::instanceOf(int node) const
{
    const QByteArray label = plant.at(node).label().toUtf8().replace('\0', ' ');
    return QByteArray(QByteArray::number(node) + ' ' + label).left(63);
}

void HostilePlant::announce(Dice &dice)
{
    const int node = dice.below(plant.size());
    Announcement announcement;
    announcement.instance = instanceOf(node);
    announcement.hostName = "n" + QByteArray::number(node);
    announcement.addresses = {plant.at(node).address()};
    announcement.port = plant.at(node).port();
    announcement.hasTxt = !dice.oneIn(8);
    announcerOf(node)->announce(announcement);
    record->count(QStringLiteral("plant: announce"));
}

void HostilePlant::update(Dice &dice)
{
    const int node = dice.below(plant.size());
    const QByteArray protocol = dice.pick(
        QList<QByteArray>{"http", "http", "HTTP", "https", "file", "ftp", "data", "", "\xff"});
    const QByteArray version = dice.pick(QList<QByteArray>{"v1.0,v1.3", "v1.3,v99999999999.9", "",
                                                           "..", "a?b#c%41", QByteArray(240, 'v')});
    announcerOf(node)->updateTxt(instanceOf(node),
                                 {"api_proto=" + protocol, "api_ver=" + version, "=x", "bare"});
    record->count(QStringLiteral("plant: update of an announcement"));
}

void HostilePlant::withdraw(Dice &dice)
{
    const int node = dice.below(plant.size());
    if (dice.oneIn(8)) {
        std::unique_ptr<Announcer> &announcer = announcerOf(node);
        announcer->vanish();
        announcer.reset();
        record->count(QStringLiteral("plant: ten nodes vanish"));
    } else {
        announcerOf(node)->withdraw(instanceOf(node));
        record->count(QStringLiteral("plant: withdraw"));
    }
}

void HostilePlant::sendGarbage(Dice &dice)
{
    const char type[] = "_nmos-node._tcp.local";
    const QByteArray ghost =
        Mdns::label("ghost " + QByteArray::number(dice.below(20))) + Mdns::name(type);
    QByteArray packet =
        Mdns::Packet()
            .add(Mdns::name(type), Mdns::Ptr, ghost, dice.oneIn(3) ? Mdns::goodbye : 20)
            .target(ghost, "ghost.local", static_cast<quint16>(dice.below(65536)), 20)
            .text(ghost, {QByteArray(dice.below(255), '='), "api_ver=v1.9"}, 20)
            .address("ghost.local", QStringLiteral("127.0.200.1"), 20)
            .add(ghost, dice.oneIn(4) ? Mdns::CName : Mdns::Txt, "\xc0\x0c")
            .bytes();
    for (int i = dice.below(12); i > 0; --i) {
        packet[dice.below(packet.size())] = static_cast<char>(dice.below(256));
    }
    packets->send(packet.left(packet.size() - (dice.oneIn(3) ? dice.below(100) : 0)));
    record->count(QStringLiteral("plant: garbage packet"));
}
