// The release feed. The program shows what it names, and opens it in the web browser.

#include "Require.h"

#include "FeedAddress.h"
#include "ReleaseFeed.h"
#include "VxUtil.h"
#include "WebAnswer.h"

namespace {

bool isWeb(const QByteArray &address)
{
    return address.startsWith("http://") || address.startsWith("https://");
}

} // namespace

// The library needs it to link; nothing here calls it.
QUrl releaseFeedAddress()
{
    return {};
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray body(reinterpret_cast<const char *>(data), static_cast<int>(size));
    for (const bool isClosed : {false, true}) {
        const auto answer = readWebAnswer(body, isClosed);
        require(!answer || answer->body.size() <= body.size());
    }
    Release release;
    const int32_t result =
        readReleaseFeed(body, QStringLiteral("velmoranodepatch"), {8, 0, 180, 0}, &release);
    if (result == VXUTIL_NEWER) {
        require(isWeb(release.download) && (release.notes.isEmpty() || isWeb(release.notes)));
        for (const char c : release.version) {
            require(c == '.' || (c >= '0' && c <= '9'));
        }
    } else {
        require(release.version.isEmpty() && release.download.isEmpty());
    }
    return 0;
}
