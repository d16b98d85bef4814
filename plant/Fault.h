#pragma once

#include "HttpServer.h"
#include "Json.h"

#include <QByteArray>

#include <optional>

// What a node does wrong for a path. A fault is a plain value: make one with the functions below,
// narrow it with onMethod() and times(), and hand it to SimulatedNode::setFault().
struct Fault {
    // How the normal answer changes, unless another one takes its place.
    enum class Kind { None, Hang, UntilActivated };

    // The right answer, milliseconds late.
    static Fault delay(int milliseconds)
    {
        return {Kind::None, {}, milliseconds};
    }

    // That HTTP status. Without a body of its own a status of 400 and above carries the NMOS error
    // object, any other none. The request has no effect: with a status of 400 and above on a staged
    // endpoint this is a node that refuses an activation.
    static Fault status(int code, const QByteArray &body = {},
                        const QByteArray &contentType = "application/json")
    {
        const QString message = QStringLiteral("fault switched on: %1").arg(code);
        const bool isError = code >= 400 && body.isEmpty();
        const QByteArray sent = isError ? toJson(nmosError(code, message)) : body;
        return {Kind::None, HttpAnswer{code, sent, contentType}};
    }

    // No answer until the fault is cleared, then the right one; none at all when the node stops.
    static Fault hang()
    {
        return {Kind::Hang};
    }

    // A TCP reset in place of an answer.
    static Fault reset()
    {
        return {Kind::None, HttpAnswer{200, {}, {}, {}, HttpAnswer::Wire::Reset}};
    }

    // The connection is closed in good order in place of an answer.
    static Fault drop()
    {
        return {Kind::None, HttpAnswer{200, {}, {}, {}, HttpAnswer::Wire::Drop}};
    }

    // Status 200 with this body, whatever it is.
    static Fault body(const QByteArray &body)
    {
        return {Kind::None, HttpAnswer{200, body}};
    }

    // A 3xx status with an empty body and a Location header.
    static Fault redirect(const QByteArray &location, int code = 302)
    {
        return {Kind::None, HttpAnswer{code, {}, {}, {{"Location", location}}}};
    }

    // Status 200 and that many bytes of white space; 0: without a Content-Length, until the peer
    // closes.
    static Fault flood(qint64 bytes)
    {
        return {Kind::None,
                HttpAnswer{200, {}, "application/json", {}, HttpAnswer::Wire::Flood, bytes}};
    }

    // 404 for what belongs to a sender until it has been activated through its staged endpoint,
    // counted from when the fault was set. For the manifest of a sender that has none before.
    static Fault untilActivated()
    {
        return {Kind::UntilActivated, status(404).answer};
    }

    // The same fault with a Content-Encoding; for body(), which is sent as it is.
    Fault encoded(const QByteArray &contentEncoding) const
    {
        Fault fault = *this;
        fault.answer->headers.append({"Content-Encoding", contentEncoding});
        return fault;
    }

    // The same fault for one HTTP method only.
    Fault onMethod(const QByteArray &newMethod) const
    {
        Fault fault = *this;
        fault.method = newMethod;
        return fault;
    }

    // The same fault for the first requests that it meets only; the others are answered well.
    Fault times(int requests) const
    {
        Fault fault = *this;
        fault.remaining = requests;
        return fault;
    }

    Kind kind = Kind::None;
    std::optional<HttpAnswer> answer = {}; // in place of the right one
    int milliseconds = 0; // of a delay
    QByteArray method = {}; // empty: any
    int remaining = -1; // requests still to be met; negative: all
};
