#pragma once

#include <QObject>

namespace QMdnsEngine {

// Names the record cache that browsers and resolvers are to share. This layer keeps the records
// with the server, so all that work on one server share them anyway, with or without a Cache; the
// object holds nothing and may be destroyed at any time.
class Cache final : public QObject {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(Cache)

public:
    explicit Cache(QObject *parent = nullptr);
    ~Cache() override;
};

} // namespace QMdnsEngine
