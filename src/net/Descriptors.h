#pragma once

// The limit of file descriptors. Each connection takes one; Qt aborts when it gets none for an
// event loop.
namespace Descriptors {

// Raises the soft limit to the hard one; programs that this one starts inherit it. Does nothing
// where the system has no such limit, or does not let it be raised.
void raiseLimit();

// How many the process may have open at once now, at most a million.
int limit();

} // namespace Descriptors
