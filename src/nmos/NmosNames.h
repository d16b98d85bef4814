#pragma once

#include "net/NodeRequest.h"

#include <QString>
#include <QStringBuilder>

// The paths, member names and URNs of AMWA IS-04 v1.3 and IS-05 v1.1 that the client uses.

namespace Resource {
inline const QLatin1String devices("devices");
inline const QLatin1String flows("flows");
inline const QLatin1String receivers("receivers");
inline const QLatin1String senders("senders");
} // namespace Resource

namespace Key {
inline const QLatin1String activation("activation");
inline const QLatin1String data("data");
inline const QLatin1String flowId("flow_id");
inline const QLatin1String format("format");
inline const QLatin1String id("id");
inline const QLatin1String label("label");
inline const QLatin1String manifestHref("manifest_href");
inline const QLatin1String masterEnable("master_enable");
inline const QLatin1String mode("mode");
inline const QLatin1String requestedTime("requested_time");
inline const QLatin1String senderId("sender_id");
inline const QLatin1String transportFile("transport_file");
inline const QLatin1String type("type");
} // namespace Key

namespace Format {
inline const QLatin1String video("urn:x-nmos:format:video");
inline const QLatin1String audio("urn:x-nmos:format:audio");
inline const QLatin1String data("urn:x-nmos:format:data");
} // namespace Format

// The URL of a collection of the Node API of the node at host.
inline QString nodeApi(const QString &host, QLatin1String collection)
{
    return QLatin1String("http://") % host % QLatin1String("/x-nmos/node/v1.3/") % collection
        % QLatin1Char('/');
}

// The URL of the staged parameters of a sender or receiver in the Connection API of the node at
// host. The id is encoded as one path segment; empty when that is impossible (see pathSegment()).
inline QString stagedEndpoint(const QString &host, QLatin1String collection, const QString &id)
{
    const std::optional<QString> segment = pathSegment(id);
    if (!segment) {
        return {};
    }
    return QLatin1String("http://") % host % QLatin1String("/x-nmos/connection/v1.1/single/")
        % collection % QLatin1Char('/') % *segment % QLatin1String("/staged");
}

// A request is successful when its status is 2xx.
inline bool isSuccess(int httpStatus)
{
    return httpStatus / 100 == 2;
}
