#pragma once

#include "ServerPrivate.h"

#include <avahi-core/core.h>
#include <avahi-core/lookup.h>

#include <QByteArray>
#include <QElapsedTimer>
#include <QMap>

#include <functional>
#include <memory>
#include <vector>

namespace QMdnsEngine {

// What is asked for on which link.
struct Question {
    QByteArray name; // with the trailing dot
    quint16 type = 0;
    Link link = everyLink;
};

// A continuous query for the records of one name and type. It ends with its server, at the latest.
//
// On one link, for the records that belong to one host (all but PTR), it asks no longer than it
// must: Avahi would ask again and again for what is cached (RFC 6762, section 7.1). Once it has
// records it rests without a query of Avahi's. It reads them from the cache again when the network
// says something of them, and asks before they expire.
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
    RecordLookup(std::shared_ptr<ServerPrivate> onServer, const Question &toAsk,
                 Handler eventHandler);
    ~RecordLookup();

    // Has no more events.
    void stop();

    // Whether it has found a record that is not lost.
    bool isAnswered() const
    {
        return !known.empty();
    }

    // Asks no more until something is heard. Not for PTR records or for every link.
    void rest();

    // Reads the cache, unless it is asking.
    void readAgain();

private:
    enum class State { Asking, Resting, Renewing };

    struct Known {
        Link link;
        std::shared_ptr<AvahiRecord> record;
        bool isInCache;
    };

    void begin();
    void end();
    void onTimer();
    qint64 life() const; // of the record that expires first, in milliseconds
    void take(Link link, AvahiRecord *record);
    void announce();
    void forget(Link link, AvahiRecord *record);
    void finishReading();

    static void onEvent(AvahiSRecordBrowser *browser, AvahiIfIndex interface,
                        AvahiProtocol protocol, AvahiBrowserEvent event, AvahiRecord *record,
                        AvahiLookupResultFlags flags, void *userdata);

    std::shared_ptr<ServerPrivate> server;
    Question question;
    Handler handler;
    AvahiSRecordBrowser *records = nullptr;
    PacketGuard::Owner owner; // empty: never rests
    State state = State::Asking;
    bool isRead = false; // the cache, the first time
    bool isReading = false; // the cache, and may rest
    std::vector<Known> known;
    std::vector<Known> newest; // in the cache, not yet known
    QElapsedTimer asked; // for records to take the place of those that expire
    QTimer timer;
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
