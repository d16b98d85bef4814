#include "Fault.h"

namespace {

Fault ofKind(Fault::Kind kind)
{
    Fault fault;
    fault.kind = kind;
    return fault;
}

} // namespace

Fault Fault::delay(int milliseconds)
{
    return ofKind(Kind::Delay).after(milliseconds);
}

Fault Fault::status(int code, const QByteArray &body, const QByteArray &contentType)
{
    Fault fault = ofKind(Kind::Status);
    fault.code = code;
    fault.content = body;
    fault.contentType = contentType;
    return fault;
}

Fault Fault::hang()
{
    return ofKind(Kind::Hang);
}

Fault Fault::reset()
{
    return ofKind(Kind::Reset);
}

Fault Fault::drop()
{
    return ofKind(Kind::Drop);
}

Fault Fault::truncate()
{
    return ofKind(Kind::Truncate);
}

Fault Fault::body(const QByteArray &body, const QByteArray &contentType)
{
    Fault fault = ofKind(Kind::Body);
    fault.content = body;
    fault.contentType = contentType;
    return fault;
}

Fault Fault::redirect(const QByteArray &location, int code)
{
    Fault fault = ofKind(Kind::Redirect);
    fault.code = code;
    fault.location = location;
    return fault;
}

Fault Fault::drip(int millisecondsPerByte)
{
    Fault fault = ofKind(Kind::Drip);
    fault.dripMilliseconds = millisecondsPerByte;
    return fault;
}

Fault Fault::flood(qint64 bytes)
{
    Fault fault = ofKind(Kind::Flood);
    fault.floodBytes = bytes;
    return fault;
}

Fault Fault::untilActivated()
{
    return ofKind(Kind::UntilActivated);
}

Fault Fault::encoded(const QByteArray &contentEncoding) const
{
    Fault fault = *this;
    fault.encoding = contentEncoding;
    return fault;
}

Fault Fault::onMethod(const QByteArray &newMethod) const
{
    Fault fault = *this;
    fault.method = newMethod;
    return fault;
}

Fault Fault::times(int requests) const
{
    Fault fault = *this;
    fault.remaining = requests;
    return fault;
}

Fault Fault::after(int milliseconds) const
{
    Fault fault = *this;
    fault.delayMilliseconds = milliseconds;
    return fault;
}
