#pragma once

// What makes the application object this program's, in the order in which main() needs it. The demo
// tour and the tests use it, too, so that they show and store what the program does.
namespace Application {

// Makes all sizes follow the resolution that the desktop asks for (Xft.dpi under X11, the display
// settings of Windows), without rounding. Must come before the application object.
void scaleWithScreens();

// Keeps Qt from loading the OpenGL driver under X11, which is a third of the time to the first
// window. An environment that asks for a driver gets it. Must come before the first window.
void goWithoutOpenGl();

// Organisation, domain and name: where the settings live.
void setIdentity();

// Window icon, style, font and style sheet. What is missing from the resources is left out
// silently.
void setAppearance();

// Makes the event loop end as soon as the last window closes. By itself Qt only posts an event to
// that end, and takes it back when a nested loop begins before it is delivered: a request sent at
// that moment would leave the program running without a window.
void endWithLastWindow();

} // namespace Application
