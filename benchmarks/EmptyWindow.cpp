// Shows an empty main window, reports its first painting and ends.
//
//   nodepatch-empty-window WIDTH HEIGHT STYLE_SHEET [ICON...]

#include "FirstPaint.h"

#include <QApplication>
#include <QFile>
#include <QIcon>
#include <QMainWindow>

int main(int argc, char *argv[])
{
    QApplication app(argc, argv);
    const FirstPaint firstPaint;
    const QStringList arguments = QCoreApplication::arguments();
    QIcon icon;
    const QStringList pictures = arguments.mid(4);
    for (const QString &picture : pictures) {
        icon.addFile(picture);
    }
    QApplication::setWindowIcon(icon);
    QApplication::setStyle(QStringLiteral("Fusion"));
    QFile sheet(arguments.value(3));
    if (sheet.open(QIODevice::ReadOnly | QIODevice::Text)) {
        app.setStyleSheet(QString::fromUtf8(sheet.readAll()));
    }
    QMainWindow window;
    window.resize(arguments.value(1).toInt(), arguments.value(2).toInt());
    window.show();
    return QApplication::exec();
}
