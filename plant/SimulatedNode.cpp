#include "SimulatedNode.h"

#include "Json.h"
#include "NodeModel.h"

#include <QHash>

#include <algorithm>
#include <condition_variable>
#include <iterator>
#include <mutex>

namespace {

// A fault that is switched on.
struct SetFault {
    QString path;
    Fault fault;
    bool cleared = false;
    QStringList activated = {}; // senders and receivers since then
};

QString withoutSlash(const QString &path)
{
    return path.size() > 1 && path.endsWith(QLatin1Char('/')) ? path.chopped(1) : path;
}

bool covers(const QString &pattern, const QString &path)
{
    return pattern.endsWith(QLatin1Char('*')) ? path.startsWith(pattern.chopped(1))
                                              : withoutSlash(pattern) == withoutSlash(path);
}

bool meets(const SetFault &set, const HttpRequest &request)
{
    const auto isOfRequest = [&request](const QString &id) {
        return request.resource.contains(id);
    };
    const Fault &fault = set.fault;
    return fault.remaining != 0
        && (fault.method.isEmpty() || request.method == QLatin1String(fault.method))
        && covers(set.path, request.resource)
        && (fault.kind != Fault::Kind::UntilActivated
            || std::none_of(set.activated.begin(), set.activated.end(), isOfRequest));
}

} // namespace

struct SimulatedNode::Private {
    NodeDescription description; // as long as the node lives
    QHostAddress address; // likewise

    std::mutex serverMutex; // held while the server comes and goes; before mutex, where both are
    std::unique_ptr<HttpServer> server;

    std::mutex mutex; // guards all that follows
    std::condition_variable changed; // a fault was cleared, or the node stops
    bool listening = false;
    quint16 port = 0;
    std::optional<NodeModel> model;
    QHash<QString, HttpAnswer> resources; // by path without slash
    QList<std::shared_ptr<SetFault>> faults;
    QList<LoggedRequest> log;
    std::function<void(const LoggedRequest &)> observer;
    int responseDelay = 0;

    HttpAnswer answer(const HttpRequest &request);
    std::shared_ptr<SetFault> takeFault(const HttpRequest &request);
    HttpAnswer ownAnswer(const HttpRequest &request);
    void removeFaults(const std::function<bool(const SetFault &)> &which);
};

HttpAnswer SimulatedNode::Private::answer(const HttpRequest &request)
{
    std::unique_lock lock(mutex);
    log.append(request);
    const auto observe = observer;
    const std::shared_ptr<SetFault> set = takeFault(request);
    const Fault fault = set ? set->fault : Fault();
    lock.unlock();
    if (observe) {
        observe(request);
    }
    lock.lock();
    const std::chrono::milliseconds delay(responseDelay + fault.milliseconds);
    // Waiting for no time at all would still put the thread to sleep.
    if (delay.count() > 0) {
        changed.wait_for(lock, delay, [this] { return !listening; });
    }
    if (fault.answer) {
        return *fault.answer;
    }
    if (fault.kind == Fault::Kind::Hang) {
        changed.wait(lock, [this, &set] { return !listening || set->cleared; });
    }
    if (!listening) {
        return *Fault::drop().answer;
    }
    return ownAnswer(request);
}

// The fault that meets the request, counted down. To be called with the mutex held.
std::shared_ptr<SetFault> SimulatedNode::Private::takeFault(const HttpRequest &request)
{
    const auto found = std::find_if(faults.rbegin(), faults.rend(),
                                    [&request](const auto &set) { return meets(*set, request); });
    if (found == faults.rend()) {
        return {};
    }
    if ((*found)->fault.remaining > 0) {
        --(*found)->fault.remaining;
    }
    return *found;
}

// To be called with the mutex held.
HttpAnswer SimulatedNode::Private::ownAnswer(const HttpRequest &request)
{
    const auto resource = resources.constFind(withoutSlash(request.resource));
    if (resource != resources.constEnd() && request.method == QLatin1String("GET")) {
        return *resource;
    }
    const NodeModel::Outcome outcome = model->answer(request);
    if (!outcome.activatedId.isEmpty()) {
        for (const auto &set : std::as_const(faults)) {
            set->activated.append(outcome.activatedId);
        }
    }
    return outcome.answer;
}

void SimulatedNode::Private::removeFaults(const std::function<bool(const SetFault &)> &which)
{
    const std::scoped_lock lock(mutex);
    const auto isRemoved = [&which](const std::shared_ptr<SetFault> &set) {
        set->cleared = which(*set);
        return set->cleared;
    };
    faults.erase(std::remove_if(faults.begin(), faults.end(), isRemoved), faults.end());
    changed.notify_all();
}

SimulatedNode::SimulatedNode(const NodeDescription &description, const QHostAddress &address,
                             quint16 port)
    : d(std::make_unique<Private>())
{
    d->description = description;
    d->address = address;
    d->port = port;
    start();
}

SimulatedNode::~SimulatedNode()
{
    stop();
}

bool SimulatedNode::isListening() const
{
    const std::scoped_lock lock(d->mutex);
    return d->listening;
}

QHostAddress SimulatedNode::address() const
{
    return d->address;
}

quint16 SimulatedNode::port() const
{
    const std::scoped_lock lock(d->mutex);
    return d->port;
}

QString SimulatedNode::label() const
{
    return d->description.label;
}

QString SimulatedNode::host() const
{
    return QString(address().toString() + QLatin1Char(':') + QString::number(port()));
}

QString SimulatedNode::baseUrl() const
{
    return NodeModel::baseUrl(address(), port());
}

void SimulatedNode::stop()
{
    const std::scoped_lock serverLock(d->serverMutex);
    {
        const std::scoped_lock lock(d->mutex);
        d->listening = false;
        d->changed.notify_all();
    }
    d->server.reset();
}

bool SimulatedNode::start()
{
    const std::scoped_lock serverLock(d->serverMutex);
    // Requests that come before the port is known wait for this.
    const std::scoped_lock lock(d->mutex);
    if (!d->listening) {
        d->server = std::make_unique<HttpServer>(
            d->address, d->port, [this](const HttpRequest &request) { return d->answer(request); });
        d->listening = d->server->port() != 0;
        d->port = d->listening ? d->server->port() : d->port;
    }
    if (!d->model) {
        d->model.emplace(d->description, d->address, d->port);
    }
    return d->listening;
}

QStringList SimulatedNode::senderIds(std::optional<Essence> essence) const
{
    return d->model->ids(NodeModel::Role::Sender, essence);
}

QStringList SimulatedNode::receiverIds(std::optional<Essence> essence) const
{
    return d->model->ids(NodeModel::Role::Receiver, essence);
}

QString SimulatedNode::collectionPath(const QString &name)
{
    return QStringLiteral("/x-nmos/node/v1.3/%1/").arg(name);
}

QString SimulatedNode::receiverStagedPath(const QString &id)
{
    return QStringLiteral("/x-nmos/connection/v1.1/single/receivers/%1/staged").arg(id);
}

QString SimulatedNode::senderStagedPath(const QString &id)
{
    return QStringLiteral("/x-nmos/connection/v1.1/single/senders/%1/staged").arg(id);
}

QString SimulatedNode::manifestPath(const QString &senderId)
{
    return QStringLiteral("/x-nmos/connection/v1.1/single/senders/%1/transportfile").arg(senderId);
}

QJsonObject SimulatedNode::receiverActive(const QString &id) const
{
    const std::scoped_lock lock(d->mutex);
    return d->model->active(NodeModel::Role::Receiver, id);
}

QByteArray SimulatedNode::manifest(const QString &senderId) const
{
    const std::scoped_lock lock(d->mutex);
    return d->model->manifest(senderId);
}

QJsonArray SimulatedNode::collection(const QString &name) const
{
    const std::scoped_lock lock(d->mutex);
    return d->model->resource(name).toArray();
}

void SimulatedNode::setCollection(const QString &name, const QByteArray &body)
{
    setResource(collectionPath(name), body);
}

void SimulatedNode::setResource(const QString &path, const QByteArray &body,
                                const QByteArray &contentType)
{
    const std::scoped_lock lock(d->mutex);
    d->resources.insert(withoutSlash(path), {200, body, contentType});
}

void SimulatedNode::setFault(const QString &path, const Fault &fault)
{
    d->removeFaults([&](const SetFault &set) {
        return withoutSlash(set.path) == withoutSlash(path) && set.fault.method == fault.method;
    });
    const std::scoped_lock lock(d->mutex);
    d->faults.append(std::make_shared<SetFault>(SetFault{path, fault}));
}

void SimulatedNode::clearFaults(const QString &path)
{
    d->removeFaults([&path](const SetFault &set) {
        return path.isEmpty() || withoutSlash(set.path) == withoutSlash(path);
    });
}

void SimulatedNode::setResponseDelay(int milliseconds)
{
    const std::scoped_lock lock(d->mutex);
    d->responseDelay = milliseconds;
}

QList<LoggedRequest> SimulatedNode::requests(const QString &method) const
{
    const std::scoped_lock lock(d->mutex);
    QList<LoggedRequest> result;
    std::copy_if(d->log.begin(), d->log.end(), std::back_inserter(result),
                 [&method](const LoggedRequest &request) {
                     return method.isEmpty() || request.method == method;
                 });
    return result;
}

QStringList SimulatedNode::requestLines() const
{
    QStringList lines;
    const QList<LoggedRequest> all = requests();
    for (const LoggedRequest &request : all) {
        lines.append(QString(request.method + QLatin1Char(' ') + request.path));
    }
    return lines;
}

void SimulatedNode::clearRequests()
{
    const std::scoped_lock lock(d->mutex);
    d->log.clear();
}

void SimulatedNode::setRequestObserver(const std::function<void(const LoggedRequest &)> &observer)
{
    const std::scoped_lock lock(d->mutex);
    d->observer = observer;
}
