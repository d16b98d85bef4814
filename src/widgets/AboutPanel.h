#pragma once

class QFrame;
class QWidget;

// Makes the About panel: a frameless window of 300 by 300 pixels with the program's icon, name,
// version and web site. It belongs to its parent, is hidden at first, and never shows or hides
// itself.
QFrame *newAboutPanel(QWidget *parent);
