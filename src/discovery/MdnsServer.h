#pragma once

// The server that browsers and resolvers ask through: QMdnsEngine's own where the layer on Avahi
// provides it, which asks on every interface. An installed QMdnsEngine asks on one only.
#ifdef NODEPATCH_EVERY_LINK
#include <EveryLinkServer.h>
using MdnsServer = EveryLinkServer;
#else
#include <qmdnsengine/server.h>
using MdnsServer = QMdnsEngine::Server;
#endif
