#pragma once

#include "ServerPrivate.h"

#include <avahi-core/core.h>
#include <avahi-core/lookup.h>

#include <QByteArray>
#include <QMap>

#include <functional>
#include <memory>

namespace QMdnsEngine {

// What is asked for on which link.
struct Question {
    QByteArray name; // with the trailing dot
    quint16 type = 0;
    Link link = everyLink;
};

// A continuous query for the records of one name and type. It ends with its server, at the latest.
class RecordLookup final {
    Q_DISABLE_COPY_MOVE(RecordLookup)

public:
    enum class Event {
        Found, // a record appeared on a link
        Lost, // it expired, or its owner said goodbye
        CacheRead, // once: all that was known at the start has been found
    };
    // Called by the event loop while Avahi works: it may start lookups, but not end any, and must
    // not run code that could destroy a server. The record is null for CacheRead.
    using Handler = std::function<void(Event, Link, AvahiRecord *)>;

    // A name that is malformed, or a server that is null or closed, gives a lookup without events.
    RecordLookup(std::shared_ptr<ServerPrivate> server, const Question &question, Handler handler);
    ~RecordLookup();

    // Has no more events.
    void stop();

private:
    static void onEvent(AvahiSRecordBrowser *browser, AvahiIfIndex interface,
                        AvahiProtocol protocol, AvahiBrowserEvent event, AvahiRecord *record,
                        AvahiLookupResultFlags flags, void *userdata);

    std::shared_ptr<ServerPrivate> server;
    Handler handler;
    AvahiSRecordBrowser *records = nullptr;
};

// Adds the trailing dot to a domain name of Avahi's; escapes only dots and backslashes. Empty when
// malformed.
QByteArray publicName(const char *name);

// The name as it stands in a packet (RFC 1035, section 3.1), uncompressed. Empty when malformed.
QByteArray wireName(const QByteArray &name);

// The attributes that the strings of a TXT record stand for (RFC 6763, section 6.4); a bare key has
// a null value.
QMap<QByteArray, QByteArray> attributesOf(const AvahiStringList *strings);

} // namespace QMdnsEngine
