#include "SimulatedNode.h"

#include "Json.h"
#include "NodeModel.h"

#include <QJsonDocument>
#include <QSet>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <shared_mutex>

namespace {

// A fault that is switched on.
struct SetFault {
    QString path;
    Fault fault;
    std::atomic<bool> cleared{false};
    QSet<QString> activated = {}; // senders since then
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

// The id in ".../single/senders/ID/...".
QString senderInPath(const QString &path)
{
    static const QString before = SimulatedNode::manifestPath({}).section(QLatin1Char('/'), 0, 5);
    return path.startsWith(before) ? path.section(QLatin1Char('/'), 6, 6) : QString();
}

HttpAnswer errorAnswer(int code)
{
    const QString message = QStringLiteral("fault switched on: %1").arg(code);
    HttpAnswer answer;
    answer.status = code;
    answer.body = QJsonDocument(nmosError(code, message)).toJson(QJsonDocument::Compact);
    return answer;
}

// The answer that a fault puts in place of the node's own; nothing when that is still wanted.
std::optional<HttpAnswer> replacement(const Fault &fault)
{
    HttpAnswer answer;
    answer.contentType = fault.contentType;
    answer.body = fault.content;
    switch (fault.kind) {
    case Fault::Kind::Status:
        if (fault.content.isEmpty() && fault.code >= 400) {
            return errorAnswer(fault.code);
        }
        answer.status = fault.code;
        return answer;
    case Fault::Kind::Body:
        if (!fault.encoding.isEmpty()) {
            answer.headers = {{"Content-Encoding", fault.encoding}};
        }
        return answer;
    case Fault::Kind::Redirect:
        answer.status = fault.code;
        answer.headers = {{"Location", fault.location}};
        return answer;
    case Fault::Kind::Reset:
        answer.wire = HttpAnswer::Wire::Reset;
        return answer;
    case Fault::Kind::Drop:
        answer.wire = HttpAnswer::Wire::Drop;
        return answer;
    case Fault::Kind::Flood:
        answer.wire = HttpAnswer::Wire::Flood;
        answer.contentType = "application/json";
        answer.floodBytes = fault.floodBytes;
        return answer;
    case Fault::Kind::UntilActivated:
        return errorAnswer(404);
    case Fault::Kind::Delay:
    case Fault::Kind::Hang:
    case Fault::Kind::Truncate:
    case Fault::Kind::Drip:
        break;
    }
    return {};
}

LoggedRequest logged(const HttpRequest &request)
{
    return {QString::fromLatin1(request.method), QString::fromUtf8(request.target), request.body,
            request.contentType, request.headers};
}

} // namespace

struct SimulatedNode::Private {
    Private(const NodeDescription &nodeDescription, const QHostAddress &nodeAddress,
            quint16 nodePort)
        : description(nodeDescription)
        , address(nodeAddress)
        , port(nodePort)
    {
    }

    const NodeDescription description;
    const QHostAddress address;

    // Held alone while the server comes and goes; before mutex, where both are.
    std::shared_mutex serverMutex;
    std::unique_ptr<HttpServer> server;
    std::atomic<bool> listening{false};

    std::mutex mutex; // guards all that follows
    quint16 port;
    std::unique_ptr<NodeModel> model;
    QHash<QString, QPair<QByteArray, QByteArray>> resources; // by path without slash
    QList<std::shared_ptr<SetFault>> faults;
    QList<LoggedRequest> log;
    std::function<void(const LoggedRequest &)> observer;
    int responseDelay = 0;

    HttpAnswer answer(HttpServer &serving, const HttpRequest &request);
    HttpAnswer ownAnswer(const HttpRequest &request);
    std::shared_ptr<SetFault> takeFault(const HttpRequest &request);
    void removeFaults(const std::function<bool(const SetFault &)> &which);
    QJsonObject parameters(const ConnectionEndpoint *(NodeModel::*find)(const QString &) const,
                           const QString &id,
                           const QJsonObject &(ConnectionEndpoint::*part)() const);
    void wake();
    bool listen();
};

// Of one sender or receiver, as they stand once every activation that is due has come.
QJsonObject SimulatedNode::Private::parameters(
    const ConnectionEndpoint *(NodeModel::*find)(const QString &) const, const QString &id,
    const QJsonObject &(ConnectionEndpoint::*part)() const)
{
    const std::scoped_lock lock(mutex);
    model->advance();
    const ConnectionEndpoint *const endpoint = (model.get()->*find)(id);
    return endpoint ? (endpoint->*part)() : QJsonObject();
}

HttpAnswer SimulatedNode::Private::answer(HttpServer &serving, const HttpRequest &request)
{
    const LoggedRequest entry = logged(request);
    std::unique_lock lock(mutex);
    log.append(entry);
    const auto observe = observer;
    const int delay = responseDelay;
    const std::shared_ptr<SetFault> set = takeFault(request);
    lock.unlock();
    if (observe) {
        observe(entry);
    }
    serving.pause(delay + (set ? set->fault.delayMilliseconds : 0));
    if (!set) {
        return ownAnswer(request);
    }
    const Fault &fault = set->fault;
    if (const auto replaced = replacement(fault)) {
        return *replaced;
    }
    if (fault.kind == Fault::Kind::Hang
        && !serving.waitUntil([&set] { return set->cleared.load(); })) {
        HttpAnswer none;
        none.wire = HttpAnswer::Wire::Drop;
        return none;
    }
    HttpAnswer own = ownAnswer(request);
    if (fault.kind == Fault::Kind::Truncate) {
        own.wire = HttpAnswer::Wire::Truncated;
    } else if (fault.kind == Fault::Kind::Drip) {
        own.wire = HttpAnswer::Wire::Dripped;
        own.dripMilliseconds = fault.dripMilliseconds;
    }
    return own;
}

// The fault that meets the request, counted down. To be called with the mutex held.
std::shared_ptr<SetFault> SimulatedNode::Private::takeFault(const HttpRequest &request)
{
    const auto meets = [&request](const std::shared_ptr<SetFault> &set) {
        const Fault &fault = set->fault;
        return fault.remaining != 0 && (fault.method.isEmpty() || fault.method == request.method)
            && covers(set->path, request.path)
            && (fault.kind != Fault::Kind::UntilActivated
                || !set->activated.contains(senderInPath(request.path)));
    };
    const auto found = std::find_if(faults.rbegin(), faults.rend(), meets);
    if (found == faults.rend()) {
        return {};
    }
    if ((*found)->fault.remaining > 0) {
        --(*found)->fault.remaining;
    }
    return *found;
}

HttpAnswer SimulatedNode::Private::ownAnswer(const HttpRequest &request)
{
    const std::scoped_lock lock(mutex);
    if (request.method == "GET" || request.method == "HEAD") {
        const auto resource = resources.constFind(withoutSlash(request.path));
        if (resource != resources.constEnd()) {
            HttpAnswer answer;
            answer.body = resource->first;
            answer.contentType = resource->second;
            return answer;
        }
    }
    const NodeModel::Outcome outcome = model->answer(request);
    if (!outcome.activatedId.isEmpty()) {
        for (const auto &set : std::as_const(faults)) {
            set->activated.insert(outcome.activatedId);
        }
    }
    return outcome.answer;
}

void SimulatedNode::Private::removeFaults(const std::function<bool(const SetFault &)> &which)
{
    {
        const std::scoped_lock lock(mutex);
        const auto first = std::stable_partition(
            faults.begin(), faults.end(),
            [&which](const std::shared_ptr<SetFault> &set) { return !which(*set); });
        std::for_each(first, faults.end(),
                      [](const std::shared_ptr<SetFault> &set) { set->cleared = true; });
        faults.erase(first, faults.end());
    }
    wake();
}

void SimulatedNode::Private::wake()
{
    // A server that just ends wakes everybody by itself; to wait for that would be a deadlock when
    // the caller is a request's observer.
    const std::shared_lock lock(serverMutex, std::try_to_lock);
    if (lock.owns_lock() && server) {
        server->wake();
    }
}

// To be called with the server's mutex held.
bool SimulatedNode::Private::listen()
{
    // Requests that come while the port is not yet known wait for the mutex.
    const std::scoped_lock lock(mutex);
    server = std::make_unique<HttpServer>(address, port,
                                          [this](HttpServer &serving, const HttpRequest &request) {
                                              return answer(serving, request);
                                          });
    listening = server->isListening();
    if (listening) {
        port = server->port();
    } else {
        server.reset();
    }
    if (!model) {
        model = std::make_unique<NodeModel>(description, address, port);
    }
    return listening;
}

SimulatedNode::SimulatedNode(const NodeDescription &description, const QHostAddress &address,
                             quint16 port)
    : d(std::make_unique<Private>(description, address, port))
{
    start();
}

SimulatedNode::~SimulatedNode()
{
    stop();
}

bool SimulatedNode::isListening() const
{
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
    const std::scoped_lock lock(d->serverMutex);
    d->server.reset();
    d->listening = false;
}

bool SimulatedNode::start()
{
    const std::scoped_lock lock(d->serverMutex);
    return d->server || d->listen();
}

QString SimulatedNode::nodeId() const
{
    return d->model->nodeId();
}

QStringList SimulatedNode::deviceIds() const
{
    return d->model->deviceIds();
}

QStringList SimulatedNode::senderIds() const
{
    return d->model->senderIds({});
}

QStringList SimulatedNode::senderIds(Essence essence) const
{
    return d->model->senderIds(essence);
}

QStringList SimulatedNode::receiverIds() const
{
    return d->model->receiverIds({});
}

QStringList SimulatedNode::receiverIds(Essence essence) const
{
    return d->model->receiverIds(essence);
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

QJsonObject SimulatedNode::receiverStaged(const QString &id) const
{
    return d->parameters(&NodeModel::receiver, id, &ConnectionEndpoint::staged);
}

QJsonObject SimulatedNode::receiverActive(const QString &id) const
{
    return d->parameters(&NodeModel::receiver, id, &ConnectionEndpoint::active);
}

QJsonObject SimulatedNode::senderStaged(const QString &id) const
{
    return d->parameters(&NodeModel::sender, id, &ConnectionEndpoint::staged);
}

QJsonObject SimulatedNode::senderActive(const QString &id) const
{
    return d->parameters(&NodeModel::sender, id, &ConnectionEndpoint::active);
}

QByteArray SimulatedNode::manifest(const QString &senderId) const
{
    const std::scoped_lock lock(d->mutex);
    d->model->advance();
    return d->model->manifest(senderId);
}

QJsonArray SimulatedNode::collection(const QString &name) const
{
    const std::scoped_lock lock(d->mutex);
    d->model->advance();
    return d->model->resource(name).toArray();
}

void SimulatedNode::setCollection(const QString &name, const QByteArray &body)
{
    setResource(collectionPath(name), body);
}

void SimulatedNode::setCollection(const QString &name, const QJsonArray &array)
{
    setCollection(name, QJsonDocument(array).toJson(QJsonDocument::Compact));
}

void SimulatedNode::setResource(const QString &path, const QByteArray &body,
                                const QByteArray &contentType)
{
    const std::scoped_lock lock(d->mutex);
    d->resources.insert(withoutSlash(path), {body, contentType});
}

void SimulatedNode::clearResources()
{
    const std::scoped_lock lock(d->mutex);
    d->resources.clear();
}

void SimulatedNode::setFault(const QString &path, const Fault &fault)
{
    d->removeFaults([&](const SetFault &set) {
        return withoutSlash(set.path) == withoutSlash(path) && set.fault.method == fault.method;
    });
    const auto set = std::make_shared<SetFault>();
    set->path = path;
    set->fault = fault;
    const std::scoped_lock lock(d->mutex);
    d->faults.append(set);
}

void SimulatedNode::clearFault(const QString &path)
{
    d->removeFaults(
        [&path](const SetFault &set) { return withoutSlash(set.path) == withoutSlash(path); });
}

void SimulatedNode::clearFaults()
{
    d->removeFaults([](const SetFault &) { return true; });
}

void SimulatedNode::setResponseDelay(int milliseconds)
{
    const std::scoped_lock lock(d->mutex);
    d->responseDelay = milliseconds;
}

QList<LoggedRequest> SimulatedNode::requests() const
{
    const std::scoped_lock lock(d->mutex);
    QList<LoggedRequest> result = d->log;
    result.detach(); // nothing stays shared with the threads that append
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

QList<LoggedRequest> SimulatedNode::requests(const QString &method) const
{
    QList<LoggedRequest> result;
    const QList<LoggedRequest> all = requests();
    for (const LoggedRequest &request : all) {
        if (request.method == method) {
            result.append(request);
        }
    }
    return result;
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
