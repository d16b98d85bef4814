// A transmitting and a receiving node to try the program against.

#include "Announcer.h"
#include "Plant.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QUrl>

#include <algorithm>
#include <cstdio>

#include <csignal>

namespace {

struct Role {
    QString name;
    NodeDescription description;
    QString defaultPlace;
};

void say(FILE *stream, const QString &line)
{
    std::fprintf(stream, "%s\n", qPrintable(line));
    std::fflush(stream);
}

// place: "127.0.0.10:8010" or "[::1]:8010".
bool startNode(Plant *plant, const Role &role, const QString &place, bool verbose)
{
    const QUrl url(QStringLiteral("http://") + place);
    SimulatedNode &node =
        plant->add(role.description, QHostAddress(url.host()), static_cast<quint16>(url.port(0)));
    if (!node.isListening()) {
        say(stderr, QStringLiteral("%1: cannot listen at %2").arg(role.name, place));
        return false;
    }
    if (verbose) {
        node.setRequestObserver([host = node.host()](const LoggedRequest &request) {
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

bool announce(Announcer *announcer, const SimulatedNode &node)
{
    const QString hostName = node.label().toLower().replace(QLatin1Char(' '), QLatin1Char('-'));
    return announcer->announce({node.label().toUtf8(),
                                hostName.toLatin1(),
                                {node.address()},
                                node.port(),
                                {"api_proto=http", "api_ver=v1.3", "api_auth=false", "pri=100"}});
}

} // namespace

int main(int argc, char **argv)
{
    // Before the first thread: the others inherit the mask, and the nodes run on threads of theirs.
    sigset_t endSignals;
    sigemptyset(&endSignals);
    sigaddset(&endSignals, SIGINT);
    sigaddset(&endSignals, SIGTERM);
    sigprocmask(SIG_BLOCK, &endSignals, nullptr);

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
                          QStringLiteral("ADDRESS:PORT"), role.defaultPlace});
    }
    const QString verbose = QStringLiteral("verbose");
    const QString announced = QStringLiteral("announce");
    parser.addOptions({{verbose, QStringLiteral("Write each request to standard error.")},
                       {announced, QStringLiteral("Announce the nodes by mDNS everywhere.")}});
    parser.process(app);
    if (!parser.positionalArguments().isEmpty()) {
        parser.showHelp(2);
    }

    Plant plant;
    Announcer::silenceAvahi();
    const auto announcer =
        parser.isSet(announced) ? std::make_unique<Announcer>() : std::unique_ptr<Announcer>();
    for (const Role &role : roles) {
        if (!startNode(&plant, role, parser.value(role.name), parser.isSet(verbose))) {
            return 1;
        }
        if (announcer && !announce(announcer.get(), plant.at(plant.size() - 1))) {
            say(stderr, QStringLiteral("cannot announce the nodes"));
            return 1;
        }
    }
    int received = 0;
    sigwait(&endSignals, &received);
    return 0;
}
