#pragma once

#include <QString>
#include <QUrl>

// Puts the IPv6 literal host of a URL text in brackets: "http://fe80::1:8080/x" becomes
// "http://[fe80::1]:8080/x". A host is taken for an IPv6 literal when it holds "::" and does not
// begin with a bracket; what follows its last ':' is the port when it is an integer. Any other text
// comes back unchanged.
//
// A zone identifier ends the address, as in RFC 4007, and is written into the URL as RFC 6874 has
// it: "fe80::1%eth0:8080" becomes "[fe80::1%25eth0]:8080". So only a port that follows the zone is
// a port. A zone that the text already spells "%25eth0" is taken as it stands.
QString normalizeUrl(const QString &url);

// The URL to request for a text that was typed or that a node sent: normalizeUrl(), then
// QUrl::fromUserInput(). Invalid unless the result is http or https.
QUrl requestUrl(const QString &text);
