// Announces nodes that do not exist on every link of its network until it is ended:
//
//   nodepatch-crowd NAME COUNT ADDRESS

#include "Announcer.h"

#include <QHostAddress>

#include <unistd.h>

int main(int argc, char *argv[])
{
    if (argc != 4) {
        return 2;
    }
    Announcer::silenceAvahi();
    Announcer announcer;
    const QHostAddress first(QString::fromLatin1(argv[3]));
    for (int i = 0; i < atoi(argv[2]); ++i) {
        const QByteArray host = argv[1] + QByteArray::number(i);
        const QHostAddress address(first.toIPv4Address() + static_cast<quint32>(i));
        if (!announcer.announce(
                {"Node " + host,
                 host,
                 {address},
                 80,
                 {"api_proto=http", "api_ver=v1.3", "api_auth=false", "pri=100"}})) {
            return 1;
        }
    }
    ::pause();
}
