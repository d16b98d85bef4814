#pragma once

// The server and the resolver of the program. The layer on Avahi asks on every interface and
// reports each address once. Another QMdnsEngine asks on one and repeats itself, so it is used with
// what platform/everylink adds.
#ifdef NODEPATCH_EVERY_LINK
#include <DistinctResolver.h>
#include <EveryLinkServer.h>
using MdnsServer = EveryLinkServer;
using MdnsResolver = DistinctResolver;
#else
#include <qmdnsengine/resolver.h>
#include <qmdnsengine/server.h>
using MdnsServer = QMdnsEngine::Server;
using MdnsResolver = QMdnsEngine::Resolver;
#endif
