#pragma once

#include <qmdnsengine/service.h>

#include <QMetaType>

// Must precede the first slot with a Service parameter (Qt 6).
Q_DECLARE_METATYPE(QMdnsEngine::Service)
