#pragma once

#include <QString>

class QLineEdit;

// Gives a line edit its placeholder, in the colour of its disabled text whatever style sheet comes
// over it: a style sheet of this toolkit knows no colour of its own for placeholders and paints
// them like text, and an example that looks like an address in place is taken for one.
void setMutedPlaceholder(QLineEdit *edit, const QString &placeholder);
