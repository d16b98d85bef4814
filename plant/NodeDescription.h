#pragma once

#include <QString>
#include <QVector>

// What a sender or receiver carries; its NMOS format URN ends in the same word.
enum class Essence { Video, Audio, Data };

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
    static NodeDescription transmitter(const QString &label = QStringLiteral("Studio A Camera 1"))
    {
        return {label, {{QStringLiteral("Camera"), oneOfEach(), {}}}};
    }

    // One device with a video, an audio and a data receiver.
    static NodeDescription receiver(const QString &label = QStringLiteral("Gallery Monitor 1"))
    {
        return {label, {{QStringLiteral("Monitor"), {}, oneOfEach()}}};
    }

    // One device with that many video senders ("Output 1" ...) and video receivers ("Input 1" ...).
    static NodeDescription wide(const QString &label, int senders, int receivers)
    {
        const auto numbered = [](const QString &text, int count) {
            QVector<EndpointDescription> endpoints;
            for (int number = 1; number <= count; ++number) {
                endpoints.append({text.arg(number)});
            }
            return endpoints;
        };
        return {label,
                {{QStringLiteral("Frame"), numbered(QStringLiteral("Output %1"), senders),
                  numbered(QStringLiteral("Input %1"), receivers)}}};
    }

private:
    static QVector<EndpointDescription> oneOfEach()
    {
        return {{QStringLiteral("Video"), Essence::Video},
                {QStringLiteral("Audio"), Essence::Audio},
                {QStringLiteral("Data"), Essence::Data}};
    }
};
