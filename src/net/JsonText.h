#pragma once

#include <QByteArray>
#include <QJsonDocument>

// Parses JSON from an untrusted sender; a null document when it is not JSON.
//
// When an object repeats a name, the last member wins, as in QJsonDocument (RFC 8259, section 4,
// leaves that open). QJsonDocument of Qt 5.15 never frees an object or array that it drops this
// way: a text of 200 KB can keep 5.4 MiB for good each time it is parsed. So such members are taken
// out of the text before QJsonDocument reads it, and the quiet logging category "nodepatch.json"
// says so.
//
// Two kinds of text are rejected although QJsonDocument accepts them: one with an unescaped NUL in
// a name, or with a backslash before anything but ASCII in one, which RFC 8259, section 7, does not
// allow and QJsonDocument reads as other names; and one of more than two million values, each
// object and array counting as one more. The largest real collection, ten thousand receivers with
// three sets of thirteen constraints each, has 1.5 million; QJsonDocument takes up to 0.8 s for two
// million.
//
// The worst texts that were found take 1.9 times as long as QJsonDocument alone (two megabytes of
// "[],[],..."), a real collection 1.3 times.
QJsonDocument parseJson(const QByteArray &text);
