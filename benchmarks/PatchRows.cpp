// Connecting and disconnecting video, audio and data.

#include "Comparison.h"
#include "MainWindow.h"
#include "Requests.h"
#include "Rows.h"
#include "WindowDriver.h"

#include <functional>

namespace {

// A transmitter and a receiver that answer after delay milliseconds, and a window whose selectors
// name them.
struct PatchedPair {
    explicit PatchedPair(int delay)
        : transmitter(NodeDescription::transmitter(), QHostAddress(QStringLiteral("127.0.0.10")))
        , receiver(NodeDescription::receiver(), QHostAddress(QStringLiteral("127.0.0.20")))
        , hands(&window)
    {
        for (SimulatedNode *node : {&transmitter, &receiver}) {
            node->setResponseDelay(delay);
            recorder.watch(*node);
        }
        window.show();
        WindowDriver::enter(hands.tx, transmitter.host());
        WindowDriver::enter(hands.rx, receiver.host());
        recorder.take();
    }

    Recorder recorder;
    SimulatedNode transmitter;
    SimulatedNode receiver;
    MainWindow window;
    WindowDriver hands;
};

const QString connectCommand = QStringLiteral("Connect (Tx->Rx)");
const QString disconnectCommand = QStringLiteral("Disconnect Rx");

using Replay = std::function<void(const QList<Request> &)>;

Comparison::Result measure(benchmark::State &state, const QString &command, int delay,
                           const Replay &replay)
{
    PatchedPair pair(delay);
    pair.hands.press(connectCommand);
    pair.recorder.take();
    QList<Request> requests;
    return Comparison::compare(
        state,
        [&] {
            const double time = Comparison::timed([&] { pair.hands.press(command); });
            requests = pair.recorder.take();
            return time;
        },
        [&] {
            if (requests.isEmpty()) {
                qFatal("the command sent no request");
            }
            const double time = Comparison::timed([&] { replay(requests); });
            pair.recorder.take();
            return time;
        });
}

} // namespace

void Rows::addPatchRows()
{
    struct Case {
        Comparison::Heading heading;
        QString command;
        int delay;
        bool byCurl;
    };
    const Case cases[] = {
        {{"Connect, answers take 2 ms", "libcurl", "ms", 1.3, 21}, connectCommand, 2, true},
        {{"Connect, answers take 10 ms", "libcurl", "ms", 1.1, 11}, connectCommand, 10, true},
        {{"Connect, answers at once", "bare manager", "ms", 0.6, 21}, connectCommand, 0, false},
        {{"Disconnect, answers take 2 ms", "libcurl", "ms", 1.3, 31}, disconnectCommand, 2, true},
        {{"Disconnect, answers take 10 ms", "libcurl", "ms", 1.1, 15}, disconnectCommand, 10, true},
        {{"Disconnect, answers at once", "bare manager", "ms", 0.6, 31},
         disconnectCommand,
         0,
         false},
    };
    for (const Case &row : cases) {
        Comparison::addRow(row.heading, [row](benchmark::State &state) {
            if (row.byCurl) {
                CurlHandle curl;
                return measure(state, row.command, row.delay,
                               [&curl](const QList<Request> &requests) { curl.replay(requests); });
            }
            BareManager bare;
            return measure(state, row.command, row.delay,
                           [&bare](const QList<Request> &requests) { bare.replay(requests); });
        });
    }
}
