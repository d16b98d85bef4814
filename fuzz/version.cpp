// Choosing a version from the "api_ver" attribute of an announcement, for the path of a request.

#include "Require.h"

#include "discovery/NMOSMdnsBrowser.h"

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size > 255) {
        return 0; // No string of a TXT record is longer.
    }
    const QString text =
        QString::fromUtf8(reinterpret_cast<const char *>(data), static_cast<int>(size));
    const QString version = NMOSMdnsBrowser::selectApiVersion(text);
    require(!version.isEmpty() && !version.contains(QLatin1Char(',')));
    require(version == version.trimmed());
    require(version == QLatin1String("v1.3") || text.contains(version));
    // Choosing from the result gives the same result.
    require(NMOSMdnsBrowser::selectApiVersion(version) == version);
    return 0;
}
