#include "HttpServer.h"

#include <httplib.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

// What the threads of a server wait for, and what ends their waits.
class Gate {
public:
    template <typename Condition>
    bool waitUntil(const Condition &condition)
    {
        std::unique_lock lock(mutex);
        changed.wait(lock, [&] { return ending || condition(); });
        return !ending;
    }

    bool pause(int milliseconds)
    {
        std::unique_lock lock(mutex);
        changed.wait_for(lock, std::chrono::milliseconds(milliseconds), [this] { return ending; });
        return !ending;
    }

    void wake()
    {
        // Taken so that no thread is between its look at the condition and its sleep.
        const std::scoped_lock lock(mutex);
        changed.notify_all();
    }

    void end()
    {
        const std::scoped_lock lock(mutex);
        ending = true;
        for (const int socket : sockets) {
            ::shutdown(socket, SHUT_RDWR);
        }
        changed.notify_all();
    }

    // False when it is too late to begin with a connection.
    bool enter(int socket)
    {
        const std::scoped_lock lock(mutex);
        if (!ending) {
            sockets.insert(socket);
        }
        return !ending;
    }

    void leave(int socket)
    {
        const std::scoped_lock lock(mutex);
        sockets.erase(socket);
    }

private:
    std::mutex mutex;
    std::condition_variable changed;
    bool ending = false;
    std::set<int> sockets;
};

// Threads that come into being when there is work and none of them is free. The library's own pool
// has a fixed number, which is too many for an idle node and too few for one with hanging requests.
class GrowingPool final : public httplib::TaskQueue {
public:
    GrowingPool() = default;
    Q_DISABLE_COPY_MOVE(GrowingPool)

    void enqueue(std::function<void()> task) override
    {
        const std::scoped_lock lock(mutex);
        tasks.push_back(std::move(task));
        if (tasks.size() > idle) {
            threads.emplace_back([this] { work(); });
        } else {
            changed.notify_one();
        }
    }

    void shutdown() override
    {
        {
            const std::scoped_lock lock(mutex);
            ending = true;
            changed.notify_all();
        }
        for (std::thread &thread : threads) {
            thread.join();
        }
        threads.clear();
    }

private:
    void work()
    {
        std::unique_lock lock(mutex);
        for (;;) {
            ++idle;
            changed.wait(lock, [this] { return ending || !tasks.empty(); });
            --idle;
            if (tasks.empty()) {
                return;
            }
            const std::function<void()> task = std::move(tasks.front());
            tasks.pop_front();
            lock.unlock();
            task();
            lock.lock();
        }
    }

    std::mutex mutex;
    std::condition_variable changed;
    std::deque<std::function<void()>> tasks;
    std::vector<std::thread> threads;
    size_t idle = 0;
    bool ending = false;
};

// A connection's bytes, spoiled on their way out as the answer asks. Blocks without a time limit;
// the gate ends a wait by shutting the socket down. (The library's own stream looks at every idle
// connection a hundred times a second.)
class Connection final : public httplib::Stream {
public:
    Connection(int connectedSocket, Gate &serverGate)
        : descriptor(connectedSocket)
        , gate(serverGate)
    {
    }

    bool waitForRequest()
    {
        return !over && (begin < end || fill());
    }

    void answerBy(HttpAnswer::Wire newWire, int newDripMilliseconds)
    {
        wire = newWire;
        dripMilliseconds = newDripMilliseconds;
        headerSent = false;
    }

    void close() const
    {
        if (wire == HttpAnswer::Wire::Reset) {
            const linger none{1, 0};
            ::setsockopt(descriptor, SOL_SOCKET, SO_LINGER, &none, sizeof none);
        } else {
            ::shutdown(descriptor, SHUT_RDWR);
        }
        ::close(descriptor);
    }

    bool is_readable() const override
    {
        return !over;
    }
    bool is_writable() const override
    {
        return !over;
    }
    ssize_t read(char *data, size_t size) override
    {
        if (begin == end && !fill()) {
            return 0;
        }
        const size_t count = std::min(size, end - begin);
        std::copy_n(buffer.data() + begin, count, data);
        begin += count;
        return static_cast<ssize_t>(count);
    }

    // The library writes the header in one piece, then the body.
    ssize_t write(const char *data, size_t size) override
    {
        switch (wire) {
        case HttpAnswer::Wire::Reset:
        case HttpAnswer::Wire::Drop:
            over = true;
            return -1;
        case HttpAnswer::Wire::Truncated:
            if (headerSent) {
                send(data, size / 2);
                over = true;
                return -1;
            }
            break;
        case HttpAnswer::Wire::Dripped:
            if (headerSent) {
                return drip(data, size);
            }
            break;
        case HttpAnswer::Wire::Whole:
        case HttpAnswer::Wire::Flood:
            break;
        }
        headerSent = true;
        return send(data, size);
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
    bool fill()
    {
        const ssize_t count = ::recv(descriptor, buffer.data(), buffer.size(), 0);
        begin = 0;
        end = count > 0 ? static_cast<size_t>(count) : 0;
        over = over || end == 0;
        return end > 0;
    }

    ssize_t send(const char *data, size_t size)
    {
        for (size_t sent = 0; sent < size;) {
            const ssize_t count = ::send(descriptor, data + sent, size - sent, MSG_NOSIGNAL);
            if (count < 0) {
                over = true;
                return -1;
            }
            sent += static_cast<size_t>(count);
        }
        return static_cast<ssize_t>(size);
    }

    ssize_t drip(const char *data, size_t size)
    {
        for (size_t sent = 0; sent < size; ++sent) {
            if (!gate.pause(dripMilliseconds) || send(data + sent, 1) < 0) {
                over = true;
                return -1;
            }
        }
        return static_cast<ssize_t>(size);
    }

    const int descriptor;
    Gate &gate;
    std::array<char, 4096> buffer = {};
    size_t begin = 0;
    size_t end = 0;
    bool over = false;
    HttpAnswer::Wire wire = HttpAnswer::Wire::Whole;
    int dripMilliseconds = 0;
    bool headerSent = false;
};

// The connection that the current thread serves: the library's handlers are not told.
thread_local Connection *servedConnection = nullptr;
thread_local httplib::Headers servedHeaders;

class Listener final : public httplib::Server {
public:
    explicit Listener(Gate &serverGate)
        : gate(serverGate)
    {
        new_task_queue = [] {
            return new GrowingPool;
        };
        set_tcp_nodelay(true);
        set_keep_alive_max_count(1000000);
        set_keep_alive_timeout(3600);
        set_default_headers({{"Access-Control-Allow-Origin", "*"}});
        // The library's default lets two servers share a port without a word.
        set_socket_options([](socket_t socket) {
            const int on = 1;
            ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        });
    }

    int bind(const std::string &host, int wantedPort)
    {
        const int port = wantedPort == 0     ? bind_to_any_port(host)
            : bind_to_port(host, wantedPort) ? wantedPort
                                             : -1;
        if (port > 0) {
            // The library's queue of five connections drops what comes in a burst.
            ::listen(svr_sock_, SOMAXCONN);
        }
        return port;
    }

private:
    bool process_and_close_socket(socket_t socket) override
    {
        Connection connection(socket, gate);
        const bool mayServe = gate.enter(socket);
        if (mayServe) {
            serve(connection);
            gate.leave(socket);
        }
        connection.close();
        return mayServe;
    }

    void serve(Connection &connection)
    {
        servedConnection = &connection;
        bool closed = false;
        while (!closed && connection.waitForRequest()) {
            const bool served =
                process_request(connection, false, closed, [](httplib::Request &request) {
                    servedHeaders = request.headers;
                    // Else the library compresses what it can, and no length is as it was meant.
                    request.headers.erase("Accept-Encoding");
                });
            if (!served) {
                break;
            }
        }
        servedConnection = nullptr;
    }

    Gate &gate;
};

HttpRequest requestOf(const httplib::Request &request)
{
    HttpRequest result;
    result.method = QByteArray::fromStdString(request.method);
    result.path = QString::fromStdString(request.path);
    result.target = QByteArray::fromStdString(request.target);
    result.body = QByteArray::fromStdString(request.body);
    result.contentType = QByteArray::fromStdString(request.get_header_value("Content-Type"));
    for (const auto &[name, value] : servedHeaders) {
        // The library adds these two to what was sent.
        if (name != "REMOTE_ADDR" && name != "REMOTE_PORT" && name != "LOCAL_ADDR"
            && name != "LOCAL_PORT") {
            result.headers.append(
                {QByteArray::fromStdString(name), QByteArray::fromStdString(value)});
        }
    }
    return result;
}

void setFlood(httplib::Response &response, const HttpAnswer &answer)
{
    static const std::string blanks(64 * 1024, ' ');
    const std::string type = answer.contentType.toStdString();
    if (answer.floodBytes > 0) {
        response.set_content_provider(static_cast<size_t>(answer.floodBytes), type,
                                      [](size_t, size_t left, httplib::DataSink &sink) {
                                          return sink.write(blanks.data(),
                                                            std::min(left, blanks.size()));
                                      });
    } else {
        response.set_chunked_content_provider(type, [](size_t, httplib::DataSink &sink) {
            return sink.write(blanks.data(), blanks.size());
        });
    }
}

void setAnswer(httplib::Response &response, const HttpAnswer &answer)
{
    response.status = answer.status;
    for (const auto &[name, value] : answer.headers) {
        response.set_header(name.toStdString(), value.toStdString());
    }
    if (answer.wire == HttpAnswer::Wire::Flood) {
        setFlood(response, answer);
    } else if (!answer.body.isEmpty()) {
        response.set_content(answer.body.toStdString(), answer.contentType.toStdString());
    }
    servedConnection->answerBy(answer.wire, answer.dripMilliseconds);
}

} // namespace

struct HttpServer::Private {
    Gate gate;
    Listener listener{gate};
    int port = -1;
    std::atomic<bool> finished{false};
    std::thread thread;
};

HttpServer::HttpServer(const QHostAddress &address, quint16 port, const Handler &handler)
    : d(std::make_unique<Private>())
{
    const auto answer = [this, handler](const httplib::Request &request,
                                        httplib::Response &response) {
        setAnswer(response, handler(*this, requestOf(request)));
    };
    const std::string anyPath = "[\\s\\S]*";
    d->listener.Get(anyPath, answer)
        .Post(anyPath, answer)
        .Put(anyPath, answer)
        .Patch(anyPath, answer)
        .Delete(anyPath, answer)
        .Options(anyPath, answer);
    d->port = d->listener.bind(address.toString().toStdString(), port);
    if (d->port > 0) {
        d->thread = std::thread([this] {
            d->listener.listen_after_bind();
            d->finished = true;
        });
    }
}

HttpServer::~HttpServer()
{
    d->gate.end();
    if (d->thread.joinable()) {
        // The library ignores a stop() that comes before its loop has begun.
        while (!d->listener.is_running() && !d->finished) {
            std::this_thread::yield();
        }
        d->listener.stop();
        d->thread.join();
    }
}

bool HttpServer::isListening() const
{
    return d->port > 0;
}

quint16 HttpServer::port() const
{
    return d->port > 0 ? static_cast<quint16>(d->port) : quint16(0);
}

void HttpServer::pause(int milliseconds)
{
    if (milliseconds > 0) {
        d->gate.pause(milliseconds);
    }
}

bool HttpServer::waitUntil(const std::function<bool()> &condition)
{
    return d->gate.waitUntil(condition);
}

void HttpServer::wake()
{
    d->gate.wake();
}
