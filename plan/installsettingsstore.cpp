#include "plan/installsettingsstore.h"

#include "core/macrotable.h"

#include <QFile>

#include <sys/stat.h>
#include <unistd.h>

namespace {

// The store's folder belongs to the invoking user, who could put a link in
// place of the file; the settings library would then read and rewrite the
// link's target as root. The file is the installer's own, so such a link goes
// and the store starts a fresh file in its place.
QString withoutPlantedLink(const QString &path)
{
    const QByteArray encoded = QFile::encodeName(path);
    struct stat status;
    if (::lstat(encoded.constData(), &status) == 0 && S_ISLNK(status.st_mode))
        ::unlink(encoded.constData());
    return path;
}

} // namespace

InstallSettingsStore::InstallSettingsStore(const QString &key)
    : m_settings(std::make_unique<QSettings>(withoutPlantedLink(filePath()), QSettings::IniFormat))
{
    m_settings->beginGroup(key);
}

InstallSettingsStore::~InstallSettingsStore()
{
    withoutPlantedLink(m_settings->fileName());
    m_settings->sync();
}

QString InstallSettingsStore::filePath()
{
    return expandMacros(QStringLiteral("$(HomeDir)/.config/$(ProductRegKey)/Installer.conf"));
}

QString InstallSettingsStore::value(const QString &name) const
{
    return m_settings->value(name, QString()).toString();
}

void InstallSettingsStore::setValue(const QString &name, const QString &value)
{
    m_settings->setValue(name, value);
}

void InstallSettingsStore::remove(const QString &name)
{
    m_settings->remove(name);
}

bool InstallSettingsStore::sync()
{
    withoutPlantedLink(m_settings->fileName());
    m_settings->sync();
    return m_settings->status() == QSettings::NoError;
}
