#include "Requests.h"

#include <QEventLoop>
#include <QJsonDocument>
#include <QNetworkReply>

#include <curl/curl.h>

void Recorder::watch(SimulatedNode &node)
{
    node.setRequestObserver([this, base = node.baseUrl()](const LoggedRequest &request) {
        const std::scoped_lock lock(mutex);
        requests.append({request.method.toLatin1(), QUrl(base + request.path), request.body});
    });
}

QList<Request> Recorder::take()
{
    const std::scoped_lock lock(mutex);
    return std::exchange(requests, {});
}

void BareManager::replay(const QList<Request> &requests, Answers answers)
{
    for (const Request &request : requests) {
        QNetworkRequest query(request.url);
        if (!request.body.isEmpty()) {
            query.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("application/json"));
        }
        const std::unique_ptr<QNetworkReply> reply(
            manager.sendCustomRequest(query, request.method, request.body));
        QEventLoop loop;
        QObject::connect(reply.get(), &QNetworkReply::finished, &loop, &QEventLoop::quit);
        loop.exec();
        const QByteArray body = reply->readAll();
        if (reply->error() != QNetworkReply::NoError
            || (answers == Answers::Parse && QJsonDocument::fromJson(body).isNull())) {
            qFatal("QNetworkAccessManager failed: %s", qPrintable(reply->errorString()));
        }
    }
}

struct CurlHandle::Private {
    static size_t append(const char *data, size_t size, size_t count, void *answer)
    {
        static_cast<QByteArray *>(answer)->append(data, static_cast<int>(size * count));
        return size * count;
    }

    CURL *handle = curl_easy_init();
    curl_slist *jsonHeader = curl_slist_append(nullptr, "Content-Type: application/json");
};

CurlHandle::CurlHandle()
    : d(std::make_unique<Private>())
{
    curl_easy_setopt(d->handle, CURLOPT_WRITEFUNCTION, &Private::append);
    curl_easy_setopt(d->handle, CURLOPT_FAILONERROR, 1L);
    curl_easy_setopt(d->handle, CURLOPT_MAXCONNECTS, 2000L);
}

CurlHandle::~CurlHandle()
{
    curl_slist_free_all(d->jsonHeader);
    curl_easy_cleanup(d->handle);
}

void CurlHandle::replay(const QList<Request> &requests)
{
    for (const Request &request : requests) {
        QByteArray answer;
        const bool hasBody = !request.body.isEmpty();
        curl_easy_setopt(d->handle, CURLOPT_WRITEDATA, &answer);
        curl_easy_setopt(d->handle, CURLOPT_URL, request.url.toEncoded().constData());
        curl_easy_setopt(d->handle, CURLOPT_HTTPGET, 1L);
        if (hasBody) {
            curl_easy_setopt(d->handle, CURLOPT_POSTFIELDSIZE,
                             static_cast<long>(request.body.size()));
            curl_easy_setopt(d->handle, CURLOPT_POSTFIELDS, request.body.constData());
        }
        curl_easy_setopt(d->handle, CURLOPT_HTTPHEADER, hasBody ? d->jsonHeader : nullptr);
        curl_easy_setopt(d->handle, CURLOPT_CUSTOMREQUEST, request.method.constData());
        const CURLcode code = curl_easy_perform(d->handle);
        if (code != CURLE_OK) {
            qFatal("libcurl failed: %s", curl_easy_strerror(code));
        }
    }
}
