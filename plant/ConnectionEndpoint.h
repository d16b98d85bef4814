#pragma once

#include "NodeDescription.h"

#include <QByteArray>
#include <QJsonArray>
#include <QJsonObject>

#include <optional>

// TAI as NMOS writes it, "seconds:nanoseconds", counted in nanoseconds since 1970.
using TaiTime = qint64;

TaiTime taiNow();
QString taiText(TaiTime time);
// Nothing when the text is no such time.
std::optional<TaiTime> taiFromText(const QString &text);

// The error object that every NMOS API answers with.
QJsonObject nmosError(int code, const QString &message);

// One sender or receiver of an IS-05 Connection API: its staged and active parameters for one RTP
// stream and the rules by which a PATCH changes them.
class ConnectionEndpoint final {
public:
    enum class Role {
        Sender,
        Receiver,
    };

    // The defaults are what "auto" stands for and what is active from the start; each transport
    // parameter of the role has one.
    ConnectionEndpoint(Role role, Essence essence, const QJsonObject &defaults);

    struct Answer {
        int status = 200;
        QJsonObject body;
        bool activated = false;
    };

    // 200: staged, and activated when the PATCH says so; 202: to be activated later; 400: not a
    // valid request, nothing was changed; 423: locked by an activation to come.
    Answer patch(const QByteArray &body, TaiTime now);

    // Does a scheduled activation whose time has come. True when there was one.
    bool activateIfDue(TaiTime now);

    const QJsonObject &staged() const;
    const QJsonObject &active() const;
    QJsonArray constraints() const;

    bool isEnabled() const; // as active
    QJsonValue peer() const; // the active sender_id or receiver_id
    QJsonObject activeParameters() const;

private:
    QString invalidMember(const QJsonObject &request) const;
    QString invalidParameters(const QJsonValue &value) const;
    QString stage(const QJsonObject &request, QJsonObject *next) const;
    QString stageTransportFile(const QJsonObject &file, QJsonObject *parameters) const;
    Answer schedule(const QJsonObject &next, const QString &mode, const QJsonObject &activation,
                    TaiTime now);
    void activate(const QJsonObject &next, const QJsonObject &activation);

    Role role;
    Essence essence;
    QJsonObject defaults;
    QJsonObject stagedObject;
    QJsonObject activeObject;
    std::optional<TaiTime> due;
};
