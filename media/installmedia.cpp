#include "media/installmedia.h"

#include "core/fileutils.h"
#include "core/installexception.h"
#include "media/installoverwritedecision.h"

#include <QFileInfo>

InstallMedia::InstallMedia(QObject *parent)
    : QObject(parent)
{ }

InstallMedia::~InstallMedia() = default;

bool InstallMedia::shouldCopy(qint64 sourceModified, quint64 sourceSize, const QString &target) const
{
    return !m_decision || m_decision->shouldOverwrite(sourceModified, sourceSize, target);
}

void InstallMedia::makeTargetFolder(const QString &target)
{
    const QString folder = QFileInfo(target).absolutePath();
    if (!FileUtils::makePath(folder))
        throw InstallException(QStringLiteral("Cannot create folder ") + folder);
}
