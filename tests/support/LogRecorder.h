#pragma once

#include <QByteArray>
#include <QStringList>
#include <QtGlobal>

// Takes what is logged in one category, as long as it lives; what others log is dropped.
class LogRecorder final {
    Q_DISABLE_COPY_MOVE(LogRecorder)

public:
    explicit LogRecorder(const QByteArray &category = "default")
    {
        wanted = category;
        lines().clear();
    }

    ~LogRecorder()
    {
        qInstallMessageHandler(previous);
    }

    // What was logged so far, as in "warning: text".
    static QStringList &lines()
    {
        static QStringList logged;
        return logged;
    }

private:
    static void take(QtMsgType level, const QMessageLogContext &context, const QString &text)
    {
        if (context.category == wanted) {
            lines() += QLatin1String(level == QtInfoMsg ? "info: " : "warning: ") + text;
        }
    }

    inline static QByteArray wanted;
    const QtMessageHandler previous = qInstallMessageHandler(take);
};
