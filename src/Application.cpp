#include "Application.h"

#include "Identity.h"
#include "widgets/PressGuard.h"

#include <QApplication>
#include <QFile>
#include <QFont>
#include <QIcon>
#if QT_CONFIG(opengl)
#include <QOpenGLContext>
#endif

namespace Application {

void scaleWithScreens()
{
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
    QCoreApplication::setAttribute(Qt::AA_EnableHighDpiScaling);
    QCoreApplication::setAttribute(Qt::AA_UseHighDpiPixmaps);
#endif
    QGuiApplication::setHighDpiScaleFactorRoundingPolicy(
        Qt::HighDpiScaleFactorRoundingPolicy::PassThrough);
}

void goWithoutOpenGl()
{
#if QT_CONFIG(opengl)
    const char integration[] = "QT_XCB_GL_INTEGRATION";
    if (QGuiApplication::platformName() != QLatin1String("xcb")
        || qEnvironmentVariableIsSet(integration)) {
        return;
    }
    // Qt reads the variable when it is first asked for OpenGL, and never again. The programs that
    // this one starts, such as a web browser, must not inherit it.
    qputenv(integration, "none");
    QOpenGLContext::supportsThreadedOpenGL();
    qunsetenv(integration);
#endif
}

void setIdentity()
{
    QCoreApplication::setOrganizationName(Identity::organisation());
    QCoreApplication::setOrganizationDomain(Identity::webDomain());
    QCoreApplication::setApplicationName(Identity::application());
}

void setAppearance()
{
    QIcon icon;
    for (const int size : {128, 256, 512, 1024}) {
        const QString path = QStringLiteral(":/img/NodePatch_Icon_%1x%1.png").arg(size);
        if (QFile::exists(path)) {
            icon.addFile(path, {size, size}, QIcon::Normal, QIcon::Off);
        }
    }
    QApplication::setWindowIcon(icon);
    QGuiApplication::setDesktopFileName(Identity::desktopId());
    QApplication::setStyle(QStringLiteral("Fusion"));
#ifdef Q_OS_WIN
    // Qt 5 takes the font of Windows 2000 for everything but messages and menus.
    QApplication::setFont(QApplication::font("QMessageBox"));
#endif

    QFile sheet(QStringLiteral(":/src/styles/DarkBlue.qss"));
    if (sheet.open(QIODevice::ReadOnly | QIODevice::Text)) {
        qApp->setStyleSheet(QString::fromUtf8(sheet.readAll()));
    }
}

void endWithLastWindow()
{
    QObject::connect(qApp, &QGuiApplication::lastWindowClosed, qApp, &QCoreApplication::quit,
                     Qt::DirectConnection);
}

void swallowStrayPresses()
{
    new PressGuard(qApp);
}

} // namespace Application
