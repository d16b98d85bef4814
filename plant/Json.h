#pragma once

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
