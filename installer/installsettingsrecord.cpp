#include "installer/installsettingsrecord.h"

#include "core/fileutils.h"
#include "core/installmode.h"
#include "core/macrotable.h"
#include "plan/installconfigurationlist.h"
#include "plan/installconfigurationstate.h"
#include "plan/installsettingkeyconfigurationitem.h"

#include <QDomDocument>
#include <QFile>
#include <QLoggingCategory>
#include <QXmlStreamWriter>

Q_LOGGING_CATEGORY(lcRecord, "setup.installer")

namespace {

const QString configurationTag = QStringLiteral("configuration");
const QString destDirAttribute = QStringLiteral("dest_dir");
const QString srcDirAttribute = QStringLiteral("src_dir");
const QString programFolderDirAttribute = QStringLiteral("program_folder_dir");

// Characters outside 7-bit ASCII become '?': the record has always been
// plain ASCII, and paths beyond it are not kept.
QByteArray toAscii(const QString &text)
{
    QByteArray bytes;
    bytes.reserve(text.size());
    for (const QChar c : text)
        bytes.append(c.unicode() < 0x80 ? char(c.unicode()) : '?');
    return bytes;
}

// Stores the current value of every value of each settings key of the plan.
void recordSettingKeys(const InstallConfigurationItem *item)
{
    if (const auto *key = qobject_cast<const InstallSettingKeyConfigurationItem *>(item)) {
        if (!key->recordValues())
            qCWarning(lcRecord) << "Cannot write the settings key" << key->key();
    }
    for (const InstallConfigurationItem *child : item->children())
        recordSettingKeys(child);
}

} // namespace

InstallSettingsRecord::InstallSettingsRecord(InstallConfigurationList *list)
    : m_list(list)
{ }

QString InstallSettingsRecord::defaultPath()
{
    return expandMacros(QStringLiteral("$(InstallerDir)/IConf.xml"));
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
    if (!FileUtils::writeFile(path, toAscii(document)))
        qCWarning(lcRecord) << "Cannot write the installation record" << path;
    recordSettingKeys(m_list);
    return true;
}

bool InstallSettingsRecord::load(const QString &path) const
{
    QFile file(path);
    if (!file.exists() || !file.open(QIODevice::ReadOnly))
        return false;
    QDomDocument document;
    const bool parsed = bool(document.setContent(&file));
    file.close();
    if (!parsed)
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

    const QString destDir = configuration.attribute(destDirAttribute);
    if (!destDir.isEmpty())
        macros().set(QStringLiteral("DestDir"), destDir);
    const int mode = m_list->mode();
    const QString srcDir = configuration.attribute(srcDirAttribute);
    if ((mode == InstallMode::Modify || mode == InstallMode::Repair) && !srcDir.isEmpty())
        macros().set(QStringLiteral("SrcDir"), srcDir);
    const QString programFolderDir = configuration.attribute(programFolderDirAttribute);
    if (!programFolderDir.isEmpty()) {
        macros().set(QStringLiteral("ProgramFolderDir"), programFolderDir);
        macros().set(QStringLiteral("ProgramFolderName"),
            programFolderDir.section(QLatin1Char('/'), -1, -1, QString::SectionSkipEmpty));
    }
    state.apply();
    return true;
}
