#pragma once

#include <QString>

// A node that the operator added by hand. Two are the same when both members are equal, letter case
// included.
struct ManualDevice {
    QString address; // numeric address or host name, never empty
    int port; // 1 to 65535 when added in the dialog; a stored one is taken as it is

    // The node host: address, ':' and the port.
    QString host() const
    {
        return address + QLatin1Char(':') + QString::number(port);
    }

    bool operator==(const ManualDevice &other) const
    {
        return address == other.address && port == other.port;
    }
};
