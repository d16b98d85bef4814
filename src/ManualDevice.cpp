#include "ManualDevice.h"

#include <QSettings>

#include <algorithm>

namespace {

const QLatin1String devicesKey("manualDevices");
const QLatin1String addressKey("address");
const QLatin1String portKey("port");

constexpr int defaultPort = 80;

// More than any plant has. A damaged file must not keep the window from opening.
constexpr int maximumDevices = 10000;

// The numbers of the entries that exist, ascending, out of the first `count` of the open array. A
// damaged size can be two billion: trying each number would take hours.
QList<int> existingEntries(const QSettings &settings, int count)
{
    QList<int> indexes;
    const QStringList groups = settings.childGroups();
    for (const QString &group : groups) {
        const int number = group.toInt();
        // "01" is not the group that setArrayIndex() opens.
        if (number >= 1 && number <= count && group == QString::number(number)) {
            indexes.append(number - 1);
        }
    }
    std::sort(indexes.begin(), indexes.end());
    return indexes.mid(0, maximumDevices);
}

} // namespace

QList<ManualDevice> ManualDevices::read(QSettings &settings)
{
    QList<ManualDevice> devices;
    const int count = settings.beginReadArray(devicesKey);
    const QList<int> indexes = existingEntries(settings, count);
    for (const int index : indexes) {
        settings.setArrayIndex(index);
        const QString address = settings.value(addressKey, QString()).toString();
        const int port = settings.value(portKey, defaultPort).toInt();
        if (!address.isEmpty()) {
            devices.append({address, port});
        }
    }
    settings.endArray();
    return devices;
}

bool ManualDevices::write(QSettings &settings, const QList<ManualDevice> &devices)
{
    settings.beginWriteArray(devicesKey);
    for (int i = 0; i < devices.size(); ++i) {
        settings.setArrayIndex(i);
        settings.setValue(addressKey, devices.at(i).address);
        settings.setValue(portKey, devices.at(i).port);
    }
    settings.endArray();
    // A QSettings object never clears its error. A second one on the same file reports this write.
    QSettings attempt(settings.organizationName(), settings.applicationName());
    attempt.sync();
    return attempt.status() == QSettings::NoError;
}
