#pragma once

#include "NodeDescription.h"

#include <QByteArray>
#include <QJsonArray>
#include <QJsonObject>

// The time as NMOS writes it: TAI, "seconds:nanoseconds".
QString taiNow();

// The only leg of the transport parameters of a staged or active endpoint.
QJsonObject firstLeg(const QJsonObject &object);

// One sender or receiver of an IS-05 Connection API: its staged and active parameters for one RTP
// stream and the rules by which a PATCH changes them.
class ConnectionEndpoint final {
public:
    enum class Role { Sender, Receiver };

    // The parameters are the transport parameters from the start.
    ConnectionEndpoint(Role role, Essence essence, const QJsonObject &parameters);

    struct Answer {
        int status = 200;
        QJsonObject body = {};
        bool activated = false;
    };

    // 200: staged, and activated when the PATCH says so; 400: nothing was changed, because the
    // request is not valid, or asks for a scheduled activation or other transport parameters.
    Answer patch(const QByteArray &body);

    const QJsonObject &staged() const
    {
        return stagedObject;
    }
    const QJsonObject &active() const
    {
        return activeObject;
    }

    QJsonValue peer() const // the active sender_id or receiver_id
    {
        return activeObject.value(peerName());
    }

private:
    QLatin1String peerName() const
    {
        return QLatin1String(role == Role::Sender ? "receiver_id" : "sender_id");
    }
    bool isValid(const QString &member, const QJsonValue &value) const;
    QString stageTransportFile(const QJsonObject &file, QJsonObject *parameters) const;

    Role role;
    Essence essence;
    QJsonObject stagedObject;
    QJsonObject activeObject;
};
