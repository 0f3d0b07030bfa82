#include "media/installmedia.h"

#include "core/installexception.h"
#include "media/installoverwritedecision.h"

#include <QFileInfo>

#include <cerrno>

InstallMedia::InstallMedia(QObject *parent)
    : QObject(parent)
{ }

InstallMedia::~InstallMedia() = default;

bool InstallMedia::shouldCopy(qint64 sourceModified, quint64 sourceSize, const QString &target) const
{
    return !m_decision || m_decision->shouldOverwrite(sourceModified, sourceSize, target);
}

InstallMedia::TargetFolders::TargetFolders(const QString &destination)
    : m_destination(destination)
{ }

std::shared_ptr<HeldFolder> InstallMedia::TargetFolders::folderFor(
    const QString &name, const QString &refusal)
{
    // A name that starts at the root or climbs out is not the medium's to give.
    if (name.startsWith(QLatin1Char('/')) || name.split(QLatin1Char('/')).contains(QStringLiteral("..")))
        throw InstallException(refusal);
    const qsizetype slash = name.lastIndexOf(QLatin1Char('/'));
    const QString folderName = slash < 0 ? QString() : name.left(slash);
    if (m_last && folderName == m_lastName)
        return m_last;
    if (!m_root.isValid())
        m_root = HeldFolder::open(m_destination, HeldFolder::Create, HeldFolder::RefuseLink);
    HeldFolder folder = m_root.isValid() ? m_root.below(folderName, HeldFolder::Create) : HeldFolder();
    if (!folder.isValid()) {
        if (errno == ELOOP)
            throw InstallException(refusal);
        const QString path
            = folderName.isEmpty() ? m_destination : m_destination + QLatin1Char('/') + folderName;
        throw InstallException(QStringLiteral("Cannot create folder ") + QFileInfo(path).absoluteFilePath());
    }
    m_last = std::make_shared<HeldFolder>(std::move(folder));
    m_lastName = folderName;
    return m_last;
}
