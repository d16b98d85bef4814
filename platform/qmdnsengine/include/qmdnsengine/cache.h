#pragma once

#include <QObject>

#include <memory>

namespace QMdnsEngine {

class CachePrivate;

// What browsers and resolvers share that are given the same Cache: on which links the host of a
// service is seen. The records themselves are kept with the server. May be destroyed at any time.
class Cache final : public QObject {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(Cache)

public:
    explicit Cache(QObject *parent = nullptr);
    ~Cache() override;

private:
    friend class CachePrivate;
    std::shared_ptr<CachePrivate> d;
};

} // namespace QMdnsEngine
