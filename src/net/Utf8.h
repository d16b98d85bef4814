#pragma once

#include <QByteArray>
#include <QString>

// The whole of a UTF-8 text. In Qt 5, QString::fromUtf8(QByteArray) stops at a NUL byte.
inline QString utf8Text(const QByteArray &text)
{
    return QString::fromUtf8(text.constData(), text.size());
}
