#pragma once

#include <memory>

class QApplication;

// Sets up QApplication. main() calls these in this order; tour and tests use some of them.
namespace Application {

// Makes the application object, as QApplication's constructor does. All sizes follow the resolution
// that the desktop asks for (Xft.dpi under X11, the display settings of Windows). A scale that is
// nearly a whole or a quarter is taken for that: an X server that knows its screen's size in whole
// millimetres only says 96.07 dots per inch, and a scale of 1.0008 makes pictures soft. Both
// arguments must outlive the object.
std::unique_ptr<QApplication> create(int &argc, char **argv);

// Keeps Qt from loading the OpenGL driver under X11, which is a third of the time to the first
// window. An environment that asks for a driver gets it. Must come before the first window.
void goWithoutOpenGl();

// Organisation, domain and name: where the settings live.
void setIdentity();

// Window icon, style, font and style sheet. What is missing from the resources is left out
// silently.
void setAppearance();

// Makes the event loop end as soon as the last window closes. By default Qt posts a quit event and
// drops it when a nested loop starts first; a request sent then would keep the program running
// without a window.
void endWithLastWindow();

} // namespace Application
