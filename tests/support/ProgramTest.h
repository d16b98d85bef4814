#pragma once

#include "Application.h"
#include "net/Descriptors.h"

#include <QApplication>
#include <QClipboard>
#include <QSettings>

// A test of the program's windows: with its identity, its style and its limits, and with an empty
// clipboard and no settings before each function.
class ProgramTest : public QObject {
    Q_OBJECT

protected slots:
    void initTestCase()
    {
        Application::setIdentity();
        Application::setAppearance();
        Descriptors::raiseLimit();
    }
    void init()
    {
        QSettings().clear();
        QGuiApplication::clipboard()->clear();
    }
};
