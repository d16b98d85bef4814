#include "net/JsonText.h"

#include <QJsonArray>
#include <QJsonParseError>

#include <algorithm>
#include <cstring>
#include <deque>
#include <string_view>
#include <vector>

namespace {

// The toolkit parses no text that is nested deeper.
constexpr size_t maximumDepth = 1024;

constexpr int maximumValues = 4000000;

struct Member {
    std::string_view name;
    bool isContainer = false;
};

bool repeatsContainer(std::vector<Member>::iterator begin, std::vector<Member>::iterator end)
{
    if (std::none_of(begin, end, [](const Member &member) { return member.isContainer; })) {
        return false;
    }
    std::sort(begin, end, [](const Member &a, const Member &b) { return a.name < b.name; });
    return std::adjacent_find(begin, end,
                              [](const Member &a, const Member &b) {
                                  return a.name == b.name && (a.isContainer || b.isContainer);
                              })
        != end;
}

// Goes through a text without a care for whether it is JSON: that is for the parser to say.
class Scanner {
public:
    explicit Scanner(const QByteArray &text)
        : at(text.constData())
        , end(at + text.size())
    {
    }

    // Whether the parser must not see the text.
    bool findsHarm()
    {
        for (; at < end && levels.size() <= maximumDepth && values <= maximumValues; ++at) {
            switch (*at) {
            case '"':
                takeString();
                break;
            case '{':
            case '[':
                open();
                break;
            case '}':
            case ']':
                if (!levels.empty() && close()) {
                    return true;
                }
                break;
            case ',':
                nameFollows = !levels.empty() && levels.back().isObject;
                ++values;
                break;
            default:
                break;
            }
        }
        return values > maximumValues;
    }

private:
    struct Level {
        bool isObject;
        size_t firstMember;
    };

    void takeString()
    {
        const char *const begin = ++at;
        at = find('"');
        // An escaped quotation mark, or an escaped backslash before the last one.
        if (at[-1] == '\\') {
            for (at = begin; at < end && *at != '"'; ++at) {
                at += *at == '\\' ? 1 : 0;
            }
            at = std::min(at, end);
        }
        if (nameFollows) {
            nameFollows = false;
            std::string_view name(begin, static_cast<size_t>(at - begin));
            if (name.find('\\') != std::string_view::npos) {
                name = unescaped(name);
            }
            // The parser takes names for the same that differ after a null character.
            members.push_back({name.substr(0, name.find('\0'))});
        }
    }

    const char *find(char c) const
    {
        const void *const found = std::memchr(at, c, static_cast<size_t>(end - at));
        return found ? static_cast<const char *>(found) : end;
    }

    // One name can be spelled in many ways.
    std::string_view unescaped(std::string_view name)
    {
        const QByteArray json =
            "[\"" + QByteArray(name.data(), static_cast<int>(name.size())) + "\"]";
        spelledOut.push_back(
            QJsonDocument::fromJson(json).array().at(0).toString().toUtf8().toStdString());
        return spelledOut.back();
    }

    void open()
    {
        if (!levels.empty() && levels.back().isObject
            && members.size() > levels.back().firstMember) {
            members.back().isContainer = true;
        }
        nameFollows = *at == '{';
        ++values;
        levels.push_back({nameFollows, members.size()});
    }

    bool close()
    {
        const auto own = members.begin() + static_cast<std::ptrdiff_t>(levels.back().firstMember);
        const bool repeats = repeatsContainer(own, members.end());
        members.erase(own, members.end());
        levels.pop_back();
        nameFollows = false;
        return repeats;
    }

    const char *at;
    const char *const end;
    bool nameFollows = false;
    int values = 0; // one for each comma and each object or array
    std::vector<Level> levels;
    std::vector<Member> members; // of all open objects
    std::deque<std::string> spelledOut;
};

} // namespace

QJsonDocument parseJson(const QByteArray &text)
{
    if (Scanner(text).findsHarm()) {
        return {};
    }
    QJsonParseError problem;
    const QJsonDocument document = QJsonDocument::fromJson(text, &problem);
    return problem.error == QJsonParseError::NoError ? document : QJsonDocument();
}
