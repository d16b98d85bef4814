#include "VxUtil.h"

#include "FeedAddress.h"
#include "ReleaseFeed.h"

#include <QCoreApplication>

namespace {

// Start-up waits, before any window is shown.
constexpr std::chrono::seconds limit{3};

void put(const QByteArray &text, const char **output)
{
    if (output != nullptr) {
        *output = text.isEmpty() ? nullptr : text.constData();
    }
}

} // namespace

int32_t vxOSGetAppVersion(const char *applicationKey, int32_t major, int32_t minor, int32_t third,
                          const char **newestVersion, const char **downloadUrl,
                          const char **notesUrl)
{
    if (applicationKey == nullptr || QCoreApplication::instance() == nullptr) {
        return VXUTIL_BAD_CALL;
    }
    const QUrl feed = releaseFeedAddress();
    if (feed.isEmpty()) {
        return VXUTIL_NOT_NEWER;
    }
    const Version installed = {major, minor, third, 0};
    static Release release; // what the returned pointers point into
    release = Release();
    const int32_t result =
        askReleaseFeed(feed, QString::fromUtf8(applicationKey), installed, limit, &release);
    if (result == VXUTIL_NEWER) {
        put(release.version, newestVersion);
        put(release.download, downloadUrl);
        put(release.notes, notesUrl);
    }
    return result;
}
