// The weekly check for a newer version.

#include "MainWindow.h"

#include "Identity.h"
#include "widgets/MessageBox.h"
#include "widgets/ModalDialog.h"

#include <VxUtil.h>

#include <QDateTime>
#include <QDesktopServices>
#include <QPushButton>
#include <QSettings>
#include <QUrl>

namespace {

constexpr qulonglong updateIntervalDays = 7;
constexpr qulonglong secondsPerDay = 86400;

// A newer version that the update library knows of.
struct Update {
    QString version;
    QUrl download;
};

// Whether a week has passed since the library was last asked. Stores today then, and also at the
// very first start, when the library is not asked.
bool isUpdateCheckDue(QSettings &store)
{
    const QString dayKey = QStringLiteral("LastUpdateTime");
    const auto today = static_cast<qulonglong>(QDateTime::currentSecsSinceEpoch()) / secondsPerDay;
    const bool asked = store.contains(dayKey);
    const qulonglong lastDay = store.value(dayKey).toULongLong();
    if (asked && (today < lastDay || today - lastDay < updateIntervalDays)) {
        return false;
    }
    store.setValue(dayKey, today);
    // On disk before the library is asked, so that a library that crashes the program does so once
    // a week at most.
    store.sync();
    return asked;
}

std::optional<Update> findUpdate()
{
    const QByteArray applicationKey = Identity::application().toLower().toUtf8();
    const char *version = nullptr;
    const char *address = nullptr;
    const char *notes = nullptr;
    const int32_t result = vxOSGetAppVersion(applicationKey.constData(), Identity::versionMajor,
                                             Identity::versionMinor, Identity::versionBuild,
                                             &version, &address, &notes);
    if (result != VXUTIL_NEWER) {
        return {};
    }
    // Copied: the texts belong to the library.
    return Update{QString::fromUtf8(version), QUrl(QString::fromUtf8(address), QUrl::TolerantMode)};
}

} // namespace

void MainWindow::checkForUpdate()
{
    QSettings store(Identity::organisation(), Identity::application());
    if (!isUpdateCheckDue(store)) {
        return;
    }
    const std::optional<Update> update = findUpdate();
    if (!update) {
        return;
    }
    const QString text =
        tr("A new version is available.\nVersion: %1 \nWould you like to download now?")
            .arg(shownNodeText(update->version));
    MessageBox box({QMessageBox::Information, Identity::application(), text}, QMessageBox::NoButton,
                   this);
    const QPushButton *download =
        box.addButton(QStringLiteral("Download"), QMessageBox::AcceptRole);
    box.addButton(QStringLiteral("Later"), QMessageBox::RejectRole);
    runModal(&box);
    if (box.clickedButton() == download) {
        QDesktopServices::openUrl(update->download);
    }
}
