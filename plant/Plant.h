#pragma once

#include "SimulatedNode.h"

#include <memory>
#include <vector>

// Many nodes in one process, for measurements and demonstrations. Each needs a file descriptor for
// its port and one for each connection.
class Plant final {
public:
    Plant() = default;
    Q_DISABLE_COPY_MOVE(Plant)

    // Adds a node; the plant owns it and destroys it with itself.
    SimulatedNode &add(const NodeDescription &description, const QHostAddress &address,
                       quint16 port = 0)
    {
        nodes.push_back(std::make_unique<SimulatedNode>(description, address, port));
        return *nodes.back();
    }

    // Adds nodes, each on a free port of an address of its own, as in a real network: 127.0.1.1,
    // 127.0.1.2, ... 127.0.1.250, 127.0.2.1, ... A second call goes on where the first ended. The
    // description is made for each from its index.
    void addMany(int count, const std::function<NodeDescription(int)> &describe)
    {
        for (const int end = nextIndex + count; nextIndex < end; ++nextIndex) {
            const auto place = static_cast<quint32>(nextIndex);
            add(describe(nextIndex), QHostAddress(0x7f000101 + place / 250 * 256 + place % 250));
        }
    }

    int size() const
    {
        return static_cast<int>(nodes.size());
    }
    SimulatedNode &at(int index) const
    {
        return *nodes.at(static_cast<size_t>(index));
    }

private:
    std::vector<std::unique_ptr<SimulatedNode>> nodes;
    int nextIndex = 0;
};
