// The program's main(), but it reports its first painting and ends.

#include "Application.h"
#include "FirstPaint.h"
#include "MainWindow.h"

#include <QApplication>

int main(int argc, char *argv[])
{
    QApplication app(argc, argv);
    const FirstPaint firstPaint;
    Application::goWithoutOpenGl();
    Application::setIdentity();
    Application::setAppearance();
    MainWindow window;
    window.show();
    return QApplication::exec();
}
