#include "NodeDescription.h"

namespace {

QVector<EndpointDescription> oneOfEach()
{
    return {
        {QStringLiteral("Video"), Essence::Video},
        {QStringLiteral("Audio"), Essence::Audio},
        {QStringLiteral("Data"), Essence::Data},
    };
}

QVector<EndpointDescription> numbered(const QString &label, int count)
{
    QVector<EndpointDescription> endpoints;
    endpoints.reserve(count);
    for (int number = 1; number <= count; ++number) {
        endpoints.append({QStringLiteral("%1 %2").arg(label, QString::number(number))});
    }
    return endpoints;
}

} // namespace

NodeDescription NodeDescription::transmitter(const QString &label)
{
    return {label, {{QStringLiteral("Camera"), oneOfEach(), {}}}};
}

NodeDescription NodeDescription::receiver(const QString &label)
{
    return {label, {{QStringLiteral("Monitor"), {}, oneOfEach()}}};
}

NodeDescription NodeDescription::wide(const QString &label, int senders, int receivers)
{
    return {label,
            {{QStringLiteral("Frame"), numbered(QStringLiteral("Output"), senders),
              numbered(QStringLiteral("Input"), receivers)}}};
}
