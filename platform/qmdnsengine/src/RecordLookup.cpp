#include "RecordLookup.h"

#include <avahi-common/domain.h>
#include <avahi-core/rr.h>

#include <algorithm>

namespace QMdnsEngine {

namespace {

constexpr quint32 longestLife = 4500; // seconds: what RFC 6762, section 10, gives most records

bool isWellFormed(const QByteArray &name)
{
    return name.size() > 1 && name.endsWith('.') && !name.contains('\0')
        && name.size() < AVAHI_DOMAIN_NAME_MAX && avahi_is_valid_domain_name(name.constData());
}

} // namespace

RecordLookup::RecordLookup(std::shared_ptr<ServerPrivate> onServer, const Question &toAsk,
                           Handler eventHandler)
    : server(std::move(onServer))
    , question(toAsk)
    , handler(std::move(eventHandler))
{
    if (!server || !server->avahi || !isWellFormed(question.name)) {
        return;
    }
    server->lookups.insert(this);
    asked.start();
    if (question.type != AVAHI_DNS_TYPE_PTR && question.link != everyLink) {
        owner = {wireName(question.name).toLower(), question.type};
        server->unique.insert(owner, this);
        timer.setSingleShot(true);
        QObject::connect(&timer, &QTimer::timeout, &timer, [this] { onTimer(); });
    }
    begin();
}

RecordLookup::~RecordLookup()
{
    stop();
}

void RecordLookup::stop()
{
    if (server && server->lookups.remove(this)) {
        server->unique.remove(owner, this);
        timer.stop();
        end();
    }
}

void RecordLookup::begin()
{
    isReading = !owner.first.isEmpty();
    AvahiKey *const key =
        avahi_key_new(question.name.constData(), AVAHI_DNS_CLASS_IN, question.type);
    if (key) {
        records = avahi_s_record_browser_new(server->avahi, question.link.first,
                                             question.link.second, key, AVAHI_LOOKUP_USE_MULTICAST,
                                             &RecordLookup::onEvent, this);
        avahi_key_unref(key);
    }
}

void RecordLookup::end()
{
    newest.clear();
    if (records) {
        avahi_s_record_browser_free(records);
        records = nullptr;
    }
}

void RecordLookup::rest()
{
    end();
    state = State::Resting;
    if (isAnswered()) {
        // Counted from the last question: what is heard meanwhile may come from another link.
        timer.start(static_cast<int>(qMax(qint64{0}, life() * 85 / 100 - asked.elapsed())));
    }
}

qint64 RecordLookup::life() const
{
    quint32 seconds = longestLife;
    for (const Known &each : known) {
        seconds = qMin(seconds, each.record->ttl);
    }
    return qint64{seconds} * 1000;
}

void RecordLookup::readAgain()
{
    if (state != State::Asking) {
        end();
        state = State::Asking;
        for (Known &each : known) {
            each.isInCache = false;
        }
        begin();
    }
}

// Avahi sends a question 100 ms after it was posed: one that the cache answers is never sent.
void RecordLookup::onTimer()
{
    if (state == State::Asking) {
        if (isAnswered()) {
            rest();
        }
    } else if (state == State::Resting) {
        // For as long as the records may still live, and until an answer could be here.
        state = State::Renewing;
        asked.start();
        timer.start(qMax(3000, static_cast<int>(life() / 6)));
        begin();
    } else {
        readAgain();
    }
}

void RecordLookup::take(Link link, AvahiRecord *record)
{
    for (Known &each : known) {
        if (each.link == link && avahi_record_equal_no_ttl(each.record.get(), record) != 0) {
            each = {link, {avahi_record_ref(record), avahi_record_unref}, true};
            return;
        }
    }
    newest.push_back({link, {avahi_record_ref(record), avahi_record_unref}, true});
    if (!isReading) {
        announce();
    }
}

// Avahi reads its cache from the newest record to the oldest; the newest is to be found last.
void RecordLookup::announce()
{
    for (; !newest.empty(); newest.pop_back()) {
        known.push_back(newest.back());
        handler(Event::Found, known.back().link, known.back().record.get());
    }
}

void RecordLookup::finishReading()
{
    isReading = false;
    announce();
    const std::vector<Known> before = known;
    for (const Known &each : before) {
        if (!each.isInCache && state == State::Asking) {
            forget(each.link, each.record.get());
        }
    }
    if (!isRead) {
        isRead = true;
        handler(Event::CacheRead, Link(), nullptr);
    }
}

void RecordLookup::forget(Link link, AvahiRecord *record)
{
    const auto isIt = [link, record](const Known &each) {
        return each.link == link && avahi_record_equal_no_ttl(each.record.get(), record) != 0;
    };
    known.erase(std::remove_if(known.begin(), known.end(), isIt), known.end());
    handler(Event::Lost, link, record);
}

void RecordLookup::onEvent(AvahiSRecordBrowser *, AvahiIfIndex interface, AvahiProtocol protocol,
                           AvahiBrowserEvent event, AvahiRecord *record, AvahiLookupResultFlags,
                           void *userdata)
{
    auto *const self = static_cast<RecordLookup *>(userdata);
    switch (event) {
    case AVAHI_BROWSER_NEW:
        self->take(Link(interface, protocol), record);
        break;
    case AVAHI_BROWSER_REMOVE:
        self->forget(Link(interface, protocol), record);
        break;
    case AVAHI_BROWSER_CACHE_EXHAUSTED:
    case AVAHI_BROWSER_FAILURE:
        self->finishReading();
        break;
    case AVAHI_BROWSER_ALL_FOR_NOW:
        break;
    }
    if (!self->owner.first.isEmpty() && self->state == State::Asking && self->isRead
        && self->isAnswered()) {
        self->timer.start(0);
    }
}

QByteArray publicName(const char *name)
{
    QByteArray result;
    char label[AVAHI_LABEL_MAX];
    while (*name) {
        if (!avahi_unescape_label(&name, label, sizeof label)) {
            return {};
        }
        result += QByteArray(label).replace('\\', "\\\\").replace('.', "\\.") + '.';
    }
    return result;
}

QByteArray wireName(const QByteArray &name)
{
    if (!isWellFormed(name)) {
        return {};
    }
    QByteArray wire;
    char label[AVAHI_LABEL_MAX];
    for (const char *rest = name.constData(); *rest;) {
        avahi_unescape_label(&rest, label, sizeof label);
        const QByteArray text(label);
        wire += static_cast<char>(text.size()) + text;
    }
    return wire + '\0';
}

// The list has the strings in reverse: of equal keys the first one sent stays.
QMap<QByteArray, QByteArray> attributesOf(const AvahiStringList *strings)
{
    QMap<QByteArray, QByteArray> attributes;
    for (; strings; strings = strings->next) {
        const QByteArray text(reinterpret_cast<const char *>(strings->text),
                              static_cast<int>(strings->size));
        const int equals = text.indexOf('=');
        const QByteArray key = equals < 0 ? text : text.left(equals);
        if (!key.isEmpty()) {
            attributes.insert(key, equals < 0 ? QByteArray() : text.mid(equals + 1));
        }
    }
    return attributes;
}

} // namespace QMdnsEngine
