#pragma once

#include <memory>

class QApplication;

// Sets up QApplication. main() calls all of these, in this order; the demo tour and the tests call
// some, so that they show and store what the program does.
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

// Makes a double click press once, on the window that it begins on (see PressGuard). It concerns
// the application and not the main window: lists, boxes and dialogs are windows of their own, and a
// box may come up before there is a main window.
void swallowStrayPresses();

} // namespace Application
