#include "HttpServer.h"

#include <QThreadPool>

#include <httplib.h>

#include <algorithm>
#include <cstdio>
#include <future>
#include <limits>
#include <mutex>
#include <set>
#include <string>
#include <thread>

#include <sys/socket.h>

namespace {

// One thread for each connection. The library's own pool has a fixed number of threads: too many
// for an idle node, too few for one with hanging requests.
class Threads final : public httplib::TaskQueue {
public:
    Threads()
    {
        pool.setMaxThreadCount(std::numeric_limits<int>::max());
    }
    void enqueue(std::function<void()> task) override
    {
        pool.start(std::move(task));
    }
    void shutdown() override
    {
        pool.waitForDone();
    }

private:
    QThreadPool pool;
};

// Sleeps until the peer sends or takes something, or until the time limit of five seconds that the
// library sets on the socket. The library's own stream looks at every idle connection a hundred
// times a second.
class Connection final : public httplib::Stream {
public:
    explicit Connection(int connectedSocket)
        : descriptor(connectedSocket)
        , input(::fdopen(connectedSocket, "r"))
    {
    }
    ~Connection() override
    {
        std::fclose(input); // and the socket with it
    }
    Q_DISABLE_COPY_MOVE(Connection)

    bool waitForRequest()
    {
        return !abandoned && std::ungetc(std::getc(input), input) != EOF;
    }

    // Sends nothing more.
    void abandon(bool withReset)
    {
        abandoned = true;
        const linger reset{withReset ? 1 : 0, 0};
        ::setsockopt(descriptor, SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
    }

    bool is_readable() const override
    {
        return !abandoned;
    }
    bool is_writable() const override
    {
        return !abandoned;
    }
    ssize_t read(char *data, size_t size) override
    {
        return static_cast<ssize_t>(std::fread(data, 1, size, input));
    }
    ssize_t write(const char *data, size_t size) override
    {
        ssize_t count = 0;
        for (size_t sent = 0; sent < size && !abandoned; sent += static_cast<size_t>(count)) {
            count = ::send(descriptor, data + sent, size - sent, MSG_NOSIGNAL);
            abandoned = count < 0;
        }
        return abandoned ? -1 : static_cast<ssize_t>(size);
    }
    void get_remote_ip_and_port(std::string &, int &) const override
    {
    }
    void get_local_ip_and_port(std::string &, int &) const override
    {
    }
    socket_t socket() const override
    {
        return descriptor;
    }

private:
    const int descriptor;
    std::FILE *const input;
    bool abandoned = false;
};

// The connection that the current thread serves. The library does not pass it to its handlers.
thread_local Connection *servedConnection = nullptr;

HttpRequest requestOf(const httplib::Request &request)
{
    HttpRequest result{QString::fromStdString(request.method),
                       QString::fromStdString(request.target),
                       QString::fromStdString(request.path),
                       QByteArray::fromStdString(request.body),
                       {}};
    for (const auto &[name, value] : request.headers) {
        result.headers.append({QByteArray::fromStdString(name), QByteArray::fromStdString(value)});
    }
    return result;
}

void setAnswer(httplib::Response &response, const HttpAnswer &answer)
{
    using Wire = HttpAnswer::Wire;
    if (answer.wire == Wire::Reset || answer.wire == Wire::Drop) {
        servedConnection->abandon(answer.wire == Wire::Reset);
        return;
    }
    response.status = answer.status;
    for (const auto &[name, value] : answer.headers) {
        response.set_header(name.toStdString(), value.toStdString());
    }
    const bool isFlood = answer.wire == Wire::Flood;
    const qint64 size = isFlood ? answer.floodBytes : answer.body.size();
    const std::string type = answer.contentType.toStdString();
    // Sends the body from the offset on, or some of it.
    const auto send = [answer, isFlood](size_t offset, size_t left, httplib::DataSink &sink) {
        static const std::string blanks(64 * 1024, ' ');
        return isFlood ? sink.write(blanks.data(), std::min(left, blanks.size()))
                       : sink.write(answer.body.constData() + offset, left);
    };
    if (isFlood && size == 0) {
        response.set_content_provider(type, [send](size_t, httplib::DataSink &sink) {
            return send(0, std::numeric_limits<size_t>::max(), sink);
        });
    } else if (size > 0) {
        // Not set_content(): the library would compress the body and so change its length.
        response.set_content_provider(static_cast<size_t>(size), type, send);
    }
}

} // namespace

struct HttpServer::Private final : httplib::Server {
    explicit Private(const HttpServer::Handler &handler);
    void bind(const std::string &host, int wantedPort);
    bool process_and_close_socket(socket_t socket) override;
    bool serve(Connection &connection);
    void endConnections();

    socket_t listeningSocket = -1;
    int port = -1;
    std::future<bool> loop;

    std::mutex mutex; // guards all that follows
    bool ending = false;
    std::set<int> sockets; // of connections
};

HttpServer::Private::Private(const HttpServer::Handler &handler)
{
    new_task_queue = [] {
        return new Threads;
    };
    set_tcp_nodelay(true);
    set_keep_alive_max_count(1000000);
    set_default_headers({{"Access-Control-Allow-Origin", "*"}});
    // By default two servers could share a port silently.
    set_socket_options([this](socket_t socket) {
        const int on = 1;
        ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        listeningSocket = socket;
    });
    const auto answer = [handler](const httplib::Request &request, httplib::Response &response) {
        setAnswer(response, handler(requestOf(request)));
    };
    const std::string anyPath = "[\\s\\S]*";
    Get(anyPath, answer).Post(anyPath, answer).Put(anyPath, answer);
    Patch(anyPath, answer).Delete(anyPath, answer).Options(anyPath, answer);
}

void HttpServer::Private::bind(const std::string &host, int wantedPort)
{
    port = wantedPort == 0               ? bind_to_any_port(host)
        : bind_to_port(host, wantedPort) ? wantedPort
                                         : -1;
    if (port > 0) {
        // The library's queue of five connections drops what comes in a burst.
        ::listen(listeningSocket, SOMAXCONN);
        loop = std::async(std::launch::async, [this] { return listen_after_bind(); });
    }
}

bool HttpServer::Private::process_and_close_socket(socket_t socket)
{
    Connection connection(socket);
    std::unique_lock lock(mutex);
    if (ending) {
        return false;
    }
    sockets.insert(socket);
    lock.unlock();
    servedConnection = &connection;
    const bool served = serve(connection);
    lock.lock();
    sockets.erase(socket);
    return served;
}

bool HttpServer::Private::serve(Connection &connection)
{
    bool served = true;
    for (bool closed = false; served && !closed && connection.waitForRequest();) {
        served = process_request(connection, false, closed, [](httplib::Request &request) {
            for (const char *added : {"REMOTE_ADDR", "REMOTE_PORT", "LOCAL_ADDR", "LOCAL_PORT"}) {
                request.headers.erase(added);
            }
        });
    }
    return served;
}

void HttpServer::Private::endConnections()
{
    const std::scoped_lock lock(mutex);
    ending = true;
    for (const int socket : sockets) {
        ::shutdown(socket, SHUT_RDWR);
    }
}

HttpServer::HttpServer(const QHostAddress &address, quint16 port, const Handler &handler)
    : d(std::make_unique<Private>(handler))
{
    d->bind(address.toString().toStdString(), port);
}

HttpServer::~HttpServer()
{
    d->endConnections();
    if (d->loop.valid()) {
        // The library ignores a stop() that comes before its loop has begun.
        while (!d->is_running()
               && d->loop.wait_for(std::chrono::seconds(0)) != std::future_status::ready) {
            std::this_thread::yield();
        }
        d->stop();
        d->loop.wait();
    }
}

quint16 HttpServer::port() const
{
    return static_cast<quint16>(std::max(d->port, 0));
}
