#include "FeedAddress.h"

QUrl releaseFeedAddress()
{
    return QUrl::fromEncoded(VXUTIL_RELEASE_FEED, QUrl::StrictMode);
}
