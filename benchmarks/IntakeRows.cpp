// The intake of many nodes, and of a node with very many senders and receivers.

#include "Comparison.h"
#include "LoopTurns.h"
#include "MainWindow.h"
#include "Plant.h"
#include "Requests.h"
#include "Rows.h"
#include "WindowDriver.h"
#include "discovery/NMOSMdnsBrowser.h"
#include "net/Descriptors.h"

#include <QComboBox>
#include <QCoreApplication>
#include <QJsonDocument>
#include <QLineEdit>
#include <QTimer>

namespace {

struct Shape {
    int nodes;
    int endpoints; // senders, and as many receivers, of each node
};

// Nodes whose answers are made beforehand, so that answering costs little.
class Nodes final {
public:
    explicit Nodes(const Shape &wanted)
        : shape(wanted)
    {
        Descriptors::raiseLimit();
        plant.addMany(shape.nodes, [this](int index) {
            const QString label = QStringLiteral("Node %1").arg(index);
            return NodeDescription::wide(label, shape.endpoints, shape.endpoints);
        });
        for (int i = 0; i < plant.size(); ++i) {
            for (const char *name : {"senders", "receivers", "flows"}) {
                const QString collection = QLatin1String(name);
                SimulatedNode &node = plant.at(i);
                node.setCollection(
                    collection,
                    QJsonDocument(node.collection(collection)).toJson(QJsonDocument::Compact));
            }
            recorder.watch(plant.at(i));
        }
    }

    const Shape shape;
    Recorder recorder;
    Plant plant;
};

// Reports the nodes to a window as discovery does, one in each turn of the event loop, nested loops
// included.
void report(const Nodes &nodes, MainWindow *window, int index)
{
    if (index == nodes.plant.size()) {
        return;
    }
    QTimer::singleShot(0, window, [&nodes, window, index] {
        report(nodes, window, index + 1);
        const SimulatedNode &node = nodes.plant.at(index);
        const QUrl self(node.baseUrl() + QStringLiteral("/x-nmos/node/v1.3/self"));
        emit window->findChild<NMOSMdnsBrowser *>()->nodeSelfReady(node.label(), self, {});
    });
}

// Waits until all senders and receivers are listed.
void takeIn(Nodes &nodes, MainWindow *window, const WindowDriver &hands)
{
    report(nodes, window, 0);
    const int wanted = nodes.shape.nodes * nodes.shape.endpoints;
    Comparison::waitUntil(
        [&] { return hands.rx->count() == wanted && hands.tx->count() == wanted; });
}

// The milliseconds that a new window takes. Hands over its requests in requests, if given; types
// typed into the transmitter's selector first.
double takeIn(Nodes &nodes, QList<Request> *requests = nullptr, const QString &typed = {})
{
    MainWindow window;
    window.show();
    const WindowDriver hands(&window);
    hands.tx->lineEdit()->insert(typed);
    QCoreApplication::processEvents(); // the first painting
    const double time = Comparison::timed([&] { takeIn(nodes, &window, hands); });
    const QList<Request> made = nodes.recorder.take();
    if (requests) {
        *requests = made;
    }
    return time;
}

Comparison::Result besideBareManager(benchmark::State &state, const Shape &shape,
                                     BareManager::Answers answers)
{
    Nodes nodes(shape);
    QList<Request> requests;
    return Comparison::compare(
        state, [&] { return takeIn(nodes, &requests); },
        [&] {
            BareManager bare;
            const double time = Comparison::timed([&] { bare.replay(requests, answers); });
            nodes.recorder.take();
            return time;
        });
}

Comparison::Result besideFewer(benchmark::State &state, const Shape &more, const Shape &fewer)
{
    Nodes moreNodes(more);
    Nodes fewerNodes(fewer);
    return Comparison::compare(
        state, [&] { return takeIn(moreNodes); }, [&] { return takeIn(fewerNodes); });
}

Comparison::Result besideEmptyField(benchmark::State &state, const Shape &shape,
                                    const QString &typed)
{
    Nodes nodes(shape);
    return Comparison::compare(
        state, [&] { return takeIn(nodes, nullptr, typed); }, [&] { return takeIn(nodes); });
}

Comparison::Result standStill(benchmark::State &state, const Shape &shape)
{
    Nodes nodes(shape);
    takeIn(nodes);
    LoopTurns turns;
    for ([[maybe_unused]] auto run : state) {
        MainWindow window;
        window.show();
        const WindowDriver hands(&window);
        QCoreApplication::processEvents(); // the first painting
        turns.start([&hands] {
            return QStringLiteral("%1 entries listed").arg(hands.tx->count() + hands.rx->count());
        });
        takeIn(nodes, &window, hands);
        turns.stop();
        state.SetIterationTime(1);
    }
    Comparison::Result result;
    result.figure = turns.shareWithin(0.99);
    result.remark = turns.summary();
    return result;
}

} // namespace

void Rows::addIntakeRows()
{
    using Comparison::addRow;
    constexpr Shape manyNodes{1000, 16};
    constexpr Shape halfOfThem{500, 16};
    constexpr Shape wideNode{1, 5000};
    constexpr Shape widerNode{1, 10000};
    addRow({"Intake of 1,000 nodes with 16 senders and 16 receivers", "the same GETs, bare manager",
            "ms", 1.3, 7},
           [=](auto &state) {
               return besideBareManager(state, manyNodes, BareManager::Answers::Read);
           });
    addRow({"Intake of 1,000 nodes", "of 500", "ms", 2.2, 7},
           [=](auto &state) { return besideFewer(state, manyNodes, halfOfThem); });
    addRow({"Stand-still of the event loop meanwhile, 99 % of its turns", "", "ms", 16.7, 3},
           [=](auto &state) { return standStill(state, manyNodes); });
    addRow({"Listing a node with 5,000 senders and 5,000 receivers",
            "the same GETs and a parse, bare manager", "ms", 1.5, 11},
           [=](auto &state) {
               return besideBareManager(state, wideNode, BareManager::Answers::Parse);
           });
    // The text is no address, because the program sends requests to an address.
    addRow(
        {"The same while the operator searches", "nothing typed", "ms", 1.2, 11},
        [=](auto &state) { return besideEmptyField(state, wideNode, QStringLiteral("no such")); });
    addRow({"Listing a node with 10,000 of each", "with 5,000", "ms", 2.2, 11},
           [=](auto &state) { return besideFewer(state, widerNode, wideNode); });
}
