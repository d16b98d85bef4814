// The About panel, and the weekly check for a newer version with the real library and a real feed.

#include "FeedAddress.h"
#include "support/Boxes.h"
#include "support/EventCounter.h"
#include "support/ProgramTest.h"
#include "support/RawServer.h"
#include "support/TestMain.h"
#include "support/Window.h"

#include <QDateTime>
#include <QDesktopServices>
#include <QElapsedTimer>
#include <QFile>
#include <QFrame>
#include <QLabel>

namespace {

QUrl feedAddress;

const QString dayKey = "LastUpdateTime"_s;

constexpr qint64 secondsPerDay = 86400;

// The day that is stored where every program finds it.
QByteArray dayOnDisk()
{
    QFile file(settings().fileName());
    const QByteArray key = '\n' + dayKey.toUtf8() + '=';
    const QByteArray text = file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    const int at = text.indexOf(key) + key.size();
    return at < key.size() ? QByteArray() : text.mid(at, text.indexOf('\n', at) - at);
}

// Publishes a version. Notes at each query the day that the settings hold at that moment.
class Feed final : public RawServer {
public:
    explicit Feed(const QByteArray &version)
    {
        feedAddress = QUrl("http://"_s + host());
        answerTo = [this, version](const QByteArray &) {
            storedDays.append(dayOnDisk());
            return httpAnswer(R"({"velmoranodepatch":{"version":")" + version
                              + R"(","download":"https://velmora.example/get?a=1"}})");
        };
    }

    QByteArrayList storedDays;
};

QFrame *aboutPanel(const QWidget &window)
{
    return window.findChild<QFrame *>("aboutPanel"_s);
}

} // namespace

QUrl releaseFeedAddress()
{
    return feedAddress;
}

class TestAbout final : public ProgramTest {
    Q_OBJECT

public slots:
    void open(const QUrl &url)
    {
        opened.append(url.toString());
    }

private slots:
    void initTestCase()
    {
        ProgramTest::initTestCase();
        QDesktopServices::setUrlHandler("https"_s, this, "open");
    }

    void init()
    {
        ProgramTest::init();
        opened.clear();
    }

    void asksOnceAWeek_data()
    {
        QTest::addColumn<QString>("stored"); // %1 is a day as many days from today as daysFromNow
        QTest::addColumn<int>("daysFromNow");
        QTest::addColumn<bool>("asks");
        QTest::newRow("the first start asks nobody") << QString() << 0 << false;
        QTest::newRow("six days after the last check") << "%1"_s << -6 << false;
        QTest::newRow("seven days after the last check") << "%1"_s << -7 << true;
        QTest::newRow("after the clock was set back") << "%1"_s << 9 << false;
        QTest::newRow("a text that is no number counts as day 0") << "x%1"_s << 0 << true;
    }

    void asksOnceAWeek()
    {
        QFETCH(const QString, stored);
        QFETCH(const int, daysFromNow);
        QFETCH(const bool, asks);
        const Feed feed("8.0.180");
        // Not over midnight.
        QTRY_VERIFY_WITH_TIMEOUT(QDateTime::currentSecsSinceEpoch() % secondsPerDay < 86390, 20000);
        const qint64 today = QDateTime::currentSecsSinceEpoch() / secondsPerDay;
        const QString before = stored.isEmpty() ? QString() : stored.arg(today + daysFromNow);
        if (!before.isEmpty()) {
            store(dayKey, before);
        }
        Boxes boxes;
        const Window w;
        const bool storesToday = asks || stored.isEmpty();
        const QByteArray after = storesToday ? QByteArray::number(today) : before.toUtf8();
        QCOMPARE(feed.storedDays, asks ? QByteArrayList{after} : QByteArrayList());
        QCOMPARE(settings().value(dayKey).toByteArray(), after);
    }

    void offersANewerVersion_data()
    {
        QTest::addColumn<QString>("button");
        QTest::addColumn<QStringList>("opens");
        const QStringList address{"https://velmora.example/get?a=1"_s};
        QTest::newRow("Download opens the address") << "Download"_s << address;
        QTest::newRow("Later opens nothing") << "Later"_s << QStringList();
        QTest::newRow("closing the box opens nothing") << QString() << QStringList();
    }

    void offersANewerVersion()
    {
        QFETCH(const QString, button);
        const Feed feed("8.10.0");
        store(dayKey, 1);
        bool hasPanel = true;
        Boxes boxes;
        boxes.inspect = [&](QMessageBox *box) {
            hasPanel = aboutPanel(*box->parentWidget());
            if (button.isEmpty()) {
                box->close();
            } else {
                WindowDriver::press(box, button);
            }
        };
        const Window w;
        QCOMPARE(boxes.take(),
                 (QList<ShownBox>{{"VelmoraNodePatch"_s,
                                   "A new version is available.\nVersion: 8.10.0 \n"
                                   "Would you like to download now?"_s,
                                   QMessageBox::Information}}));
        QVERIFY(!hasPanel);
        QTEST(opened, "opens");
    }

    void showsThePanelForAWhile()
    {
        QElapsedTimer sinceShown;
        sinceShown.start();
        const Window w;
        QFrame *panel = aboutPanel(w.window);
        QVERIFY(panel);
        // A window manager may put the main window, which comes later, above the panel.
        const EventCounter<QFrame> raised(panel, QEvent::ZOrderChange);
        QTRY_COMPARE(raised.count, 1);
        QVERIFY(panel->isVisible() && panel->windowType() == Qt::SplashScreen);
        QCOMPARE(panel->size(), QSize(300, 300));
        QStringList texts;
        const auto labels = panel->findChildren<QLabel *>();
        for (const QLabel *label : labels) {
            texts.append(label->text());
        }
        QCOMPARE(texts,
                 (QStringList{"VelmoraNodePatch"_s, "v8.0.180"_s, "velmora.example"_s, QString()}));
        QTRY_VERIFY(!panel->isVisible());
        QVERIFY(sinceShown.elapsed() >= 2300); // a coarse timer may be five percent early
        w.press("About"_s);
        QVERIFY(panel->isVisible() && raised.count == 2);
        QTRY_VERIFY(!panel->isVisible());
    }

private:
    QStringList opened;
};

NODEPATCH_TEST_MAIN(TestAbout)
#include "tst_about.moc"
