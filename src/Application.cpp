#include "Application.h"

#include "Identity.h"

#include <QApplication>
#include <QFile>
#include <QIcon>
#include <QOpenGLContext>

namespace Application {

void goWithoutOpenGl()
{
#if QT_CONFIG(opengl)
    const char integration[] = "QT_XCB_GL_INTEGRATION";
    if (QGuiApplication::platformName() != QLatin1String("xcb")
        || qEnvironmentVariableIsSet(integration)) {
        return;
    }
    // The toolkit reads the variable when it is first asked for OpenGL, and never again. It must
    // not pass on to the programs that this one starts, such as a web browser.
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

} // namespace Application
