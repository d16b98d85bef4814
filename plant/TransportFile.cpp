#include "TransportFile.h"

#include <QHostAddress>
#include <QStringList>

namespace {

struct MediaFormat {
    const char *media;
    const char *payload;
    const char *attributes; // lines, separated by '\n'
};

// In the order of Essence.
const MediaFormat formats[] = {
    {"video", "96",
     "a=rtpmap:96 raw/90000\n"
     "a=fmtp:96 sampling=YCbCr-4:2:2; width=1920; height=1080; exactframerate=50; depth=10; "
     "TCS=SDR; colorimetry=BT709; PM=2110GPM; SSN=ST2110-20:2017; TP=2110TPN"},
    {"audio", "97",
     "a=rtpmap:97 L24/48000/2\n"
     "a=fmtp:97 channel-order=SMPTE2110.(ST)\n"
     "a=ptime:1"},
    {"video", "100",
     "a=rtpmap:100 smpte291/90000\n"
     "a=fmtp:100 DID_SDID={0x61,0x01};DID_SDID={0x60,0x60};VPID_Code=137"},
};

QString addressType(const QString &address)
{
    return address.contains(QLatin1Char(':')) ? QStringLiteral("IP6") : QStringLiteral("IP4");
}

QString oneLine(const QString &text)
{
    const QString line = text.simplified();
    return line.isEmpty() ? QStringLiteral("-") : line;
}

// "239.1.2.3/64" and "IN IP4 239.1.2.3" are what addresses look like in an SDP.
QString plainAddress(const QString &address)
{
    return address.section(QLatin1Char('/'), 0, 0);
}

// The source of "incl IN IP4 239.1.2.3 192.0.2.1" (RFC 4570).
QString filterSource(const QString &filter)
{
    const QStringList words = filter.simplified().split(QLatin1Char(' '));
    return words.size() >= 5 && words.first() == QLatin1String("incl") ? words.at(4) : QString();
}

} // namespace

QByteArray writeTransportFile(const QString &sessionName, Essence essence,
                              const StreamAddress &stream, quint32 sessionId, quint32 version)
{
    const MediaFormat &format = formats[static_cast<int>(essence)];
    const QString type = addressType(stream.destination);
    // A multicast address has a time to live in IPv4 only.
    const QString scope = type == QLatin1String("IP4") ? QStringLiteral("/64") : QString();
    QStringList lines{
        QStringLiteral("v=0"),
        QStringLiteral("o=- %1 %2 IN %3 %4")
            .arg(QString::number(sessionId), QString::number(version), addressType(stream.source),
                 stream.source),
        QString(QStringLiteral("s=") + oneLine(sessionName)),
        QStringLiteral("t=0 0"),
        QStringLiteral("m=%1 %2 RTP/AVP %3")
            .arg(QLatin1String(format.media), QString::number(stream.port),
                 QLatin1String(format.payload)),
        QStringLiteral("c=IN %1 %2%3").arg(type, stream.destination, scope),
        QStringLiteral("a=source-filter: incl IN %1 %2 %3")
            .arg(type, stream.destination, stream.source),
    };
    lines += QString::fromLatin1(format.attributes).split(QLatin1Char('\n'));
    lines << QStringLiteral("a=ts-refclk:ptp=IEEE1588-2008:08-00-11-FF-FE-21-E1-B0:127")
          << QStringLiteral("a=mediaclk:direct=0") << QString();
    return lines.join(QLatin1String("\r\n")).toUtf8();
}

std::optional<StreamOffer> readTransportFile(const QString &sdp)
{
    StreamOffer offer;
    bool inMedia = false;
    const QStringList lines = sdp.split(QLatin1Char('\n'));
    if (lines.first().trimmed() != QLatin1String("v=0")) {
        return {};
    }
    for (const QString &rawLine : lines) {
        const QString line = rawLine.trimmed();
        const QString value = line.mid(2);
        const QStringList words = value.split(QLatin1Char(' '));
        if (line.startsWith(QLatin1String("m="))) {
            if (inMedia) {
                break; // a second leg or stream
            }
            inMedia = true;
            offer.stream.port = words.value(1).toUShort();
            offer.essence =
                words.first() == QLatin1String("audio") ? Essence::Audio : Essence::Video;
        } else if (line.startsWith(QLatin1String("c="))) {
            offer.stream.destination = plainAddress(words.value(2));
        } else if (line.startsWith(QLatin1String("a=source-filter:"))) {
            offer.stream.source = filterSource(line.section(QLatin1Char(':'), 1));
        } else if (line.startsWith(QLatin1String("a=rtpmap:"))
                   && line.contains(QLatin1String(" smpte291/"))) {
            offer.essence = Essence::Data;
        }
    }
    if (!inMedia || offer.stream.port == 0 || QHostAddress(offer.stream.destination).isNull()) {
        return {};
    }
    return offer;
}
