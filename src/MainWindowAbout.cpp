// The About panel and the weekly look for a newer version.

#include "MainWindow.h"

#include "Identity.h"

#include <VxUtil.h>

#include <QDateTime>
#include <QDesktopServices>
#include <QFrame>
#include <QLabel>
#include <QPushButton>
#include <QSettings>
#include <QTimer>
#include <QUrl>
#include <QVBoxLayout>

namespace {

constexpr int aboutTime = 2500; // milliseconds
constexpr qulonglong updateInterval = 7; // days
constexpr qulonglong secondsPerDay = 86400;

} // namespace

void MainWindow::checkForUpdate()
{
    const QString dayKey = QStringLiteral("LastUpdateTime");
    QSettings store(Identity::organisation(), Identity::application());
    const QByteArray applicationKey = Identity::application().toLower().toUtf8();
    const qulonglong today =
        static_cast<qulonglong>(QDateTime::currentSecsSinceEpoch()) / secondsPerDay;
    if (!store.contains(dayKey)) {
        store.setValue(dayKey, today);
        return;
    }
    if (today < store.value(dayKey).toULongLong() + updateInterval) {
        return;
    }
    // On disk before the query: a library that takes the program down does so once a week only.
    store.setValue(dayKey, today);
    store.sync();

    const char *version = nullptr;
    const char *address = nullptr;
    const char *notes = nullptr;
    const int32_t result = vxOSGetAppVersion(applicationKey.constData(), Identity::versionMajor,
                                             Identity::versionMinor, Identity::versionBuild,
                                             &version, &address, &notes);
    if (result != VXUTIL_NEWER) {
        return;
    }
    QMessageBox box(QMessageBox::Information, Identity::application(),
                    tr("A new version is available.\nVersion: %1 \nWould you like to download now?")
                        .arg(QString::fromUtf8(version)),
                    QMessageBox::NoButton, this);
    box.setTextFormat(Qt::PlainText);
    // The library's texts are only lent, and the box runs an event loop.
    const QUrl download(QString::fromUtf8(address), QUrl::TolerantMode);
    box.addButton(QStringLiteral("Download"), QMessageBox::AcceptRole);
    box.addButton(QStringLiteral("Later"), QMessageBox::RejectRole);
    if (box.exec() == 0) {
        QDesktopServices::openUrl(download);
    }
}

void MainWindow::createAboutPanel()
{
    aboutPanel = new QFrame(this, Qt::SplashScreen | Qt::FramelessWindowHint);
    aboutPanel->setObjectName(QStringLiteral("aboutPanel"));
    aboutPanel->setFixedSize(300, 300);

    auto *name = new QLabel(Identity::application(), aboutPanel);
    auto *version = new QLabel(QStringLiteral("v%1.%2.%3")
                                   .arg(Identity::versionMajor)
                                   .arg(Identity::versionMinor)
                                   .arg(Identity::versionBuild),
                               aboutPanel);
    auto *web = new QLabel(Identity::webDomain(), aboutPanel);
    auto *icon = new QLabel(aboutPanel);
    icon->setPixmap(QPixmap(QStringLiteral(":/img/NodePatch_Icon_128x128.png")));

    auto *layout = new QVBoxLayout(aboutPanel);
    layout->setContentsMargins(16, 16, 16, 16);
    layout->setSpacing(12);
    layout->setAlignment(Qt::AlignBottom | Qt::AlignHCenter);
    layout->addWidget(icon);
    layout->addStretch();
    layout->addWidget(name);
    layout->addWidget(version);
    layout->addWidget(web);

    aboutPanel->show();
    QTimer::singleShot(aboutTime, this, &MainWindow::hideAbout);
}

void MainWindow::showAbout()
{
    if (aboutPanel) {
        aboutPanel->show();
        QTimer::singleShot(aboutTime, this, &MainWindow::hideAbout);
    }
}

void MainWindow::hideAbout()
{
    if (aboutPanel) {
        aboutPanel->hide();
    }
}
