#pragma once

#include <QByteArray>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>
#include <QLatin1String>

#include <initializer_list>

// A member of a JSON object written in the source, its name and text values plain ASCII literals.
struct JsonMember {
    JsonMember(const char *memberName, const QJsonValue &memberValue)
        : name(memberName)
        , value(memberValue)
    {
    }
    JsonMember(const char *memberName, const char *text)
        : name(memberName)
        , value(QLatin1String(text))
    {
    }

    QLatin1String name;
    QJsonValue value;
};

inline QJsonObject jsonObject(std::initializer_list<JsonMember> members)
{
    QJsonObject object;
    for (const JsonMember &member : members) {
        object.insert(member.name, member.value);
    }
    return object;
}

// The object that the text, a literal, stands for.
inline QJsonObject jsonObject(const char *text)
{
    return QJsonDocument::fromJson(text).object();
}

// One object with the members of both; those of the second one win.
inline QJsonObject merged(QJsonObject object, const QJsonObject &more)
{
    for (auto member = more.begin(); member != more.end(); ++member) {
        object.insert(member.key(), member.value());
    }
    return object;
}

// Of an object or an array.
template <typename Container>
QByteArray toJson(const Container &container)
{
    return QJsonDocument(container).toJson(QJsonDocument::Compact);
}

// The error object that every NMOS API answers with.
inline QJsonObject nmosError(int code, const QString &message)
{
    return jsonObject({{"code", code}, {"error", message}, {"debug", QJsonValue()}});
}
