// The About panel and the weekly look for a newer version.

#include "MainWindow.h"

#include "Identity.h"
#include "widgets/AboutPanel.h"
#include "widgets/MessageBox.h"

#include <VxUtil.h>

#include <QDateTime>
#include <QDesktopServices>
#include <QFrame>
#include <QPushButton>
#include <QSettings>
#include <QTimer>
#include <QUrl>

using namespace std::chrono_literals;

namespace {

constexpr std::chrono::milliseconds aboutTime = 2500ms;
constexpr qulonglong updateIntervalDays = 7;
constexpr qulonglong secondsPerDay = 86400;

// A newer version that the update library knows of.
struct Update {
    QString version;
    QUrl download;
};

// Whether a week has passed since the library was last asked. Notes today in that case, and at the
// very first start, which asks nobody.
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
    // On disk before the library is asked: one that takes the program down does so once a week
    // only.
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
    // Copies: the library only lends its texts.
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
    QMessageBox box(QMessageBox::Information, Identity::application(),
                    tr("A new version is available.\nVersion: %1 \nWould you like to download now?")
                        .arg(update->version),
                    QMessageBox::NoButton, this);
    makeTextPlain(&box);
    const QPushButton *download =
        box.addButton(QStringLiteral("Download"), QMessageBox::AcceptRole);
    box.addButton(QStringLiteral("Later"), QMessageBox::RejectRole);
    box.exec();
    if (box.clickedButton() == download) {
        QDesktopServices::openUrl(update->download);
    }
}

void MainWindow::createAboutPanel()
{
    aboutPanel = newAboutPanel(this);
    showAbout();
}

void MainWindow::showAbout()
{
    if (aboutPanel) {
        aboutPanel->show();
        aboutPanel->raise();
        QTimer::singleShot(aboutTime, this, &MainWindow::hideAbout);
    }
}

void MainWindow::hideAbout()
{
    if (aboutPanel) {
        aboutPanel->hide();
    }
}

void MainWindow::showEvent(QShowEvent *event)
{
    QMainWindow::showEvent(event);
    // The panel has been on the screen since before the window was. Window managers put the window,
    // which comes later, above it. Its turn is when the window is mapped.
    QTimer::singleShot(0ms, this, [this] {
        if (aboutPanel && aboutPanel->isVisible()) {
            aboutPanel->raise();
        }
    });
}
