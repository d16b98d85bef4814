#include "Announcer.h"
#include "support/MdnsWatch.h"
#include "support/TestMain.h"

#include <qmdnsengine/resolver.h>

using namespace QMdnsEngine;

// Hears the announcements as the program does.
class TestAnnouncer final : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void announcesUpdatesAndWithdraws();
    void announcesWithoutTxtRecordAndEndsWithGoodbye();
    void vanishesWithoutGoodbye();

private:
    MdnsWatch watch;
    QStringList &events = watch.events;
};

void TestAnnouncer::initTestCase()
{
    Announcer::silenceAvahi();
}

void TestAnnouncer::init()
{
    events.clear();
}

void TestAnnouncer::announcesUpdatesAndWithdraws()
{
    const QByteArray name = "Cam \xc3\xa9\\ %1";
    const QString place = QString::fromUtf8(name + "|odd.local.|8010|");
    const QHostAddress address(QStringLiteral("192.0.2.1"));
    Announcer announcer;
    const Announcement announcement{name, "odd", {address}, 8010};
    QVERIFY(announcer.announce(announcement));
    QVERIFY(!announcer.announce(announcement));
    QTRY_COMPARE(events,
                 QStringList{QStringLiteral("+|") + place
                             + QStringLiteral("api_auth=false|api_proto=http|"
                                              "api_ver=v1.0,v1.1,v1.2,v1.3|pri=100")});
    Resolver resolver(watch.server.get(), "odd.local.");
    QList<QHostAddress> found;
    connect(&resolver, &Resolver::resolved, this,
            [&found](const QHostAddress &resolved) { found += resolved; });
    QTRY_COMPARE(found, QList<QHostAddress>{address});

    QVERIFY(announcer.updateTxt(name, {"pri=0", "bare"}));
    const QString updated = place + QStringLiteral("bare|pri=0");
    QTRY_COMPARE(events.last(), QString(QStringLiteral("~|") + updated));
    QVERIFY(announcer.withdraw(name));
    QVERIFY(!announcer.withdraw(name));
    QTRY_COMPARE(events.last(), QString(QStringLiteral("-|") + updated));
}

void TestAnnouncer::announcesWithoutTxtRecordAndEndsWithGoodbye()
{
    Announcement bare{"Bare", "bare", {}, 8012};
    bare.hasTxt = false;
    {
        Announcer announcer;
        QVERIFY(announcer.announce(bare));
        QVERIFY(!announcer.updateTxt("Bare", {"pri=0"}));
        QTRY_COMPARE(events, QStringList{QStringLiteral("+|Bare|bare.local.|8012")});
    }
    QTRY_COMPARE(events.last(), QStringLiteral("-|Bare|bare.local.|8012"));
}

void TestAnnouncer::vanishesWithoutGoodbye()
{
    const QString appears = QStringLiteral("+|Vanishing|vanishing.local.|8014");
    Announcement announcement{"Vanishing", "vanishing", {}, 8014};
    announcement.hasTxt = false;
    Announcer vanishing;
    QVERIFY(vanishing.announce(announcement));
    QTRY_VERIFY(events.contains(appears));
    vanishing.vanish();
    QVERIFY(!vanishing.isRunning());
    // A goodbye would have come before this one.
    Announcement later{"Later", "later", {}, 8015};
    later.hasTxt = false;
    Announcer other;
    QVERIFY(other.announce(later));
    QTRY_VERIFY(events.contains(QStringLiteral("+|Later|later.local.|8015")));
    QVERIFY(other.withdraw("Later"));
    QTRY_VERIFY(events.contains(QStringLiteral("-|Later|later.local.|8015")));
    QVERIFY(!events.contains(QStringLiteral("-|Vanishing|vanishing.local.|8014")));
}

NODEPATCH_TEST_MAIN(TestAnnouncer)
#include "tst_announcer.moc"
