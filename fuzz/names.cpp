// Reading names and attributes of the DNS-SD records that Avahi hands over. The input's first byte
// chooses the type of a record; the rest is its data.

#include "RecordLookup.h"
#include "Require.h"

#include <avahi-common/domain.h>
#include <avahi-core/rr.h>

#include <array>

namespace {

void readRecord(const AvahiRecord &record)
{
    using QMdnsEngine::publicName;
    switch (record.key->type) {
    case AVAHI_DNS_TYPE_PTR:
        require(publicName(record.data.ptr.name).size() < 4 * AVAHI_DOMAIN_NAME_MAX);
        break;
    case AVAHI_DNS_TYPE_SRV:
        require(publicName(record.data.srv.name).size() < 4 * AVAHI_DOMAIN_NAME_MAX);
        break;
    default:
        require(!QMdnsEngine::attributesOf(record.data.txt.string_list).contains(QByteArray()));
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    constexpr std::array<uint16_t, 3> types{AVAHI_DNS_TYPE_PTR, AVAHI_DNS_TYPE_SRV,
                                            AVAHI_DNS_TYPE_TXT};
    // Avahi's length fields have 16 bits. A record in a datagram is always shorter.
    if (size < 2 || size > 9000) {
        return 0;
    }
    AvahiRecord *const record =
        avahi_record_new_full("x.local", AVAHI_DNS_CLASS_IN, types.at(data[0] % types.size()), 120);
    if (avahi_rdata_parse(record, data + 1, size - 1) == 0) {
        readRecord(*record);
    }
    avahi_record_unref(record);
    return 0;
}
