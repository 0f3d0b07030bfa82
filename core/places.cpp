#include "core/places.h"

#include <QCoreApplication>
#include <QStringList>

#include <cstdlib>
#include <unistd.h>

namespace Places {

QString executablePath()
{
    char buffer[1024];
    const ssize_t length = readlink("/proc/self/exe", buffer, sizeof buffer);
    if (length < 0 || length >= ssize_t(sizeof buffer))
        return QCoreApplication::arguments().value(0);
    return QString::fromLocal8Bit(buffer, int(length));
}

QString temporaryFolder()
{
    for (const char *name : { "TMP", "TEMP" }) {
        const char *value = std::getenv(name);
        if (value && *value)
            return QString::fromLocal8Bit(value);
    }
    const char *tmpdir = std::getenv("TMPDIR");
    return tmpdir ? QString::fromLocal8Bit(tmpdir) : QStringLiteral("/tmp");
}

QString systemDataFolder()
{
    return QStringLiteral("/usr/share");
}

QString userDataFolder()
{
    return QString::fromLocal8Bit(qgetenv("HOME")) + QStringLiteral("/.local/share");
}

QString cleanPath(const QString &path)
{
    const bool absolute = path.startsWith(QLatin1Char('/'));
    QStringList kept;
    for (const QString &component : path.split(QLatin1Char('/'), Qt::SkipEmptyParts)) {
        if (component == QLatin1String("."))
            continue;
        if (component == QLatin1String("..")) {
            if (!kept.isEmpty())
                kept.removeLast();
            continue;
        }
        kept.append(component);
    }
    const QString joined = kept.join(QLatin1Char('/'));
    return absolute ? QLatin1Char('/') + joined : joined;
}

} // namespace Places
