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

    // The defaults are what "auto" stands for and what is active from the start; each transport
    // parameter of the role has one.
    ConnectionEndpoint(Role role, Essence essence, const QJsonObject &defaults);

    struct Answer {
        int status = 200;
        QJsonObject body = {};
        bool activated = false;
    };

    // 200: staged, and activated when the PATCH says so; 400: not a valid request, nothing was
    // changed; 501: asks for a scheduled activation, nothing was changed.
    Answer patch(const QByteArray &body);

    const QJsonObject &staged() const
    {
        return stagedObject;
    }
    const QJsonObject &active() const
    {
        return activeObject;
    }
    QJsonArray constraints() const;

    QJsonValue peer() const // the active sender_id or receiver_id
    {
        return activeObject.value(peerName());
    }

private:
    QLatin1String peerName() const
    {
        return QLatin1String(role == Role::Sender ? "receiver_id" : "sender_id");
    }
    QLatin1String ownAddress() const;
    bool isValidParameter(const QString &name, const QJsonValue &value) const;
    QString invalidMember(const QJsonObject &request) const;
    QString invalidParameter(const QJsonArray &legs) const;
    bool isValid(const QString &member, const QJsonValue &value) const;
    QString stage(const QJsonObject &request, QJsonObject *next) const;
    QString stageTransportFile(const QJsonObject &file, QJsonObject *parameters) const;
    Answer activate();

    Role role;
    Essence essence;
    QJsonObject defaults;
    QJsonObject stagedObject;
    QJsonObject activeObject;
};
