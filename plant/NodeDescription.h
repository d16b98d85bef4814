#pragma once

#include <QString>
#include <QVector>

// What a sender or receiver carries; its NMOS format URN ends in the same word.
enum class Essence {
    Video,
    Audio,
    Data,
};

struct EndpointDescription {
    QString label;
    Essence essence = Essence::Video;
};

struct DeviceDescription {
    QString label;
    QVector<EndpointDescription> senders = {};
    QVector<EndpointDescription> receivers = {};
};

// What a simulated node consists of. Each sender gets a source and a flow of its own.
struct NodeDescription {
    QString label;
    QVector<DeviceDescription> devices = {};

    // One device with a video, an audio and a data sender.
    static NodeDescription transmitter(const QString &label = QStringLiteral("Studio A Camera 1"));

    // One device with a video, an audio and a data receiver.
    static NodeDescription receiver(const QString &label = QStringLiteral("Gallery Monitor 1"));

    // One device with that many video senders ("Output 1" ...) and video receivers ("Input 1" ...).
    static NodeDescription wide(const QString &label, int senders, int receivers);
};
