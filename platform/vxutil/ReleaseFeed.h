#pragma once

#include <QByteArray>
#include <QString>
#include <QUrl>

#include <array>
#include <chrono>
#include <cstdint>

// Compares number by number. Not QVersionNumber: compiled by gcc 12 with optimisation, one that a
// function returned came out empty.
using Version = std::array<int, 4>;

// The newest release of one application, as the feed names it.
struct Release {
    QByteArray version; // digits and dots
    QByteArray download; // encoded http or https address
    QByteArray notes; // the same, or empty
};

// Fetches the feed and looks the application up in it. Returns one of the values of VxUtil.h, and
// fills the release only with VXUTIL_NEWER. Returns within the limit, whatever the server does: the
// limit covers the exchange as a whole, not the silence between two bytes. Only the look-up of the
// system's proxy, which counts towards the limit, may exceed it.
int32_t askReleaseFeed(const QUrl &feed, const QString &application, const Version &installed,
                       std::chrono::milliseconds limit, Release *release);

// Evaluates the feed's text. Results as for askReleaseFeed().
int32_t readReleaseFeed(const QByteArray &body, const QString &application,
                        const Version &installed, Release *release);
