#pragma once

#include <QList>
#include <QString>

class QSettings;

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

// How the devices are kept between runs: the settings array "manualDevices", each entry with an
// "address" and a "port".
namespace ManualDevices {

// The stored devices in stored order. An entry without an address is passed over; one without a
// port has port 80. Entries beyond the array's size are not read, and no more than 10,000, whatever
// size the array claims to have.
QList<ManualDevice> read(QSettings &settings);

// Replaces the stored devices and writes them to disk. Returns false when they did not get there
// (disk full, no permission); the settings then hold them only as long as the program runs.
bool write(QSettings &settings, const QList<ManualDevice> &devices);

} // namespace ManualDevices
