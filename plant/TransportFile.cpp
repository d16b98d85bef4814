#include "TransportFile.h"

#include <QHostAddress>
#include <QRegularExpression>

namespace {

struct MediaFormat {
    const char *media; // and the payload type, with a placeholder for the port
    const char *attributes;
};

// In the order of Essence.
const MediaFormat formats[] = {
    {"video %1 RTP/AVP 96",
     "a=rtpmap:96 raw/90000\n"
     "a=fmtp:96 sampling=YCbCr-4:2:2; width=1920; height=1080; exactframerate=50; depth=10; "
     "TCS=SDR; colorimetry=BT709; PM=2110GPM; SSN=ST2110-20:2017; TP=2110TPN\n"},
    {"audio %1 RTP/AVP 97",
     "a=rtpmap:97 L24/48000/2\n"
     "a=fmtp:97 channel-order=SMPTE2110.(ST)\n"
     "a=ptime:1\n"},
    {"video %1 RTP/AVP 100",
     "a=rtpmap:100 smpte291/90000\n"
     "a=fmtp:100 DID_SDID={0x61,0x01};DID_SDID={0x60,0x60};VPID_Code=137\n"},
};

QString addressType(const QString &address)
{
    return address.contains(QLatin1Char(':')) ? QStringLiteral("IP6") : QStringLiteral("IP4");
}

} // namespace

QByteArray writeTransportFile(const QString &sessionName, Essence essence,
                              const StreamAddress &stream, quint32 sessionId, quint32 version)
{
    const MediaFormat &format = formats[static_cast<int>(essence)];
    const QString type = addressType(stream.destination);
    // A multicast address has a time to live in IPv4 only.
    const QString scope = type == QLatin1String("IP4") ? QStringLiteral("/64") : QString();
    const QString name = sessionName.simplified();
    const QString text =
        QStringLiteral("v=0\n"
                       "o=- %1 %2 IN %3 %4\n"
                       "s=%5\n"
                       "t=0 0\n"
                       "m=%6\n"
                       "c=IN %7 %8%9\n"
                       "a=source-filter: incl IN %7 %8 %4\n")
            .arg(QString::number(sessionId), QString::number(version), addressType(stream.source),
                 stream.source, name, QString::fromLatin1(format.media).arg(stream.port), type,
                 stream.destination, scope)
        + QLatin1String(format.attributes)
        + QLatin1String("a=ts-refclk:ptp=IEEE1588-2008:08-00-11-FF-FE-21-E1-B0:127\n"
                        "a=mediaclk:direct=0\n");
    return text.toUtf8().replace("\n", "\r\n");
}

std::optional<StreamOffer> readTransportFile(const QString &sdp)
{
    const int media = sdp.indexOf(QLatin1String("\nm="));
    if (!sdp.startsWith(QLatin1String("v=0")) || media < 0) {
        return {};
    }
    // What follows a second "m=" is another leg or stream.
    const int second = sdp.indexOf(QLatin1String("\nm="), media + 1);
    const QString first = sdp.mid(media, second < 0 ? -1 : second - media);
    // Media level, else session level.
    const auto captured = [&](const QString &pattern) {
        const QRegularExpression line(pattern, QRegularExpression::MultilineOption);
        const QString own = line.match(first).captured(1);
        return own.isEmpty() ? line.match(sdp.left(media)).captured(1) : own;
    };
    StreamOffer offer;
    offer.stream.destination = captured(QStringLiteral("^c=IN IP[46] ([^/\\s]+)"));
    offer.stream.source = // RFC 4570: "incl IN IP4 239.1.2.3 192.0.2.1"
        captured(QStringLiteral("^a=source-filter: *incl IN \\S+ \\S+ (\\S+)"));
    offer.stream.port = captured(QStringLiteral("^m=\\w+ (\\d+)")).toUShort();
    const bool isAudio = first.startsWith(QLatin1String("\nm=audio"));
    const bool isData = first.contains(QLatin1String(" smpte291/"));
    offer.essence = isAudio ? Essence::Audio : isData ? Essence::Data : Essence::Video;
    if (offer.stream.port == 0 || QHostAddress(offer.stream.destination).isNull()) {
        return {};
    }
    return offer;
}
