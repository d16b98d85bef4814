#include "RecordLookup.h"

#include <avahi-common/domain.h>

namespace QMdnsEngine {

namespace {

bool isWellFormed(const QByteArray &name)
{
    return name.size() > 1 && name.endsWith('.') && !name.contains('\0')
        && name.size() < AVAHI_DOMAIN_NAME_MAX && avahi_is_valid_domain_name(name.constData());
}

} // namespace

RecordLookup::RecordLookup(std::shared_ptr<ServerPrivate> onServer, const Question &question,
                           Handler eventHandler)
    : server(std::move(onServer))
    , handler(std::move(eventHandler))
{
    if (!server || !server->avahi || !isWellFormed(question.name)) {
        return;
    }
    AvahiKey *const key =
        avahi_key_new(question.name.constData(), AVAHI_DNS_CLASS_IN, question.type);
    if (!key) {
        return;
    }
    records =
        avahi_s_record_browser_new(server->avahi, question.link.first, question.link.second, key,
                                   AVAHI_LOOKUP_USE_MULTICAST, &RecordLookup::onEvent, this);
    avahi_key_unref(key);
    if (records) {
        server->lookups.insert(this);
    }
}

RecordLookup::~RecordLookup()
{
    stop();
}

void RecordLookup::stop()
{
    if (records) {
        avahi_s_record_browser_free(records);
        records = nullptr;
        server->lookups.remove(this);
    }
}

void RecordLookup::onEvent(AvahiSRecordBrowser *, AvahiIfIndex interface, AvahiProtocol protocol,
                           AvahiBrowserEvent event, AvahiRecord *record, AvahiLookupResultFlags,
                           void *userdata)
{
    auto *const self = static_cast<RecordLookup *>(userdata);
    switch (event) {
    case AVAHI_BROWSER_NEW:
        self->handler(Event::Found, Link(interface, protocol), record);
        break;
    case AVAHI_BROWSER_REMOVE:
        self->handler(Event::Lost, Link(interface, protocol), record);
        break;
    case AVAHI_BROWSER_CACHE_EXHAUSTED:
    case AVAHI_BROWSER_FAILURE:
        self->handler(Event::CacheRead, Link(), nullptr);
        break;
    case AVAHI_BROWSER_ALL_FOR_NOW:
        break;
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
