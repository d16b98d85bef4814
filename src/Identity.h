#pragma once

#include <QString>

// Who made the program and what it is called. Everything that needs one of these names or numbers
// takes it from here; the build reads the version from this file, too.
namespace Identity {

inline constexpr int versionMajor = 8;
inline constexpr int versionMinor = 0;
inline constexpr int versionBuild = 180;

inline QString organisation()
{
    return QStringLiteral("Velmora");
}

inline QString application()
{
    return QStringLiteral("VelmoraNodePatch");
}

// A name under the reserved "example" domain: it can never lead to somebody's site.
inline QString webDomain()
{
    return QStringLiteral("velmora.example");
}

// The reverse-DNS name under which desktops know the program: its desktop entry, icon and metainfo.
inline QString desktopId()
{
    return QStringLiteral("example.velmora.NodePatch");
}

} // namespace Identity
