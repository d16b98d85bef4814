#pragma once

#include <QUrl>

// Where the release feed is; empty when the library was built without one. Alone in its source
// file, so that a test can link the rest of the library against a feed of its own.
QUrl releaseFeedAddress();
