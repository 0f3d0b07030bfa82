#include "installer/installsettingsrecord.h"

#include "core/descriptor.h"
#include "core/fileutils.h"
#include "core/heldfolder.h"
#include "core/hexception.h"
#include "core/installmode.h"
#include "core/macrotable.h"
#include "installer/installerlogging.h"
#include "plan/installconfigurationlist.h"
#include "plan/installconfigurationstate.h"
#include "plan/installsettingkeyconfigurationitem.h"

#include <QDir>
#include <QDomDocument>
#include <QFile>
#include <QFileInfo>
#include <QXmlStreamReader>
#include <QXmlStreamWriter>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// A record names each installed file once: four times the product's files
// leave room, and the document tree of a record at the limit stays within
// the installer's memory bound, where millions of empty elements in a
// record of a few megabytes would not.
const int MaxElements = 1 << 17;

bool withinElementLimit(const QByteArray &content)
{
    QXmlStreamReader reader(content);
    int elements = 0;
    while (!reader.atEnd()) {
        if (reader.readNext() == QXmlStreamReader::StartElement && ++elements > MaxElements)
            return false;
    }
    return true;
}

const QString configurationTag = QStringLiteral("configuration");
const QString destDirAttribute = QStringLiteral("dest_dir");
const QString srcDirAttribute = QStringLiteral("src_dir");
const QString programFolderDirAttribute = QStringLiteral("program_folder_dir");

// Characters outside 7-bit ASCII become '?': the record has always been
// plain ASCII, and paths beyond it are not kept. Converted in place, since
// the record of a large installation runs to megabytes.
QByteArray toAscii(QString text)
{
    for (QChar &c : text) {
        if (c.unicode() >= 0x80)
            c = QLatin1Char('?');
    }
    return std::move(text).toLatin1();
}

// Stores the current value of every value of each settings key of the plan.
void recordSettingKeys(const InstallConfigurationItem *item)
{
    if (const auto *key = qobject_cast<const InstallSettingKeyConfigurationItem *>(item)) {
        if (!key->recordValues())
            qCWarning(lcInstaller) << "Cannot write the settings key" << key->key();
    }
    for (const InstallConfigurationItem *child : item->children())
        recordSettingKeys(child);
}

// Why root may not trust a file or folder with this status; empty when it may.
QString distrust(const struct stat &status, const QString &what)
{
    if (status.st_uid != 0)
        return what + QStringLiteral("belongs to user %1, not root. ").arg(status.st_uid);
    if ((status.st_mode & S_IWOTH) || ((status.st_mode & S_IWGRP) && status.st_gid != 0))
        return what + QStringLiteral("may be written by other users. ");
    return QString();
}

} // namespace

InstallSettingsRecord::InstallSettingsRecord(InstallConfigurationList *list)
    : m_list(list)
{ }

QString InstallSettingsRecord::defaultPath()
{
    return expandMacros(QStringLiteral("$(InstallerDir)/IConf.xml"));
}

QString InstallSettingsRecord::readTrusted(
    const QString &path, QByteArray &content, qint64 maxSize, const QString &what)
{
    const QFileInfo info(path);
    const HeldFolder folder = HeldFolder::open(info.absolutePath());
    if (!folder.isValid())
        return errno == ENOENT ? QStringLiteral("there is none")
                               : QStringLiteral("its folder cannot be opened");
    const Descriptor file(::openat(folder.fd(), QFile::encodeName(info.fileName()).constData(),
        O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (file.get() < 0)
        return errno == ENOENT ? QStringLiteral("there is none") : QStringLiteral("it cannot be opened");
    struct stat status;
    if (::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode))
        return QStringLiteral("it is not a file");
    if (status.st_size > maxSize)
        return QStringLiteral("it is too large");
    // Root obeys only a record that nobody else could have written.
    struct stat folderStatus;
    if (::geteuid() == 0 && ::fstat(folder.fd(), &folderStatus) == 0) {
        const QString why
            = distrust(status, QStringLiteral("it ")) + distrust(folderStatus, QStringLiteral("its folder "));
        if (!why.isEmpty())
            throw HException(QStringLiteral("Cannot trust the ") + what + QLatin1Char(' ') + path
                + QStringLiteral(": ") + why.trimmed());
    }
    content.resize(status.st_size);
    qint64 done = 0;
    while (done < status.st_size) {
        const ssize_t got = ::read(file.get(), content.data() + done, size_t(status.st_size - done));
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return QStringLiteral("it cannot be read");
        done += got;
    }
    return QString();
}

bool InstallSettingsRecord::save(const QString &path) const
{
    QString document;
    QXmlStreamWriter writer(&document);
    // Formatting starts after the document type, which it would otherwise
    // begin with a line break.
    writer.writeDTD(QStringLiteral("<!DOCTYPE Install>\n"));
    writer.setAutoFormatting(true);
    writer.setAutoFormattingIndent(1);
    writer.writeStartElement(configurationTag);
    writer.writeAttribute(destDirAttribute, expandMacros(QStringLiteral("$(DestDir)")));
    writer.writeAttribute(srcDirAttribute, expandMacros(QStringLiteral("$(SrcDir)")));
    writer.writeAttribute(programFolderDirAttribute, expandMacros(QStringLiteral("$(ProgramFolderDir)")));
    if (!InstallConfigurationState::write(*m_list, writer))
        return false;
    writer.writeEndElement();
    writer.writeEndDocument();

    // Replaced whole, never written through a link planted in its place.
    if (!FileUtils::writeFile(path, toAscii(std::move(document))))
        qCWarning(lcInstaller) << "Cannot write the installation record" << path;
    recordSettingKeys(m_list);
    return true;
}

bool InstallSettingsRecord::load(const QString &path) const
{
    QByteArray content;
    m_failure = readTrusted(path, content);
    if (!m_failure.isEmpty())
        return false;
    // Whatever else is wrong below, the file is not a record this installer wrote.
    m_failure = QStringLiteral("it is damaged");
    if (!withinElementLimit(content))
        return false;
    QDomDocument document;
    if (!document.setContent(content))
        return false;

    QDomElement configuration;
    for (QDomNode node = document.firstChild(); !node.isNull(); node = node.nextSibling()) {
        if (node.isElement() && node.toElement().tagName() == configurationTag) {
            configuration = node.toElement();
            break;
        }
    }
    if (configuration.isNull())
        return false;

    // The plan is matched before anything changes, so a record of another
    // layout leaves the macros as they were too.
    InstallConfigurationState state;
    if (!state.read(configuration.firstChildElement(), *m_list))
        return false;

    // Paths the record restores are absolute, or the record is damaged.
    const QString destDir = configuration.attribute(destDirAttribute);
    const QString srcDir = configuration.attribute(srcDirAttribute);
    for (const QString &folder : { destDir, srcDir }) {
        if (!folder.isEmpty() && !QDir::isAbsolutePath(folder))
            return false;
    }
    if (!destDir.isEmpty())
        macros().set(QStringLiteral("DestDir"), destDir);
    const int mode = m_list->mode();
    if ((mode == InstallMode::Modify || mode == InstallMode::Repair) && !srcDir.isEmpty())
        macros().set(QStringLiteral("SrcDir"), srcDir);
    const QString programFolderDir = configuration.attribute(programFolderDirAttribute);
    if (!programFolderDir.isEmpty()) {
        macros().set(QStringLiteral("ProgramFolderDir"), programFolderDir);
        macros().set(QStringLiteral("ProgramFolderName"),
            programFolderDir.section(QLatin1Char('/'), -1, -1, QString::SectionSkipEmpty));
    }
    state.apply();
    m_failure.clear();
    return true;
}
