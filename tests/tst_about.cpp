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
#include <QTimer>

namespace {

QUrl feedAddress;

const QString dayKey = "LastUpdateTime"_s;

constexpr qint64 secondsPerDay = 86400;

// The day that is stored where every program finds it.
QString dayOnDisk(const QString &fileName)
{
    QFile file(fileName);
    file.open(QIODevice::ReadOnly);
    const QString text = QString::fromUtf8(file.readAll());
    return text.section(QLatin1Char('\n') + dayKey + QLatin1Char('='), 1, 1)
        .section(QLatin1Char('\n'), 0, 0);
}

// Publishes a version. Notes at each query the day that the settings hold at that moment.
struct Feed : RawServer {
    explicit Feed(const QByteArray &version)
    {
        feedAddress = QUrl("http://"_s + host());
        // Asked for now: a QSettings that goes writes what others have not.
        answerTo = [this, version, fileName = settings().fileName()](const QByteArray &) {
            storedDays += dayOnDisk(fileName);
            return httpAnswer(R"({"velmoranodepatch":{"version":")" + version
                              + R"(","download":"https://velmora.example/get?a=1"}})");
        };
    }

    QStringList storedDays;
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

    void asksOnceAWeek_data()
    {
        // %1 in what is stored is a day as many days from today as daysFromNow
        columns<QString, int, bool>("stored", "daysFromNow", "asks");
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
        const Feed feed(stored == "%1"_s ? "8.0.180" : "no version");
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
        const QString after = storesToday ? QString::number(today) : before;
        QCOMPARE(feed.storedDays, asks ? QStringList{after} : QStringList());
        QCOMPARE(settings().value(dayKey).toString(), after);
    }

    void offersANewerVersion()
    {
        const Feed feed("8.0.181");
        for (const QString &button : {"Download"_s, "Later"_s, QString()}) {
            store(dayKey, 1);
            opened.clear();
            Boxes boxes;
            boxes.inspect = [&button](QMessageBox *box) {
                QVERIFY(!aboutPanel(*box->parentWidget()));
                if (button.isEmpty()) {
                    box->close();
                } else {
                    WindowDriver::press(box, button);
                }
            };
            const Window w;
            QCOMPARE(boxes.take(),
                     QStringList{"Information: VelmoraNodePatch: A new version is available.\n"
                                 "Version: 8.0.181 \nWould you like to download now?"_s});
            QCOMPARE(opened,
                     QStringList("https://velmora.example/get?a=1"_s)
                         .mid(button == QLatin1String("Download") ? 0 : 1));
        }
    }

    void showsThePanelForAWhile()
    {
        QElapsedTimer sinceShown;
        sinceShown.start();
        const Window w;
        QFrame *panel = aboutPanel(w.window);
        QVERIFY(panel);
        // The second press does not put off the end that the start has set.
        int checks = 0;
        QTimer::singleShot(1000, panel, [&] {
            checks += panel->isVisible() ? 1 : 0;
            w.press("About"_s);
            QTimer::singleShot(2000, panel, [&] { checks += panel->isVisible() ? 0 : 1; });
        });
        // A window manager may put the main window, which comes later, above the panel.
        const EventCounter<QFrame> raised(panel, QEvent::ZOrderChange);
        QTRY_COMPARE(raised.count, 1);
        QVERIFY(panel->isVisible());
        QCOMPARE(panel->windowFlags(), Qt::SplashScreen | Qt::FramelessWindowHint);
        QCOMPARE(panel->size(), QSize(300, 300));
        QMap<int, QString> texts; // by their places
        const auto labels = panel->findChildren<QLabel *>();
        for (const QLabel *label : labels) {
            texts[label->y()] = label->pixmap(Qt::ReturnByValue).isNull() ? label->text() : "*"_s;
        }
        QCOMPARE(texts.firstKey(), 16);
        QCOMPARE(texts.values(),
                 (QStringList{"*"_s, "VelmoraNodePatch"_s, "v8.0.180"_s, "velmora.example"_s}));
        QTRY_VERIFY(!panel->isVisible());
        QVERIFY(sinceShown.elapsed() >= 2300); // a coarse timer may be five percent early
        QTRY_COMPARE(checks, 2);
        w.press("About"_s);
        QVERIFY(panel->isVisible() && raised.count == 3);
        QTRY_VERIFY(!panel->isVisible());
    }

private:
    QStringList opened;
};

NODEPATCH_TEST_MAIN(TestAbout)
#include "tst_about.moc"
