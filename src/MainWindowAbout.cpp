// The About panel.

#include "MainWindow.h"

#include "widgets/AboutPanel.h"

#include <QFrame>
#include <QTimer>

using namespace std::chrono_literals;

namespace {

constexpr std::chrono::milliseconds aboutTime = 2500ms;

} // namespace

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
    // The panel was shown before the window, so window managers put the window above it. Raise it
    // once the window is mapped.
    QTimer::singleShot(0ms, this, [this] {
        if (aboutPanel && aboutPanel->isVisible()) {
            aboutPanel->raise();
        }
    });
}
