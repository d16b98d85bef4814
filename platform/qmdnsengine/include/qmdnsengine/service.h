#pragma once

#include <QByteArray>
#include <QMap>

namespace QMdnsEngine {

// One service instance as DNS-SD (RFC 6763) describes it. A plain value; two are equal when every
// part is. Type, name and host name of a service that a Browser reports are UTF-8 without NUL
// bytes; attributes are bytes as they came from the network.
class Service {
public:
    // The service type with its domain and the trailing dot: "_nmos-node._tcp.local.".
    QByteArray type() const
    {
        return serviceType;
    }
    void setType(const QByteArray &type)
    {
        serviceType = type;
    }

    // The instance name, unescaped: it may hold spaces, dots and anything else.
    QByteArray name() const
    {
        return serviceName;
    }
    void setName(const QByteArray &name)
    {
        serviceName = name;
    }

    // The target host with the trailing dot: "cam1.local.".
    QByteArray hostname() const
    {
        return serviceHostname;
    }
    void setHostname(const QByteArray &hostname)
    {
        serviceHostname = hostname;
    }

    quint16 port() const
    {
        return servicePort;
    }
    void setPort(quint16 port)
    {
        servicePort = port;
    }

    // The attributes of the TXT record. Keys keep the case they were sent in; a bare key ("key")
    // has a null value, an empty one ("key=") an empty value that is not null.
    QMap<QByteArray, QByteArray> attributes() const
    {
        return serviceAttributes;
    }
    void setAttributes(const QMap<QByteArray, QByteArray> &attributes)
    {
        serviceAttributes = attributes;
    }
    // Sets one attribute; a value that the key had before is replaced.
    void addAttribute(const QByteArray &key, const QByteArray &value)
    {
        serviceAttributes.insert(key, value);
    }

    bool operator==(const Service &other) const
    {
        return serviceType == other.serviceType && serviceName == other.serviceName
            && serviceHostname == other.serviceHostname && servicePort == other.servicePort
            && serviceAttributes == other.serviceAttributes;
    }
    bool operator!=(const Service &other) const
    {
        return !(*this == other);
    }

private:
    QByteArray serviceType;
    QByteArray serviceName;
    QByteArray serviceHostname;
    quint16 servicePort = 0;
    QMap<QByteArray, QByteArray> serviceAttributes;
};

} // namespace QMdnsEngine
