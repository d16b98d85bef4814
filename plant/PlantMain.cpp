// A transmitting and a receiving node to try the program against.

#include "Announcer.h"
#include "Plant.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QSocketNotifier>

#include <algorithm>
#include <cstdio>
#include <optional>

#include <csignal>
#include <sys/signalfd.h>
#include <unistd.h>

namespace {

struct Role {
    QString name;
    NodeDescription description;
    QString defaultEndpoint;
};

struct Endpoint {
    QHostAddress address;
    quint16 port = 0;
};

// "127.0.0.10:8010", "[::1]:8010" or "::1:8010".
std::optional<Endpoint> endpointOf(const QString &text)
{
    QString host = text.section(QLatin1Char(':'), 0, -2);
    if (host.startsWith(QLatin1Char('[')) && host.endsWith(QLatin1Char(']'))) {
        host = host.mid(1, host.size() - 2);
    }
    bool isNumber = false;
    const quint16 port = text.section(QLatin1Char(':'), -1).toUShort(&isNumber);
    const QHostAddress address(host);
    if (!isNumber || address.isNull()) {
        return {};
    }
    return Endpoint{address, port};
}

void say(FILE *stream, const QString &line)
{
    std::fprintf(stream, "%s\n", qPrintable(line));
    std::fflush(stream);
}

// Has to come before the first thread: the threads inherit the mask.
int openSignals()
{
    sigset_t signalSet;
    sigemptyset(&signalSet);
    sigaddset(&signalSet, SIGINT);
    sigaddset(&signalSet, SIGTERM);
    sigprocmask(SIG_BLOCK, &signalSet, nullptr);
    return signalfd(-1, &signalSet, SFD_CLOEXEC);
}

bool startNode(Plant *plant, const Role &role, const QString &where, bool verbose)
{
    const auto endpoint = endpointOf(where);
    if (!endpoint) {
        say(stderr, QStringLiteral("%1: not an address and a port: %2").arg(role.name, where));
        return false;
    }
    SimulatedNode &node = plant->add(role.description, endpoint->address, endpoint->port);
    if (!node.isListening()) {
        say(stderr, QStringLiteral("%1: cannot listen at %2").arg(role.name, where));
        return false;
    }
    if (verbose) {
        const QString host = node.host();
        node.setRequestObserver([host](const LoggedRequest &request) {
            const QString body = QString::fromUtf8(request.body);
            say(stderr,
                QStringLiteral("%1  %2 %3 %4").arg(host, request.method, request.path, body));
        });
    }
    say(stdout,
        QStringLiteral("%1  %2  %3/")
            .arg(role.name.leftJustified(11), node.label(), node.baseUrl()));
    return true;
}

// "studio-a-camera-1" for "Studio A Camera 1".
QByteArray hostNameOf(const QString &label)
{
    QByteArray name = label.toLower().toLatin1();
    std::replace_if(
        name.begin(), name.end(),
        [](char letter) {
            return !(letter >= 'a' && letter <= 'z') && !(letter >= '0' && letter <= '9');
        },
        '-');
    return name.left(63);
}

bool announce(Announcer *announcer, const SimulatedNode &node)
{
    Announcement announcement;
    announcement.instance = node.label().toUtf8();
    announcement.hostName = hostNameOf(node.label());
    announcement.addresses = {node.address()};
    announcement.port = node.port();
    announcement.txt = {"api_proto=http", "api_ver=v1.3", "api_auth=false", "pri=100"};
    return announcer->announce(announcement);
}

} // namespace

int main(int argc, char **argv)
{
    const int signalDescriptor = openSignals();
    const QCoreApplication app(argc, argv);
    const Role roles[] = {
        {QStringLiteral("transmitter"), NodeDescription::transmitter(),
         QStringLiteral("127.0.0.10:8010")},
        {QStringLiteral("receiver"), NodeDescription::receiver(),
         QStringLiteral("127.0.0.20:8020")},
    };

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Plays NMOS nodes until it is interrupted."));
    parser.addHelpOption();
    for (const Role &role : roles) {
        parser.addOption({role.name, QStringLiteral("Where the %1 listens.").arg(role.name),
                          QStringLiteral("ADDRESS:PORT"), role.defaultEndpoint});
    }
    const QCommandLineOption verbose(QStringLiteral("verbose"),
                                     QStringLiteral("Write each request to standard error."));
    const QCommandLineOption withStdin(QStringLiteral("with-stdin"),
                                       QStringLiteral("End when standard input is closed."));
    const QCommandLineOption withAnnouncements(
        QStringLiteral("announce"),
        QStringLiteral("Announce the nodes by mDNS on every interface."));
    parser.addOptions({verbose, withStdin, withAnnouncements});
    parser.process(app);

    Plant plant;
    for (const Role &role : roles) {
        if (!startNode(&plant, role, parser.value(role.name), parser.isSet(verbose))) {
            return 1;
        }
    }

    std::optional<Announcer> announcer;
    if (parser.isSet(withAnnouncements)) {
        Announcer::silenceAvahi();
        announcer.emplace();
        for (int index = 0; index < plant.size(); ++index) {
            if (!announce(&*announcer, plant.at(index))) {
                say(stderr, QStringLiteral("cannot announce the nodes"));
                return 1;
            }
        }
    }

    const QSocketNotifier signalNotifier(signalDescriptor, QSocketNotifier::Read);
    QObject::connect(&signalNotifier, &QSocketNotifier::activated, &app, &QCoreApplication::quit);
    QSocketNotifier inputNotifier(STDIN_FILENO, QSocketNotifier::Read);
    inputNotifier.setEnabled(parser.isSet(withStdin));
    QObject::connect(&inputNotifier, &QSocketNotifier::activated, &app, [] {
        char discarded[256];
        if (::read(STDIN_FILENO, discarded, sizeof discarded) <= 0) {
            QCoreApplication::quit();
        }
    });
    return QCoreApplication::exec();
}
