#include "Application.h"
#include "MainWindow.h"

#include <QApplication>

int main(int argc, char *argv[])
{
    Application::scaleWithScreens();
    QApplication app(argc, argv);
    Application::goWithoutOpenGl();
    Application::setIdentity();
    Application::setAppearance();
    Application::endWithLastWindow();
    MainWindow window;
    window.show();
    return QApplication::exec();
}
