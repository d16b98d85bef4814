#pragma once

#include "NodeDescription.h"

#include <QByteArray>
#include <QString>

#include <optional>

// One RTP stream: where it comes from and where it goes.
struct StreamAddress {
    QString source; // empty: any source
    QString destination;
    quint16 port = 0;
};

// What an SDP says about its first stream, as far as a receiver needs it.
struct StreamOffer {
    StreamAddress stream;
    Essence essence = Essence::Video;
};

// The SDP (RFC 4566) of a sender by SMPTE ST 2110-20 (1080p50), -30 (two channels, 1 ms) or -40
// (captions and time code), with CRLF line ends. The session id is a number of the sender's own;
// the version has to rise with every change.
QByteArray writeTransportFile(const QString &sessionName, Essence essence,
                              const StreamAddress &stream, quint32 sessionId, quint32 version);

// Nothing when the text is no SDP with a video or audio stream to a usable address. Accepts LF line
// ends.
std::optional<StreamOffer> readTransportFile(const QString &sdp);
