#pragma once

#include <QString>

class QLineEdit;

// Gives a line edit its placeholder, in the colour of its disabled text under any style sheet. Qt's
// style sheets have no colour for placeholders and paint them like text, and an example address
// then looks like one that somebody typed.
void setMutedPlaceholder(QLineEdit *edit, const QString &placeholder);
