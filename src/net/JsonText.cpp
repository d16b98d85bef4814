#include "net/JsonText.h"

#include <QJsonArray>
#include <QJsonParseError>
#include <QLoggingCategory>

#include <algorithm>
#include <cstring>
#include <deque>
#include <string_view>
#include <vector>

namespace {

Q_LOGGING_CATEGORY(jsonLog, "nodepatch.json", QtWarningMsg)

// QJsonDocument parses no text that is nested deeper.
constexpr size_t maximumDepth = 1024;

constexpr int maximumValues = 4000000;

struct Member {
    std::string_view name;
    const char *begin; // its opening quotation mark
    bool isContainer = false;
};

using Members = std::vector<Member>;

// What has to be done to a text before QJsonDocument may see it.
struct Repeats {
    // Behind the quotation marks that open the names of each object with a repeat.
    std::vector<const char *> nameBegins;
    // The members that a later one of the same name replaces, each with what separates it from the
    // next. One may lie inside another.
    std::vector<std::string_view> replaced;
};

bool repeatsContainer(Members::iterator begin, Members::iterator end)
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

// The members are those of one object.
void addRepeats(Members::iterator begin, Members::iterator end, Repeats *repeats)
{
    std::vector<const char *> begins;
    std::transform(begin, end, std::back_inserter(begins),
                   [](const Member &member) { return member.begin; });
    std::sort(begins.begin(), begins.end());
    for (const char *const at : begins) {
        repeats->nameBegins.push_back(at + 1);
    }
    std::sort(begin, end, [](const Member &a, const Member &b) {
        return a.name != b.name ? a.name < b.name : a.begin < b.begin;
    });
    for (auto member = begin; member + 1 < end; ++member) {
        if (member->name == (member + 1)->name) {
            const char *const next =
                *std::upper_bound(begins.cbegin(), begins.cend(), member->begin);
            repeats->replaced.emplace_back(member->begin,
                                           static_cast<size_t>(next - member->begin));
        }
    }
}

// Goes through a text without a care for whether it is JSON: that is for the parser to say.
class Scanner {
public:
    explicit Scanner(const QByteArray &text)
        : at(text.constData())
        , end(at + text.size())
    {
    }

    // False when QJsonDocument must not see the text at all. Finds the repeats as far as the text
    // is nested no deeper than QJsonDocument goes.
    bool scan(Repeats *found)
    {
        for (; at < end && levels.size() <= maximumDepth && isSound(); ++at) {
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
                if (!levels.empty()) {
                    close(found);
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
        return isSound();
    }

private:
    struct Level {
        bool isObject;
        size_t firstMember;
    };

    bool isSound() const
    {
        return values <= maximumValues && !hasBrokenName;
    }

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
            hasBrokenName = hasBrokenName || name.find('\0') != std::string_view::npos;
            if (name.find('\\') != std::string_view::npos) {
                name = unescaped(name);
            }
            members.push_back({name, begin - 1});
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
        const QString text = QJsonDocument::fromJson(json).array().at(0).toString();
        // Half of a surrogate pair has no UTF-8, and 0xff begins none.
        const auto *const units = reinterpret_cast<const char *>(text.utf16());
        spelledOut.push_back(
            text.isValidUtf16()
                ? text.toStdString()
                : '\xff' + std::string(units, static_cast<size_t>(text.size()) * sizeof(QChar)));
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

    void close(Repeats *found)
    {
        const auto own = members.begin() + static_cast<std::ptrdiff_t>(levels.back().firstMember);
        if (repeatsContainer(own, members.end())) {
            addRepeats(own, members.end(), found);
        }
        members.erase(own, members.end());
        levels.pop_back();
        nameFollows = false;
    }

    const char *at;
    const char *const end;
    bool nameFollows = false;
    bool hasBrokenName = false;
    int values = 0; // one for each comma and each object or array
    std::vector<Level> levels;
    Members members; // of all open objects
    std::deque<std::string> spelledOut;
};

bool isJson(const QByteArray &text)
{
    QJsonParseError problem;
    QJsonDocument::fromJson(text, &problem);
    return problem.error == QJsonParseError::NoError;
}

// The text with a number before every name of an object with a repeat: JSON when the text is JSON,
// and free of repeats.
QByteArray numbered(const QByteArray &text, std::vector<const char *> nameBegins)
{
    std::sort(nameBegins.begin(), nameBegins.end());
    QByteArray result;
    const char *rest = text.cbegin();
    int number = 0;
    for (const char *const name : nameBegins) {
        result.append(rest, static_cast<int>(name - rest));
        result.append(QByteArray::number(++number)).append(':');
        rest = name;
    }
    return result.append(rest, static_cast<int>(text.cend() - rest));
}

QByteArray without(const QByteArray &text, std::vector<std::string_view> pieces)
{
    std::sort(pieces.begin(), pieces.end(),
              [](std::string_view a, std::string_view b) { return a.data() < b.data(); });
    QByteArray result;
    const char *rest = text.cbegin();
    for (const std::string_view piece : pieces) {
        if (piece.data() >= rest) {
            result.append(rest, static_cast<int>(piece.data() - rest));
            rest = piece.data() + piece.size();
        }
    }
    return result.append(rest, static_cast<int>(text.cend() - rest));
}

} // namespace

QJsonDocument parseJson(const QByteArray &text)
{
    Repeats repeats;
    if (!Scanner(text).scan(&repeats)) {
        return {};
    }
    QByteArray readable = text;
    if (!repeats.replaced.empty()) {
        qCInfo(jsonLog,
               "A later member of the same name replaces %zu members, objects or arrays among them",
               repeats.replaced.size());
        if (!isJson(numbered(text, repeats.nameBegins))) {
            return {};
        }
        readable = without(text, repeats.replaced);
    }
    QJsonParseError problem;
    const QJsonDocument document = QJsonDocument::fromJson(readable, &problem);
    return problem.error == QJsonParseError::NoError ? document : QJsonDocument();
}
