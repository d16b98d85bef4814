#include "Application.h"
#include "MainWindow.h"
#include "net/Descriptors.h"

#include <QApplication>

int main(int argc, char *argv[])
{
    // A plant has more nodes than the usual soft limit has descriptors.
    Descriptors::raiseLimit();
    const auto application = Application::create(argc, argv);
    Application::goWithoutOpenGl();
    Application::setIdentity();
    Application::setAppearance();
    Application::endWithLastWindow();
    Application::swallowStrayPresses();
    MainWindow window;
    window.show();
    return QApplication::exec();
}
