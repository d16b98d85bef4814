#pragma once

// What makes the application object this program's, in the order in which main() needs it. The demo
// tour and the tests use it, too, so that they show and store what the program does.
namespace Application {

// Before any window is made: keeps the toolkit from loading the OpenGL driver under X11, which is a
// third of the time to the first window. An environment that asks for one has it.
void goWithoutOpenGl();

// Organisation, domain and name: where the settings live.
void setIdentity();

// Window icon, style and style sheet. What is missing from the resources is left out without a
// word.
void setAppearance();

// Makes the event loop end as soon as the last window closes. By itself the toolkit only posts an
// event to that end, and takes it back when a nested loop begins before it is delivered: a request
// sent at that moment would leave the program running without a window.
void endWithLastWindow();

} // namespace Application
