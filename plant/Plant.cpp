#include "Plant.h"

#include <sys/resource.h>

namespace {

QHostAddress loopbackAddress(int index)
{
    constexpr int hostsPerNet = 250;
    constexpr quint32 first = 0x7f000101; // 127.0.1.1
    return QHostAddress(first + static_cast<quint32>(index / hostsPerNet * 256)
                        + static_cast<quint32>(index % hostsPerNet));
}

} // namespace

void Plant::raiseFileLimit()
{
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &limit);
}

SimulatedNode &Plant::add(const NodeDescription &description, const QHostAddress &address,
                          quint16 port)
{
    nodes.push_back(std::make_unique<SimulatedNode>(description, address, port));
    return *nodes.back();
}

void Plant::addMany(int count, const std::function<NodeDescription(int)> &describe)
{
    for (int added = 0; added < count; ++added) {
        const int index = nextAddress++;
        add(describe(index), loopbackAddress(index));
    }
}

int Plant::size() const
{
    return static_cast<int>(nodes.size());
}

SimulatedNode &Plant::at(int index) const
{
    return *nodes.at(static_cast<size_t>(index));
}
