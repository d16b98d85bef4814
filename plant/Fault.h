#pragma once

#include <QByteArray>

// What a node does wrong for a path. A fault is a plain value: make one with the functions below,
// narrow it with onMethod(), times() and after(), and hand it to SimulatedNode::setFault().
struct Fault {
    enum class Kind {
        Delay,
        Status,
        Hang,
        Reset,
        Drop,
        Truncate,
        Body,
        Redirect,
        Drip,
        Flood,
        UntilActivated,
    };

    // The right answer, milliseconds late.
    static Fault delay(int milliseconds);

    // That HTTP status. Without a body of its own a status of 400 and above carries the NMOS error
    // object, any other none. The request has no effect: with a status of 400 and above on a staged
    // endpoint this is a node that refuses an activation.
    static Fault status(int code, const QByteArray &body = {},
                        const QByteArray &contentType = "application/json");

    // No answer until the fault is cleared, then the right one; none at all when the node stops.
    static Fault hang();

    // A TCP reset in place of an answer.
    static Fault reset();

    // The connection is closed in good order in place of an answer.
    static Fault drop();

    // The right answer's header with its Content-Length, half of its body, and the end of the
    // connection.
    static Fault truncate();

    // Status 200 with this body, whatever it is.
    static Fault body(const QByteArray &body, const QByteArray &contentType = "application/json");

    // A 3xx status with an empty body and a Location header.
    static Fault redirect(const QByteArray &location, int code = 302);

    // The right answer, the body byte by byte with that pause before each.
    static Fault drip(int millisecondsPerByte);

    // Status 200 and that many bytes of white space; 0: until the peer closes.
    static Fault flood(qint64 bytes);

    // 404 for what belongs to a sender until it has been activated through its staged endpoint,
    // counted from when the fault was set. For the manifest of a sender that has none before.
    static Fault untilActivated();

    // The same fault with a Content-Encoding; for body(), which is sent as it is.
    Fault encoded(const QByteArray &contentEncoding) const;

    // The same fault for one HTTP method only.
    Fault onMethod(const QByteArray &method) const;

    // The same fault for the first requests that it meets only; the others are answered well.
    Fault times(int requests) const;

    // The same fault, milliseconds after the request came in.
    Fault after(int milliseconds) const;

    Kind kind = Kind::Delay;
    QByteArray method = {}; // empty: any
    int remaining = -1; // requests still to be met; negative: all
    int delayMilliseconds = 0;
    int code = 200;
    QByteArray content = {};
    QByteArray contentType = {};
    QByteArray encoding = {}; // empty: none
    QByteArray location = {};
    int dripMilliseconds = 0;
    qint64 floodBytes = 0;
};
