#include "net/RequestGate.h"

#include "net/Descriptors.h"

#include <QNetworkReply>
#include <QTimer>

#include <chrono>
#include <memory>

namespace {

constexpr int places = 64;
constexpr std::chrono::seconds patience{1};

} // namespace

void RequestGate::enqueue(const Begin &begin)
{
    waiting.enqueue(begin);
    beginNext();
}

void RequestGate::clear()
{
    waiting.clear();
}

void RequestGate::beginNext()
{
    while (!waiting.isEmpty() && placed < places && open < Descriptors::limit() / 2) {
        watch(waiting.dequeue()());
    }
}

void RequestGate::watch(QNetworkReply *reply)
{
    ++open;
    ++placed;
    const auto giveUpPlace = [this, holds = std::make_shared<bool>(true)] {
        placed -= *holds ? 1 : 0;
        *holds = false;
        beginNext();
    };
    QTimer::singleShot(patience, this, giveUpPlace);
    // Queued: the receivers of a result may destroy whatever they like, or wait in an event loop of
    // their own.
    connect(
        reply, &QNetworkReply::finished, this,
        [this, giveUpPlace] {
            --open;
            giveUpPlace();
        },
        Qt::QueuedConnection);
}
