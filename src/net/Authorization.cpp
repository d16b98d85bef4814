#include "net/Authorization.h"

#include <QCryptographicHash>
#include <QHash>
#include <QList>
#include <QRegularExpression>
#include <QUrl>
#include <QUuid>

#include <algorithm>

namespace {

// Longer headers are not read.
constexpr int maximumLength = 4096;

// One challenge (RFC 9110, section 11.3). Names in lower case, values without their quotes.
struct Challenge {
    QByteArray scheme;
    QHash<QByteArray, QByteArray> parameters;
};

QList<Challenge> readChallenges(const QByteArray &header)
{
    static const QRegularExpression pattern(
        QStringLiteral("([\\w-]+)(?:\\s*=\\s*(?:\"((?:\\\\.|[^\"\\\\])*)\"|([^\\s,\"]+)))?"));
    QList<Challenge> challenges;
    if (header.size() > maximumLength) {
        return challenges;
    }
    auto matches = pattern.globalMatch(QString::fromLatin1(header));
    while (matches.hasNext()) {
        const auto match = matches.next();
        const QByteArray name = match.captured(1).toLatin1().toLower();
        if (match.lastCapturedIndex() == 1) {
            challenges.append({name, {}});
        } else if (!challenges.isEmpty()) {
            const QByteArray value = (match.captured(2) + match.captured(3)).toLatin1();
            challenges.last().parameters.insert(name, value);
        }
    }
    return challenges;
}

QByteArray unescaped(const QByteArray &quoted)
{
    QByteArray text;
    for (int i = 0; i < quoted.size(); ++i) {
        i += quoted.at(i) == '\\' && i + 1 < quoted.size() ? 1 : 0;
        text += quoted.at(i);
    }
    return text;
}

QByteArray basicAuthorization(const QByteArray &user, const QByteArray &password)
{
    return "Basic " + QByteArray(user + ':' + password).toBase64();
}

// Empty for an algorithm or a quality of protection that is not known here.
QByteArray digestAuthorization(const QHash<QByteArray, QByteArray> &challenge, QByteArray user,
                               const QByteArray &password, const QByteArray &path)
{
    const QByteArray offered = challenge.value("qop").toLower().replace(' ', "");
    const bool hasQop = offered.split(',').contains("auth");
    if (challenge.value("algorithm", "MD5").toUpper() != "MD5" || (!offered.isEmpty() && !hasQop)) {
        return {};
    }
    const auto hash = [](const QByteArray &text) {
        return QCryptographicHash::hash(text, QCryptographicHash::Md5).toHex();
    };
    const QByteArray realm = challenge.value("realm");
    const QByteArray nonce = challenge.value("nonce");
    const QByteArray own = QUuid::createUuid().toByteArray(QUuid::Id128);
    const QByteArray quality = hasQop ? "00000001:" + own + ":auth:" : QByteArray();
    const QByteArray response = hash(hash(user + ':' + unescaped(realm) + ':' + password) + ':'
                                     + unescaped(nonce) + ':' + quality + hash("GET:" + path));
    user.replace('\\', "\\\\").replace('"', "\\\"");
    QByteArray header = "Digest username=\"" + user + "\", realm=\"" + realm + "\", nonce=\""
        + nonce + "\", uri=\"" + path + "\", algorithm=MD5, response=\"" + response + '"';
    if (hasQop) {
        header += ", qop=auth, nc=00000001, cnonce=\"" + own + '"';
    }
    if (challenge.contains("opaque")) {
        header += ", opaque=\"" + challenge.value("opaque") + '"';
    }
    // Percent-encoded line ends in the URL would become fields of their own.
    const bool isOneLine = std::none_of(header.cbegin(), header.cend(),
                                        [](char c) { return static_cast<unsigned char>(c) < ' '; });
    return isOneLine ? header : QByteArray();
}

} // namespace

QByteArray authorizationFor(const QUrl &url, const QByteArray &challenges)
{
    const QByteArray user = url.userName(QUrl::FullyDecoded).toUtf8();
    const QByteArray password = url.password(QUrl::FullyDecoded).toUtf8();
    if (user.isEmpty()) {
        return {};
    }
    const QByteArray path =
        url.toEncoded(QUrl::RemoveScheme | QUrl::RemoveAuthority | QUrl::RemoveFragment);
    QByteArray basic;
    const QList<Challenge> offered = readChallenges(challenges);
    for (const Challenge &challenge : offered) {
        if (challenge.scheme == "digest") {
            QByteArray digest = digestAuthorization(challenge.parameters, user, password,
                                                    path.startsWith('/') ? path : '/' + path);
            if (!digest.isEmpty()) {
                return digest;
            }
        } else if (challenge.scheme == "basic") {
            basic = basicAuthorization(user, password);
        }
    }
    return basic;
}
