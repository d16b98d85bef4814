#pragma once

class QDialog;

// Shows a dialog or message box modally and returns the result that it was closed with, as
// QDialog::exec() does. All of the program's go through here, because such a call is a wait like
// that for a reply (see net/NestedWait.h):
//  - It returns as soon as the dialog is closed. Intakes that began meanwhile and still wait give
//    way; only what the operator started inside can hold it up.
//  - When the program closes, the dialog is rejected. None comes up from then on: the call returns
//    QDialog::Rejected at once.
int runModal(QDialog *dialog);
