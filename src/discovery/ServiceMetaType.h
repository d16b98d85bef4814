#pragma once

#include <qmdnsengine/service.h>

#include <QMetaType>

// Here, so that it stands before any slot that takes a service: Qt 6 refuses it afterwards.
Q_DECLARE_METATYPE(QMdnsEngine::Service)
