#include "Application.h"

#include "Identity.h"
#include "widgets/PressGuard.h"

#include <QApplication>
#include <QFile>
#include <QFont>
#include <QIcon>
#include <QScreen>
#if QT_CONFIG(opengl)
#include <QOpenGLContext>
#endif

#include <algorithm>
#include <cmath>
#include <vector>

namespace {

void scaleWithScreens(bool on)
{
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
    QCoreApplication::setAttribute(Qt::AA_EnableHighDpiScaling, on);
    QCoreApplication::setAttribute(Qt::AA_UseHighDpiPixmaps);
#endif
    QGuiApplication::setHighDpiScaleFactorRoundingPolicy(
        Qt::HighDpiScaleFactorRoundingPolicy::PassThrough);
}

// The scale of the screens, which is one for all of them under X11, as it should be; 0 when it is.
qreal roundedScale()
{
    constexpr qreal tolerance = 0.05;
    const QScreen *primary = QGuiApplication::primaryScreen();
    const qreal scale = primary ? primary->devicePixelRatio() : 1;
    const qreal quarter = std::round(4 * scale) / 4;
    return scale != quarter && std::abs(scale - quarter) < tolerance ? quarter : 0;
}

} // namespace

namespace Application {

std::unique_ptr<QApplication> create(int &argc, char **argv)
{
    const char factors[] = "QT_SCREEN_SCALE_FACTORS";
    // QApplication takes its own options out of the arguments.
    const std::vector<char *> arguments(argv, argv + argc);
    scaleWithScreens(true);
    auto application = std::make_unique<QApplication>(argc, argv);
    const qreal scale = roundedScale();
    if (scale == 0 || qEnvironmentVariableIsSet(factors)
        || qEnvironmentVariableIsSet("QT_SCALE_FACTOR")) {
        return application;
    }
    // Qt has no rounding policy for quarters, and takes scales only while an application object is
    // made. It disregards factors of 1.
    const int screens = QGuiApplication::screens().size();
    application.reset();
    if (scale == 1) {
        scaleWithScreens(false);
    } else {
        qputenv(factors, QByteArray::number(scale).append(';').repeated(screens));
    }
    argc = static_cast<int>(arguments.size());
    std::copy(arguments.begin(), arguments.end(), argv);
    application = std::make_unique<QApplication>(argc, argv);
    qunsetenv(factors); // not for the programs that this one starts
    return application;
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
