#include "DistinctResolver.h"

DistinctResolver::DistinctResolver(QMdnsEngine::AbstractServer *server, const QByteArray &name,
                                   QMdnsEngine::Cache *cache, QObject *parent)
    : Resolver(server, name, cache, parent)
{
    connect(this, &Resolver::resolved, this, [this](const QHostAddress &address) {
        if (!known.contains(address)) {
            known.insert(address);
            emit resolved(address);
        }
    });
}
