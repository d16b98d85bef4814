#pragma once

class QFrame;
class QWidget;

// Makes the About panel: a frameless window of 300 by 300 pixels with the program's icon, name,
// version and web site. It is hidden, belongs to its parent, and shows and hides only when told to.
QFrame *newAboutPanel(QWidget *parent);
