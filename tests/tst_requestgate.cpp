// How many requests begin at once, and in which order.

#include "net/RequestGate.h"
#include "support/RawServer.h"
#include "support/TestMain.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>

#include <algorithm>

class TestRequestGate final : public QObject {
    Q_OBJECT

private slots:
    void beginsInOrderAsPlacesComeFree();

private:
    QVector<int> begun; // the numbers of the requests
    int ended = 0;
};

void TestRequestGate::beginsInOrderAsPlacesComeFree()
{
    QNetworkAccessManager manager;
    auto server = std::make_unique<RawServer>(httpAnswer("{}"));
    const QUrl url(QLatin1String("http://") + server->host());
    RequestGate gate;
    int count = 0;
    const auto enqueue = [&](int more) {
        for (const int end = count + more; count < end; ++count) {
            gate.enqueue([this, &manager, url, number = count] {
                begun += number;
                QNetworkReply *const reply = manager.get(QNetworkRequest(url));
                connect(reply, &QNetworkReply::finished, this, [this] { ++ended; });
                return reply;
            });
        }
    };
    enqueue(100);
    QCOMPARE(begun.size(), 64);
    QTRY_COMPARE(ended, 100);

    // Those that hang pass their places on after a second, and do so once.
    server->answer.clear();
    QElapsedTimer clock;
    clock.start();
    enqueue(65);
    QCOMPARE(begun.size(), 164);
    QTRY_COMPARE_WITH_TIMEOUT(begun.size(), 165, 3000);
    QVERIFY2(clock.elapsed() >= 900, qPrintable(QString::number(clock.elapsed())));
    enqueue(100);
    QVERIFY2(begun.size() <= 165 + 64, qPrintable(QString::number(begun.size())));
    QVERIFY(std::is_sorted(begun.cbegin(), begun.cend()));

    gate.clear();
    const int before = begun.size();
    server.reset();
    QTRY_COMPARE(ended, before);
    QCOMPARE(begun.size(), before);
}

NODEPATCH_TEST_MAIN(TestRequestGate)
#include "tst_requestgate.moc"
