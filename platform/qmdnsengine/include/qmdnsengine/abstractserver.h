#pragma once

#include <QObject>

namespace QMdnsEngine {

// What browsers and resolvers work on. Server is the only one there is in this layer; a browser or
// a resolver that is given anything else, or null, reports nothing.
class AbstractServer : public QObject {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(AbstractServer)

public:
    ~AbstractServer() override;

Q_SIGNALS:
    // Something went wrong on the network side; message is for logs. Comes from the event loop,
    // never from inside a constructor. What was found until then stays valid.
    void error(const QString &message);

protected:
    explicit AbstractServer(QObject *parent = nullptr);
};

} // namespace QMdnsEngine
