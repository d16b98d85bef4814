#include "Announcer.h"
#include "support/TestMain.h"

#include <QNetworkDatagram>
#include <QNetworkInterface>
#include <QUdpSocket>
#include <QtEndian>

namespace {

constexpr quint16 mdnsPort = 5353;
constexpr quint16 pointerType = 12;
constexpr quint16 textType = 16;
constexpr quint16 locationType = 33;

struct Record {
    QByteArray name; // labels with a dot after each
    quint16 type = 0;
    quint32 ttl = 0;
    QByteArray data; // of a PTR record: the name
};

// Reads a name (RFC 1035, 4.1.4) and leaves the place after it.
QByteArray readName(const QByteArray &packet, int *at)
{
    QByteArray name;
    int place = *at;
    for (bool jumped = false; place < packet.size() && name.size() < 1000;) {
        const int length = static_cast<quint8>(packet.at(place));
        const int next = length >= 0xc0 ? place + 2 : place + 1 + length;
        if (!jumped) {
            *at = next;
        }
        if (length == 0) {
            break;
        }
        if (length >= 0xc0) {
            place = qFromBigEndian<quint16>(packet.constData() + place) & 0x3fff;
            jumped = true;
        } else {
            name += packet.mid(place + 1, length) + '.';
            place = next;
        }
    }
    return name;
}

// The answer records of an mDNS response (RFC 1035, 4.1); none for a question.
QList<Record> answers(const QByteArray &packet)
{
    const auto number = [&packet](int at) {
        return qFromBigEndian<quint16>(packet.constData() + at);
    };
    QList<Record> records;
    if (packet.size() < 12 || (number(2) & 0x8000) == 0) {
        return records;
    }
    int at = 12;
    for (int left = number(6); left > 0; --left) {
        Record record;
        record.name = readName(packet, &at);
        if (at + 10 > packet.size()) {
            break;
        }
        record.type = number(at);
        record.ttl = qFromBigEndian<quint32>(packet.constData() + at + 4);
        int data = at + 10;
        at = data + number(at + 8);
        record.data =
            record.type == pointerType ? readName(packet, &data) : packet.mid(data, at - data);
        records.append(record);
    }
    return records;
}

QByteArray label(const QByteArray &text)
{
    return QByteArray(1, static_cast<char>(text.size())) + text;
}

} // namespace

// Listens to what goes over the wire from vx0.
class AnnouncerTest final : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void announcesAndSaysGoodbye();
    void announcesChangedTxt();
    void withoutTxtRecord();
    void vanishesWithoutGoodbye();
    void secondOwnerOfANameCollides();

private:
    bool hasSeen(quint16 type, const QByteArray &part, bool goodbye = false);

    QUdpSocket socket;
    QList<Record> seen;
};

void AnnouncerTest::initTestCase()
{
    Announcer::silenceAvahi();
    const QNetworkInterface link = QNetworkInterface::interfaceFromName(QStringLiteral("vx1"));
    if (!link.isValid()) {
        QSKIP("no interface vx1 here; scripts/with-network makes one");
    }
    QVERIFY(socket.bind(QHostAddress(QHostAddress::AnyIPv4), mdnsPort,
                        QUdpSocket::ShareAddress | QUdpSocket::ReuseAddressHint));
    QVERIFY(socket.joinMulticastGroup(QHostAddress(QStringLiteral("224.0.0.251")), link));
    connect(&socket, &QUdpSocket::readyRead, this, [this] {
        while (socket.hasPendingDatagrams()) {
            seen += answers(socket.receiveDatagram().data());
        }
    });
}

void AnnouncerTest::init()
{
    seen.clear();
}

bool AnnouncerTest::hasSeen(quint16 type, const QByteArray &part, bool goodbye)
{
    return std::any_of(seen.cbegin(), seen.cend(), [&](const Record &record) {
        return record.type == type && (record.ttl == 0) == goodbye && record.data.contains(part);
    });
}

void AnnouncerTest::announcesAndSaysGoodbye()
{
    const QByteArray odd = "Cam.1 \xc3\xa9\n\\ %1";
    Announcement first{odd, "odd", {QHostAddress(QStringLiteral("192.0.2.1"))}, 8010};
    Announcement second{"Second", "odd", {}, 8011, "_http._tcp"};
    {
        Announcer announcer;
        QVERIFY(announcer.announce(first));
        QVERIFY(announcer.announce(second));
        QVERIFY(!announcer.announce(first));
        QTRY_VERIFY(announcer.isEstablished(odd));
        QTRY_VERIFY(hasSeen(pointerType, odd + "._nmos-node._tcp.local."));
        QTRY_VERIFY(hasSeen(1, QByteArray("\xc0\x00\x02\x01", 4)));
        QTRY_VERIFY(hasSeen(locationType, QByteArray("\x1f\x4a", 2)));
        QTRY_VERIFY(
            hasSeen(textType, label("api_proto=http") + label("api_ver=v1.0,v1.1,v1.2,v1.3")));
        QTRY_VERIFY(hasSeen(pointerType, "Second._http._tcp.local."));
        QVERIFY(announcer.withdraw(odd));
        QVERIFY(!announcer.withdraw(odd));
        QTRY_VERIFY(hasSeen(pointerType, odd + "._nmos-node._tcp.local.", true));
        QVERIFY(!hasSeen(pointerType, "Second._http._tcp.local.", true));
    }
    QTRY_VERIFY(hasSeen(pointerType, "Second._http._tcp.local.", true));
}

void AnnouncerTest::announcesChangedTxt()
{
    Announcer announcer;
    QVERIFY(announcer.announce({"Changing", "changing"}));
    QTRY_VERIFY(hasSeen(textType, label("pri=100")));
    QVERIFY(announcer.updateTxt("Changing", {"pri=0", "bare"}));
    QTRY_VERIFY(hasSeen(textType, label("pri=0") + label("bare")));
}

void AnnouncerTest::withoutTxtRecord()
{
    Announcement bare{"Bare", "bare", {}, 8012};
    bare.hasTxt = false;
    Announcer announcer;
    QVERIFY(announcer.announce(bare));
    QTRY_VERIFY(hasSeen(pointerType, "Bare._nmos-node._tcp.local."));
    QTRY_VERIFY(hasSeen(locationType, "\x1f\x4c"));
    QVERIFY(!hasSeen(textType, {}));
}

void AnnouncerTest::vanishesWithoutGoodbye()
{
    Announcer announcer;
    QVERIFY(announcer.announce({"Vanishing", "vanishing"}));
    QTRY_VERIFY(hasSeen(pointerType, "Vanishing._nmos-node._tcp.local."));
    announcer.vanish();
    QVERIFY(!announcer.isRunning());
    // What comes later than a goodbye would have come.
    Announcer other;
    QVERIFY(other.announce({"Later", "later"}));
    QTRY_VERIFY(hasSeen(pointerType, "Later._nmos-node._tcp.local."));
    QVERIFY(!hasSeen(pointerType, "Vanishing._nmos-node._tcp.local.", true));
}

void AnnouncerTest::secondOwnerOfANameCollides()
{
    Announcer owner;
    QVERIFY(owner.announce({"Owned", "owner", {}, 8013}));
    QTRY_VERIFY(owner.isEstablished("Owned"));
    Announcer rival;
    QVERIFY(rival.announce({"Owned", "rival", {}, 8014}));
    QTRY_VERIFY(rival.hasCollision("Owned"));
    QVERIFY(!owner.hasCollision("Owned"));
}

NODEPATCH_TEST_MAIN(AnnouncerTest)
#include "tst_announcer.moc"
