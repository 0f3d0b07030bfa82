#include "installer/copyfilesmode.h"

#include "archive/packagearchiveextraction.h"
#include "core/console.h"
#include "core/fileutils.h"
#include "core/hexception.h"
#include "core/installerfiles.h"
#include "core/macrotable.h"
#include "installer/consolelicenceprompt.h"
#include "installer/textprogressbar.h"

#include <QDir>
#include <QFileInfo>
#include <QStringList>

#include <cstdio>
#include <unistd.h>

CopyFilesMode::CopyFilesMode(const EntryCommandLine &options)
    : m_options(options)
{ }

void CopyFilesMode::run()
{
    Console::textSize(&m_columns, &m_rows);
    TextProgressBar bar(m_columns);

    macros().setDefaults();
    checkDestination();
    if (!m_options.licenceAccepted())
        ConsoleLicencePrompt::confirmAgreement(m_columns, m_rows);
    if (m_options.hasDataFile())
        m_archive.open(m_options.dataFile(), m_options.dataOffset());
    makeDestination();
    copyInstallerFiles(bar);
    copyArchiveMembers(bar);
}

void CopyFilesMode::checkDestination()
{
    const QString folder = expandMacros(m_options.copyDestination());
    // Nothing given would otherwise mean the system's own "/bin".
    if (folder.trimmed().isEmpty())
        throw HException(QStringLiteral("destination directory must not be empty"));
    m_destination = folder + QStringLiteral("/bin");
    if (QDir::isRelativePath(m_destination))
        throw HException(QStringLiteral("destination directory must be an absolute path"));
}

void CopyFilesMode::makeDestination()
{
    if (!QFileInfo(m_destination).isDir() && !FileUtils::makePath(m_destination))
        throw HException(QStringLiteral("cannot mkdir ") + m_destination);
}

void CopyFilesMode::copyInstallerFiles(TextProgressBar &bar)
{
    // The installer's own files are picked up from the current directory, as
    // if it were the installation's "bin" folder.
    MacroTable local = macros();
    local.set(QStringLiteral("InstallerDir"), QStringLiteral("."));

    QStringList sources;
    qint64 total = 0;
    for (const QString &entry : InstallerFiles::list()) {
        const QString source = local.expand(entry);
        const QFileInfo info(source);
        if (!info.exists())
            continue;
        sources.append(source);
        total += info.size();
    }
    for (int i = 0; i < m_archive.count(); ++i)
        total += m_archive.member(i).size();
    if (m_options.showProgress())
        bar.start(QStringLiteral("Copying files"), total);

    for (const QString &source : sources) {
        const QString target = m_destination + QLatin1Char('/') + QFileInfo(source).fileName();
        if (m_options.verbose())
            bar.printLine(target);
        if (!FileUtils::copyFile(source, target))
            throw HException(QStringLiteral("cannot copy ") + source + QStringLiteral(" to ") + target);
        bar.advance(QFileInfo(source).size());
    }
}

void CopyFilesMode::copyArchiveMembers(TextProgressBar &bar)
{
    // Table order is the order of the compressed body, so the stream never
    // goes back. A member is listed when queued and counted once in place.
    PackageArchiveExtraction extraction(m_archive);
    extraction.extract(
        m_archive.count(),
        [&](int index) {
            const PackageArchiveFile member = m_archive.member(index);
            if (m_options.verbose())
                bar.printLine(m_destination + QLatin1Char('/') + member.name());
            return extraction.below(m_destination, member, member.name(), true);
        },
        [&](const PackageArchiveExtraction::Progress &progress) {
            if (progress.event == PackageArchiveExtraction::Progress::Written)
                bar.advance(progress.bytes);
        });
}
