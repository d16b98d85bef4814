// Turning the addresses that an operator types or a node names into URLs.

#include "Require.h"

#include "net/NodeRequest.h"

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QString text =
        QString::fromUtf8(reinterpret_cast<const char *>(data), static_cast<int>(size));
    const QString normalized = normalizeUrl(text);
    require(normalizeUrl(normalized) == normalized);
    const QUrl url = requestUrl(text);
    require(!url.isValid() || url.scheme() == QLatin1String("http")
            || url.scheme() == QLatin1String("https"));
    return 0;
}
