#pragma once

// What the archive and media tests write and read back: sample bytes, files
// on disk, and archives behind a prefix as a data file carries them.
#include "archive/packagearchive.h"
#include "core/hexception.h"
#include "core/installexception.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>
#include <QStringList>

#include <cstdio>
#include <functional>
#include <sys/stat.h>
#include <utime.h>

inline QString message(const std::function<void()> &action)
{
    try {
        action();
    } catch (const HException &error) {
        return error.message();
    } catch (const InstallException &error) {
        return error.message();
    }
    return QString();
}

// Runs of random bytes and of text, as in a product: both compressors work.
inline QByteArray sample(qsizetype size, quint32 seed)
{
    QRandomGenerator random(seed);
    QByteArray bytes(size, Qt::Uninitialized);
    for (qsizetype i = 0; i < size; ++i)
        bytes[i] = (i / 5000) % 3 == 0 ? char(random.bounded(256)) : char('a' + (i * 7 + i / 13) % 26);
    return bytes;
}

inline QByteArray readAll(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
}

inline void writeFile(const QString &path, const QByteArray &bytes, mode_t mode = 0644, qint64 time = -1)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(bytes) != bytes.size())
        qFatal("cannot write %s", qPrintable(path));
    file.close();
    ::chmod(QFile::encodeName(path).constData(), mode);
    if (time >= 0) {
        const struct utimbuf times = { time_t(time), time_t(time) };
        ::utime(QFile::encodeName(path).constData(), &times);
    }
}

inline struct stat statusOf(const QString &path)
{
    struct stat status = {};
    ::lstat(QFile::encodeName(path).constData(), &status);
    return status;
}

inline QStringList filesBelow(const QString &folder)
{
    QStringList found;
    QDirIterator it(folder, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext())
        found.append(QDir(folder).relativeFilePath(it.next()));
    found.sort();
    return found;
}

// Writes its archives behind a prefix, as a data file carries them.
class PrefixedArchive : public PackageArchive
{
public:
    explicit PrefixedArchive(int prefix)
        : m_prefix(prefix)
    { }

protected:
    void beginWrite(FILE *file) override
    {
        const QByteArray prefix(m_prefix, '\x90');
        std::fwrite(prefix.constData(), 1, size_t(prefix.size()), file);
    }

private:
    int m_prefix;
};
