#include "plan/desktopcacheupdate.h"

#include "core/runcommand.h"
#include "plan/planlogging.h"

void runDesktopCacheUpdate(const QStringList &command)
{
    CommandOutput log;
    log.standardOutput = [&command](const QByteArray &text) {
        qCInfo(lcPlan).noquote() << command.first() << QString::fromLocal8Bit(text).trimmed();
    };
    log.standardError = log.standardOutput;
    const int status = runCommand(command, QString(), true, log);
    if (status != 0)
        qCInfo(lcPlan).noquote() << command.join(QLatin1Char(' ')) << "ended with status" << status;
}
