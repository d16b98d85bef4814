#pragma once

#include <QByteArray>
#include <QJsonDocument>

// Parses the JSON text of somebody who is not trusted. Returns a null document when it is none.
//
// Of several members of one name in an object the last one counts, as QJsonDocument has it (RFC
// 8259, section 4, leaves that open). QJsonDocument of Qt 5.15 never frees an object or array that
// it drops this way: a text of 200 KB can keep 5.4 MiB for good each time it is parsed. So such
// members are cut out of the text before QJsonDocument sees it, and the quiet logging category
// "nodepatch.json" says so. This takes two more copies of the text and another parse, but only for
// a text with such members.
//
// Two kinds of text count as no JSON although QJsonDocument would take them. One with a NUL in a
// name, which RFC 8259, section 7, wants escaped: QJsonDocument takes some such names for the same.
// And one of more than four million values: ten thousand receivers with three constraint sets each
// have a third of that; sixty megabytes of "[0],[0],..." would hold the event loop for many seconds
// and take two gigabytes.
QJsonDocument parseJson(const QByteArray &text);
