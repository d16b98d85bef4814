#pragma once

#include <QByteArray>
#include <QStringList>
#include <QtGlobal>

// Takes what is logged in one category, as long as it lives; what others log is dropped.
class LogRecorder final {
    Q_DISABLE_COPY_MOVE(LogRecorder)

public:
    explicit LogRecorder(const QByteArray &category = "default");
    ~LogRecorder();

    // What was logged so far, as in "warning: text".
    static QStringList &lines();

private:
    const QtMessageHandler previous;
};
