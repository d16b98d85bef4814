#pragma once

#include <QByteArray>
#include <QJsonDocument>

// Parses the JSON text of somebody who is not trusted. Returns a null document when it is none.
//
// So does a text with an object in which a name comes again after it was given an object or an
// array (RFC 8259, section 4, leaves open what that means): the toolkit's parser never frees the
// value that it drops then, and one answer could take more than a gigabyte for good.
//
// And so does a text of more than four million values. Ten thousand receivers with three constraint
// sets each have a third of that; sixty megabytes of "[0],[0],..." would hold the event loop for
// many seconds and take two gigabytes.
QJsonDocument parseJson(const QByteArray &text);
