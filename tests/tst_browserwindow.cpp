#include "MdnsPacket.h"
#include "discovery/BrowserWindow.h"
#include "discovery/ServiceModel.h"
#include "support/TestMain.h"

#include <QAbstractItemModelTester>
#include <QCheckBox>
#include <QClipboard>
#include <QHeaderView>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QSortFilterProxyModel>
#include <QTableWidget>

using Mdns::Packet;

namespace {

constexpr char printers[] = "_ipp._tcp.local";

// What a browser of all types needs, too.
Packet service(const QByteArray &name, const QByteArrayList &txt = {"api_ver=v1.3"},
               const QByteArray &type = Mdns::nodeType)
{
    return Mdns::service(name, txt, Mdns::hour, 80, type)
        .add(Mdns::name("_services._dns-sd._udp.local"), Mdns::Ptr, Mdns::name(type));
}

Packet goodbye(const QByteArray &name, const QByteArray &type = Mdns::nodeType)
{
    return Mdns::service(name, {}, Mdns::goodbye, 80, type);
}

// What a list or table shows, rows joined with ", ", their cells with "=".
QString shown(const QAbstractItemView *view)
{
    QStringList rows;
    const QAbstractItemModel *model = view->model();
    for (int row = 0; model && row < model->rowCount(); ++row) {
        QStringList cells;
        for (int column = 0; column < model->columnCount(); ++column) {
            cells += model->index(row, column).data().toString();
        }
        rows += cells.join(QLatin1Char('='));
    }
    return rows.join(", "_s);
}

// The window with its parts as the operator finds them.
struct Operator {
    Operator()
    {
        const auto lists = window.findChildren<QListView *>();
        services = lists.at(lists.at(0) == addresses ? 1 : 0);
        window.show();
    }

    // The services without the type that all of them share.
    QString names() const
    {
        return shown(services).remove(" (_nmos-node._tcp.local.)"_s);
    }

    // Sends a packet and waits until the names of the services are these.
    void hear(const Packet &packet, const QString &expected)
    {
        QVERIFY(sender.send(packet.bytes()));
        QTRY_COMPARE(names(), expected);
    }

    // Says where the services are, and waits for the address to be shown.
    void hearAddress(const QString &address)
    {
        QVERIFY(sender.send(Packet().address("cam1.local", address).bytes()));
        QTRY_VERIFY(shown(addresses).contains(address));
    }

    void select(int row) const
    {
        QTest::mouseClick(services->viewport(), Qt::LeftButton, {},
                          services->visualRect(services->model()->index(row, 0)).center());
    }

    QAbstractItemModel *source() const
    {
        return qobject_cast<QSortFilterProxyModel *>(services->model())->sourceModel();
    }

    Mdns::Sender sender;
    BrowserWindow window;
    QLineEdit *type = window.findChild<QLineEdit *>();
    QCheckBox *any = window.findChild<QCheckBox *>();
    QPushButton *browse = window.findChild<QPushButton *>();
    QListView *services = nullptr;
    QListWidget *addresses = window.findChild<QListWidget *>();
    QTableWidget *attributes = window.findChild<QTableWidget *>();
};

} // namespace

class TestBrowserWindow final : public QObject {
    Q_OBJECT

private slots:
    void opensEmptyAndBrowses()
    {
        Operator op;
        QCOMPARE(op.window.windowTitle(), "mDNS Browser"_s);
        QCOMPARE(op.window.size(), QSize(640, 480));
        QCOMPARE(op.type->text(), "_nmos-node._tcp.local."_s);
        QVERIFY(!op.any->isChecked());
        QVERIFY(shown(op.services).isEmpty());
        QCOMPARE(op.addresses->count() + op.attributes->columnCount(), 0);
        const auto place = [&op](const QWidget *part) {
            return QRect(part->mapTo(&op.window, QPoint()), part->size());
        };
        QVERIFY(place(op.services).right() < place(op.addresses).left());
        QVERIFY(place(op.addresses).bottom() < place(op.attributes).top());
        op.browse->click();
        op.hear(service("Cam"), "Cam"_s);
        QCOMPARE(shown(op.services), "Cam (_nmos-node._tcp.local.)"_s);
        op.type->setText("no type at all"_s);
        QCOMPARE(op.names(), "Cam"_s);
        op.browse->click();
        QVERIFY(shown(op.services).isEmpty());
    }

    void modelKeepsArrivalOrder()
    {
        QMdnsEngine::Server server;
        ServiceModel model(&server, "_services._dns-sd._udp.local.");
        const QAbstractItemModelTester tester(
            &model, QAbstractItemModelTester::FailureReportingMode::QtTest);
        QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
        for (const char *name : {"b", "\xc3\xa4 %2", "A"}) {
            QVERIFY(sender.send(service(name).bytes()));
            QTRY_VERIFY(model.findService(name) >= 0);
        }
        QCOMPARE(model.index(1).data().toString(), "ä %2 (_nmos-node._tcp.local.)"_s);
        QCOMPARE(model.index(1).data(Qt::UserRole).typeName(), "QMdnsEngine::Service");
        QVERIFY(!model.index(1).data(Qt::ToolTipRole).isValid());
        QVERIFY(!model.data({}).isValid());
        QCOMPARE(model.findService("A"), 2);
        QCOMPARE(model.findService("a"), -1);

        // Of two of one name the first one changes and goes.
        QVERIFY(sender.send(service("b", {}, printers).bytes()));
        QTRY_COMPARE(model.rowCount(), 4);
        QVERIFY(sender.send(Packet().text(Mdns::instance("b", printers), {"new=1"}).bytes()));
        QTRY_COMPARE(changed.size(), 1);
        QCOMPARE(changed.at(0).at(0).value<QModelIndex>().row(), 0);
        const auto updated = model.index(0).data(Qt::UserRole).value<QMdnsEngine::Service>();
        QCOMPARE(updated.attributes().value("new"), QByteArray("1"));
        QVERIFY(sender.send(goodbye("b", printers).bytes()));
        QTRY_COMPARE(model.findService("A"), 1);
    }

    void sortsWhileServicesComeAndGo()
    {
        Operator op;
        op.browse->click();
        op.hear(service("b").with(service("C")).with(service("a")), "a, b, C"_s);
        op.hear(service("B 2").with(service("A 2")), "a, A 2, b, B 2, C"_s);
        op.hear(goodbye("b"), "a, A 2, B 2, C"_s);
    }

    void filtersInAnyMode()
    {
        Operator op;
        op.browse->click();
        const Packet both = service("Cam").with(service("Desk", {}, printers));
        op.hear(both, "Cam"_s);
        op.any->click();
        QCOMPARE(op.type->text(), QString());
        QCOMPARE(op.names(), "Cam"_s); // still the first browse
        op.browse->click();
        op.hear(both, "Cam, Desk (_ipp._tcp.local.)"_s);
        const auto shownFor = [&op](const char *filter) {
            op.type->setText(QString::fromLatin1(filter));
            return op.services->model()->rowCount();
        };
        QCOMPARE(shownFor("am (_nm"), 1);
        QCOMPARE(shownFor("cam"), 0);
        QCOMPARE(shownFor("_tcp"), 2);
        QCOMPARE(shownFor("C[a]m"), 0);
        op.hear(service("Late _tcp").with(service("C[a]m")), "C[a]m"_s);
        op.any->click();
        QCOMPARE(op.type->text(), "_nmos-node._tcp.local."_s);
        QCOMPARE(op.services->model()->rowCount(), 4);
        QCOMPARE(shownFor("Cam"), 4);
    }

    void showsTheSelectedService()
    {
        Operator op;
        op.browse->click();
        op.hear(service("b",
                        {"pri=1", "api_ver=v1.3", QByteArray("Z=\xc3\xa4\0b", 6), "bare",
                         "api_proto=<b>x</b>"})
                    .with(Mdns::pointer("a").target(Mdns::instance("a"), "cam2.local", 80)),
                "a, b"_s);
        op.select(1);
        QCOMPARE(shown(op.attributes).replace(QChar(0), QLatin1Char('~')),
                 "Z=ä~b, api_proto=<b>x</b>, api_ver=v1.3, bare=, pri=1"_s);
        for (const char *address : {"192.0.2.1", "fd00:6e70:1::1", "192.0.2.9"}) {
            op.hearAddress(QString::fromLatin1(address));
        }
        // In the order of their arrival; an engine may report one of them for each link.
        const QString all = shown(op.addresses);
        QVERIFY2(all.startsWith("192.0.2.1, "_s) && all.endsWith(", 192.0.2.9"_s), qPrintable(all));

        op.select(0);
        QCOMPARE(op.attributes->rowCount(), 0);
        QCOMPARE(op.attributes->horizontalHeaderItem(0)->text(), "Key"_s);
        QCOMPARE(op.attributes->horizontalHeaderItem(1)->text(), "Value"_s);
        QVERIFY(!op.attributes->verticalHeader()->isVisible());
        QVERIFY(op.attributes->horizontalHeader()->stretchLastSection());
        // Only the addresses of this one arrive now.
        QVERIFY(op.sender.send(Packet().address("cam1.local", "192.0.2.10"_s).bytes()));
        QVERIFY(op.sender.send(Packet().address("cam2.local", "192.0.2.11"_s).bytes()));
        QTRY_VERIFY(op.addresses->count() > 0);
        QCOMPARE(op.addresses->item(0)->text(), "192.0.2.11"_s);
        op.services->clearSelection();
        QCOMPARE(op.attributes->columnCount(), 0);
    }

    void followsTheSelectionWhenItGoes()
    {
        Operator op;
        op.browse->click();
        op.hear(service("a", {"a=1"}).with(service("b", {"b=1"})), "a, b"_s);
        op.select(0);
        QSignalSpy changed(op.source(), &QAbstractItemModel::dataChanged);
        QVERIFY(op.sender.send(Packet().text(Mdns::instance("a"), {"a=2"}).bytes()));
        QTRY_COMPARE(changed.size(), 1);
        QCOMPARE(shown(op.attributes), "a=1"_s);
        // The list passes the selection on to the neighbour, which shows its own.
        op.hear(goodbye("a"), "b"_s);
        QCOMPARE(shown(op.attributes), "b=1"_s);
        op.hear(goodbye("b"), {});
        QCOMPARE(op.attributes->columnCount(), 0);
    }

    void browsesAgainWhileResolving()
    {
        Operator op;
        op.browse->click();
        op.hear(service("a"), "a"_s);
        const QPointer<QAbstractItemModel> first = op.source();
        const QPointer<QItemSelectionModel> firstSelection = op.services->selectionModel();
        op.select(0);
        op.browse->click();
        QVERIFY(!first && !firstSelection);
        QCOMPARE(op.attributes->columnCount() + op.attributes->rowCount(), 0);
        const QString address = "192.0.2.1"_s;
        op.hearAddress(address);
        op.hear(service("a"), "a"_s); // not every engine remembers it
        op.select(0);
        QCOMPARE(op.addresses->count(), 0);
        op.hearAddress(address);
    }

    void worksWithoutAMouse()
    {
        Operator op;
        QTRY_VERIFY(op.type->hasFocus());
        QSignalSpy clicked(op.browse, &QPushButton::clicked);
        QTest::keyClick(op.type, Qt::Key_Return);
        QCOMPARE(clicked.size(), 1);
        op.hear(service("a").with(service("b", {"b=1"})), "a, b"_s);
        const QList<QWidget *> order{op.any,       op.browse,     op.services,
                                     op.addresses, op.attributes, op.type};
        for (QWidget *next : order) {
            QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
            QCOMPARE(QApplication::focusWidget(), next);
            QVERIFY(next == op.any || next == op.browse || !next->accessibleName().isEmpty());
            if (next == op.services) {
                QTest::keyClick(next, Qt::Key_Down);
            }
        }
        QCOMPARE(shown(op.attributes), "b=1"_s);
        QTest::keyClick(op.type, Qt::Key_Escape);
        QVERIFY(!op.window.isVisible());
        // What was asked before goes on.
        op.hear(service("c"), "a, b, c"_s);
        op.hearAddress("192.0.2.1"_s);
        op.window.show();
        QCOMPARE(shown(op.attributes), "b=1"_s);
    }

    void copiesRows()
    {
        Operator op;
        op.browse->click();
        op.hear(service("a", {"k=<b>", "l=2", "m=3"}), "a"_s);
        op.select(0);
        op.hearAddress("192.0.2.1"_s);
        const auto copied = [](QWidget *from) {
            QGuiApplication::clipboard()->setText("nothing"_s);
            from->setFocus();
            QTest::keySequence(from, QKeySequence::Copy);
            return QGuiApplication::clipboard()->text();
        };
        QTRY_VERIFY(op.window.isActiveWindow());
        QCOMPARE(copied(op.services), "a (_nmos-node._tcp.local.)"_s);
        op.addresses->setCurrentRow(0);
        QCOMPARE(copied(op.addresses), "192.0.2.1"_s);
        QCOMPARE(copied(op.attributes), "nothing"_s);
        const QRect first = op.attributes->visualItemRect(op.attributes->item(0, 0));
        QTest::mouseClick(op.attributes->viewport(), Qt::LeftButton, {}, first.center());
        QCOMPARE(copied(op.attributes), "k\t<b>"_s);
        op.attributes->selectAll();
        QCOMPARE(copied(op.attributes), "k\t<b>\nl\t2\nm\t3"_s);
        op.attributes->selectionModel()->select(op.attributes->model()->index(1, 1),
                                                QItemSelectionModel::ClearAndSelect);
        QCOMPARE(copied(op.attributes), "2"_s);
        QTest::keyClick(op.attributes, Qt::Key_F2); // no editor opens
        QVERIFY(!op.attributes->findChild<QLineEdit *>());
    }

private:
    Mdns::Sender sender;
};

NODEPATCH_TEST_MAIN(TestBrowserWindow)
#include "tst_browserwindow.moc"
