#pragma once

#include "SimulatedNode.h"

#include <memory>
#include <vector>

// Many nodes in one process, for measurements and demonstrations.
class Plant final {
public:
    Plant() = default;
    Q_DISABLE_COPY_MOVE(Plant)

    // Raises the process's limit of open files as far as the system lets it: each node needs one
    // for its port and one for each connection.
    static void raiseFileLimit();

    // Adds a node; the plant owns it and destroys it with itself.
    SimulatedNode &add(const NodeDescription &description, const QHostAddress &address,
                       quint16 port = 0);

    // Adds nodes, each on a free port of an address of its own, as in a real network: 127.0.1.1,
    // 127.0.1.2, ... 127.0.1.250, 127.0.2.1, ... A second call goes on where the first ended. The
    // description is made for each from its index.
    void addMany(int count, const std::function<NodeDescription(int)> &describe);

    int size() const;
    SimulatedNode &at(int index) const;

private:
    std::vector<std::unique_ptr<SimulatedNode>> nodes;
    int nextAddress = 0;
};
