#pragma once

// The file descriptors that the system lets this process have: each connection takes one, and Qt
// ends the process when it gets none for a wait of its own.
namespace Descriptors {

// Raises the soft limit to the hard one; programs that this one starts inherit it. Does nothing
// where the system has no such limit, or does not let it be raised.
void raiseLimit();

// How many the process may have open at once now, at most a million.
int limit();

} // namespace Descriptors
