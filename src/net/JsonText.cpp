#include "net/JsonText.h"

#include <QJsonParseError>
#include <QLoggingCategory>
#include <QtEndian>

#include <algorithm>
#include <array>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace {

Q_LOGGING_CATEGORY(jsonLog, "nodepatch.json", QtWarningMsg)

// QJsonDocument parses no text that is nested deeper.
constexpr size_t maximumDepth = 1024;

constexpr int maximumValues = 2000000;

// What the scanner stops at.
constexpr auto isSyntax = [] {
    std::array<bool, 256> is{};
    for (const char c : {'"', ',', '[', ']', '{', '}'}) {
        is[static_cast<uchar>(c)] = true;
    }
    return is;
}();

struct Member {
    std::string_view name; // as spelled
    std::string_view value; // of an object or array; null for anything else
};

using Members = std::vector<Member>;

// An object or array that a later member of the same name replaces.
struct Replaced {
    Member member;
    const char *end; // where the next member begins
    bool hasOwnSpelling; // the later member's name is spelled in another way
};

std::string_view range(const char *begin, const char *end)
{
    return {begin, static_cast<size_t>(end - begin)};
}

// Appends a UTF-16 code unit as UTF-8. Half of a surrogate pair takes three bytes, which is no
// valid UTF-8 and so equals no other name.
void appendUnit(std::string *text, uint unit)
{
    const auto byte = [text](size_t fromEnd) {
        return fromEnd > text->size() ? 0U : static_cast<uchar>((*text)[text->size() - fromEnd]);
    };
    const auto append = [text](uint first, uint second, uint third) {
        for (const uint unsignedByte : {first, second, third}) {
            *text += static_cast<char>(unsignedByte);
        }
    };
    const uint last = 0x80U | (unit & 0x3fU);
    if (unit < 0x80) {
        *text += static_cast<char>(unit);
    } else if (unit < 0x800) {
        *text += static_cast<char>(0xc0U | unit >> 6U);
        *text += static_cast<char>(last);
    } else if (unit >> 10U == 0x37 && byte(3) == 0xed && byte(2) >> 4U == 0xa) {
        const uint high = ((byte(2) & 0xfU) << 6U | (byte(1) & 0x3fU)) + 0x40;
        text->resize(text->size() - 3);
        append(0xf0U | high >> 8U, 0x80U | (high >> 2U & 0x3fU),
               0x80U | (high & 3U) << 4U | (unit >> 6U & 0xfU));
        *text += static_cast<char>(last);
    } else {
        append(0xe0U | unit >> 12U, 0x80U | (unit >> 6U & 0x3fU), last);
    }
}

// Anything for a character that is no digit.
uint hexDigit(char c)
{
    return (static_cast<uint>(c) & 0xfU) + (c > '9' ? 9 : 0);
}

// Appends a name without its escapes, as QJsonDocument reads it. What that refuses gives anything.
// Returns false for a backslash before anything but ASCII.
bool appendUnescaped(std::string *text, std::string_view name)
{
    for (size_t at = 0; at < name.size(); ++at) {
        if (name[at] != '\\') {
            *text += name[at];
            continue;
        }
        constexpr std::string_view letters("bfnrt");
        constexpr std::string_view meanings("\b\f\n\r\t");
        const char c = name[++at];
        const size_t letter = letters.find(c);
        if (static_cast<uchar>(c) >= 0x80) {
            return false;
        }
        if (c == 'u') {
            uint unit = 0;
            const size_t last = std::min(at + 4, name.size() - 1);
            while (at < last) {
                unit = unit << 4U | hexDigit(name[++at]);
            }
            appendUnit(text, unit & 0xffffU);
        } else {
            *text += letter < letters.size() ? meanings[letter] : c;
        }
    }
    return true;
}

// Whether there is nothing but blanks and, once, the separator.
bool isSeparator(std::string_view text, char separator)
{
    return std::count(text.begin(), text.end(), separator) == 1
        && std::all_of(text.begin(), text.end(), [separator](char c) {
               return c == separator || c == ' ' || c == '\t' || c == '\r' || c == '\n';
           });
}

// Finds what is replaced in one object after the other.
class Object {
public:
    // Adds what is replaced among the members of an object. Returns false when QJsonDocument must
    // not see the text, or when it is no JSON where it cannot see it any more.
    bool findReplaced(const Member *begin, const Member *end, std::vector<Replaced> *replaced)
    {
        if (!readNames(begin, end)) {
            return false;
        }
        std::sort(names.begin(), names.end(), [](const Name &a, const Name &b) {
            if (a.start != b.start) {
                return a.start < b.start;
            }
            const int order = a.tail().compare(b.tail());
            return order != 0
                ? order < 0
                : std::make_pair(a.text.size(), a.member) < std::make_pair(b.text.size(), b.member);
        });
        for (size_t i = 1; i < names.size(); ++i) {
            const Member &member = *names[i - 1].member;
            if (member.value.data() == nullptr || names[i - 1].text != names[i].text) {
                continue;
            }
            const char *const nextBegin = (&member + 1)->name.data() - 1;
            const char *const valueEnd = member.value.data() + member.value.size();
            const char *const nameEnd = member.name.data() + member.name.size() + 1;
            if (!isSeparator(range(nameEnd, member.value.data()), ':')
                || !isSeparator(range(valueEnd, nextBegin), ',')) {
                return false;
            }
            replaced->push_back({member, nextBegin, member.name != names[i].member->name});
        }
        return true;
    }

private:
    struct Name {
        quint64 start; // its first eight bytes, which decide most comparisons
        std::string_view text;
        const Member *member;

        std::string_view tail() const
        {
            return text.substr(std::min(text.size(), sizeof start));
        }
    };

    bool readNames(const Member *begin, const Member *end)
    {
        size_t size = 0;
        for (const Member *member = begin; member < end; ++member) {
            size += member->name.size();
        }
        unescaped.clear();
        unescaped.reserve(size);
        names.clear();
        for (const Member *member = begin; member < end; ++member) {
            std::string_view text = member->name;
            if (text.find('\\') != std::string_view::npos) {
                const size_t at = unescaped.size();
                if (!appendUnescaped(&unescaped, text)) {
                    return false;
                }
                text = std::string_view(unescaped).substr(at);
            }
            std::array<char, sizeof(quint64)> start{};
            std::copy_n(text.data(), std::min(text.size(), start.size()), start.begin());
            names.push_back({qFromBigEndian<quint64>(start.data()), text, member});
        }
        return true;
    }

    std::vector<Name> names;
    std::string unescaped;
};

// Looks at the structure of a text; the rest is left to QJsonDocument.
class Scanner {
public:
    explicit Scanner(const QByteArray &text)
        : at(text.constData())
        , end(at + text.size())
    {
    }

    // False when QJsonDocument must not see the text at all. Finds what is replaced as far as the
    // text is nested no deeper than QJsonDocument goes.
    bool scan(std::vector<Replaced> *replaced)
    {
        for (; isSound && levels.size() <= maximumDepth; ++at) {
            while (at < end && !isSyntax[static_cast<uchar>(*at)]) {
                ++at;
            }
            if (at == end) {
                break;
            }
            switch (*at) {
            case '"':
                takeString();
                break;
            case '{':
            case '[':
                open();
                break;
            case ',':
                nameFollows = !levels.empty() && levels.back().isObject;
                isSound = ++values <= maximumValues;
                break;
            default:
                close(replaced);
            }
        }
        return isSound;
    }

private:
    struct Level {
        bool isObject;
        bool holdsContainer;
        size_t firstMember;
        const char *begin;
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
            members.push_back({range(begin, at), {}});
            isSound = members.back().name.find('\0') == std::string_view::npos;
        }
        at = std::min(at, end - 1); // a string without an end
    }

    const char *find(char c) const
    {
        const void *const found = std::memchr(at, c, static_cast<size_t>(end - at));
        return found ? static_cast<const char *>(found) : end;
    }

    void open()
    {
        if (!levels.empty()) {
            levels.back().holdsContainer = true;
        }
        nameFollows = *at == '{';
        levels.push_back({nameFollows, false, members.size(), at});
        isSound = ++values <= maximumValues;
    }

    void close(std::vector<Replaced> *replaced)
    {
        if (levels.empty()) {
            return;
        }
        const Level level = levels.back();
        levels.pop_back();
        nameFollows = false;
        if (level.holdsContainer && members.size() > level.firstMember + 1) {
            const Member *const own = members.data();
            isSound = object.findReplaced(own + level.firstMember, own + members.size(), replaced);
        }
        members.resize(level.firstMember);
        if (!levels.empty() && levels.back().isObject
            && members.size() > levels.back().firstMember) {
            members.back().value = range(level.begin, at + 1);
        }
    }

    const char *at;
    const char *const end;
    bool nameFollows = false;
    bool isSound = true;
    int values = 0; // one for each comma and each object or array
    std::vector<Level> levels;
    Members members; // of all open objects
    Object object;
};

// Takes the replaced members, of which one may lie inside another, out of the text. Their objects
// and arrays, and the names that nothing else in the text says, become the elements of an array.
QByteArray takeOut(const QByteArray &text, std::vector<Replaced> replaced, QByteArray *array)
{
    struct Part {
        QByteArray text;
        const char *end;
        const char *next; // where the part around it goes on
    };
    std::sort(replaced.begin(), replaced.end(), [](const Replaced &a, const Replaced &b) {
        return a.member.name.data() < b.member.name.data();
    });
    std::vector<Part> parts{{{}, text.cend(), nullptr}};
    const char *at = text.cbegin();
    auto next = replaced.cbegin();
    const auto append = [&at](QByteArray *to, const char *until) {
        to->append(at, static_cast<int>(until - at));
    };
    *array = "[0";
    while (true) {
        Part &part = parts.back();
        if (next != replaced.cend() && next->member.name.data() < part.end) {
            append(&part.text, next->member.name.data() - 1);
            const auto [name, value] = next->member;
            if (next->hasOwnSpelling) {
                array->append(",\"").append(name.data(), static_cast<int>(name.size())).append('"');
            }
            at = value.data();
            parts.push_back({{}, at + value.size(), next->end});
            ++next;
            continue;
        }
        append(&part.text, part.end);
        at = part.next;
        QByteArray done = std::move(part.text);
        parts.pop_back();
        if (parts.empty()) {
            *array += ']';
            return done;
        }
        array->append(',').append(done);
    }
}

} // namespace

QJsonDocument parseJson(const QByteArray &text)
{
    std::vector<Replaced> replaced;
    if (!Scanner(text).scan(&replaced)) {
        return {};
    }
    QJsonParseError problem;
    QByteArray readable = text;
    if (!replaced.empty()) {
        qCInfo(jsonLog, "Later members of the same names replace %zu objects or arrays",
               replaced.size());
        QByteArray rest;
        readable = takeOut(text, std::move(replaced), &rest);
        QJsonDocument::fromJson(rest, &problem);
        if (problem.error != QJsonParseError::NoError) {
            return {};
        }
    }
    const QJsonDocument document = QJsonDocument::fromJson(readable, &problem);
    return problem.error == QJsonParseError::NoError ? document : QJsonDocument();
}
