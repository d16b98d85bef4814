#pragma once

#include <qmdnsengine/resolver.h>

#include <QHostAddress>
#include <QSet>

// QMdnsEngine's resolver, but one that reports each address once. By itself it reports what its
// cache holds a second time when that has just arrived.
class DistinctResolver final : public QMdnsEngine::Resolver {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(DistinctResolver)

public:
    DistinctResolver(QMdnsEngine::AbstractServer *server, const QByteArray &name,
                     QMdnsEngine::Cache *cache = nullptr, QObject *parent = nullptr);

signals:
    // Takes the place of the base's signal of that name.
    void resolved(const QHostAddress &address);

private:
    QSet<QHostAddress> known;
};
