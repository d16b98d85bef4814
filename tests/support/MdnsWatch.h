#pragma once

#include <qmdnsengine/browser.h>
#include <qmdnsengine/cache.h>
#include <qmdnsengine/server.h>
#include <qmdnsengine/service.h>

#include <QStringList>

#include <memory>

// A browser, with a server of its own unless it is given one, and what it said so far, as in
// "+|Cam|cam1.local.|80|key=value|bare key": "+" for a service that was added, "~" for one that was
// updated, "-" for one that was removed.
struct MdnsWatch {
    explicit MdnsWatch(const QByteArray &type = "_nmos-node._tcp.local.",
                       QMdnsEngine::Server *given = nullptr)
        : server(given ? nullptr : new QMdnsEngine::Server)
        , browser(
              std::make_unique<QMdnsEngine::Browser>(given ? given : server.get(), type, &cache))
    {
        using QMdnsEngine::Browser;
        note("+|", &Browser::serviceAdded);
        note("~|", &Browser::serviceUpdated);
        note("-|", &Browser::serviceRemoved);
    }

    std::unique_ptr<QMdnsEngine::Server> server;
    QMdnsEngine::Cache cache;
    QStringList events;
    std::unique_ptr<QMdnsEngine::Browser> browser;

private:
    template <typename Signal>
    void note(const char *event, Signal signal)
    {
        QObject::connect(browser.get(), signal, browser.get(),
                         [this, event](const QMdnsEngine::Service &service) {
                             events += QLatin1String(event) + described(service);
                         });
    }

    static QString described(const QMdnsEngine::Service &service)
    {
        QByteArrayList parts{service.name(), service.hostname(),
                             QByteArray::number(service.port())};
        const auto attributes = service.attributes();
        for (auto it = attributes.cbegin(); it != attributes.cend(); ++it) {
            const QByteArray value = it.value().toPercentEncoding(",");
            parts += it.value().isNull() ? it.key() : it.key() + '=' + value;
        }
        return QString::fromUtf8(parts.join('|'));
    }
};
