#include "core/places.h"

#include <QByteArray>
#include <QCoreApplication>
#include <QStringList>

#include <cstdlib>
#include <unistd.h>

namespace Places {

QString executablePath()
{
    // The link's target may be as long as any path; grow until it fits.
    QByteArray buffer(256, Qt::Uninitialized);
    for (;;) {
        const ssize_t length = ::readlink("/proc/self/exe", buffer.data(), size_t(buffer.size()));
        if (length < 0)
            return QCoreApplication::instance() ? QCoreApplication::applicationFilePath() : QString();
        if (length < buffer.size())
            return QString::fromLocal8Bit(buffer.constData(), int(length));
        buffer.resize(buffer.size() * 2);
    }
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
