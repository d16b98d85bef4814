#include "support/LogRecorder.h"

namespace {

QByteArray wanted;

void take(QtMsgType level, const QMessageLogContext &context, const QString &text)
{
    if (context.category == wanted) {
        LogRecorder::lines() += QLatin1String(level == QtInfoMsg ? "info: " : "warning: ") + text;
    }
}

} // namespace

LogRecorder::LogRecorder(const QByteArray &category)
    : previous(qInstallMessageHandler(take))
{
    wanted = category;
    lines().clear();
}

LogRecorder::~LogRecorder()
{
    qInstallMessageHandler(previous);
}

QStringList &LogRecorder::lines()
{
    static QStringList logged;
    return logged;
}
