#include "net/RequestGate.h"

#include <QNetworkReply>
#include <QTimer>

#include <chrono>
#include <memory>
#include <utility>

namespace {

constexpr int maximumRunning = 64;
constexpr int connectionsPerOrigin = 6; // of QNetworkAccessManager
constexpr std::chrono::seconds patience{1};

} // namespace

RequestGate::RequestGate(int limit)
    : maximum(limit)
{
}

void RequestGate::enqueue(const QUrl &url, const Begin &begin)
{
    constexpr auto beyondOrigin =
        QUrl::RemoveUserInfo | QUrl::RemovePath | QUrl::RemoveQuery | QUrl::RemoveFragment;
    waiting.enqueue({url.adjusted(beyondOrigin), begin});
    beginNext();
}

void RequestGate::clear()
{
    waiting.clear();
}

bool RequestGate::waitsInQt(const QUrl &origin) const
{
    return begun.value(origin) >= connectionsPerOrigin;
}

void RequestGate::beginNext()
{
    while (!waiting.isEmpty()
           && (waitsInQt(waiting.head().origin)
               || (running < maximumRunning && connected < maximum))) {
        const Request request = waiting.dequeue();
        watch(request.origin, request.begin());
    }
}

void RequestGate::watch(const QUrl &origin, QNetworkReply *reply)
{
    const bool connects = !waitsInQt(origin);
    ++begun[origin];
    connected += connects ? 1 : 0;
    running += connects ? 1 : 0;
    const auto stopCounting = [this, counts = std::make_shared<bool>(connects)] {
        running -= std::exchange(*counts, false) ? 1 : 0;
        beginNext();
    };
    QTimer::singleShot(patience, this, stopCounting);
    // Queued: a receiver may destroy objects or run a nested loop.
    connect(
        reply, &QNetworkReply::finished, this,
        [this, origin, stopCounting] {
            // Its connection is free, unless another request has waited for it.
            const int left = --begun[origin];
            connected -= left < connectionsPerOrigin ? 1 : 0;
            if (left == 0) {
                begun.remove(origin);
            }
            stopCounting();
        },
        Qt::QueuedConnection);
}
