#include "installer/installverification.h"

#include "core/installlog.h"
#include "core/macrotable.h"
#include "core/places.h"
#include "installer/installmanifest.h"
#include "installer/installsettingsrecord.h"

#include <QFileInfo>
#include <QStringList>

#include <cstdio>

namespace {

void print(std::FILE *stream, const QString &line)
{
    InstallLog::write(line);
    std::fputs((line + QLatin1Char('\n')).toLocal8Bit().constData(), stream);
    std::fflush(stream);
}

} // namespace

InstallVerification::InstallVerification(InstallConfigurationList *list)
    : m_list(list)
{ }

InstallVerification::Outcome InstallVerification::run()
{
    // As the maintenance modes do: the record beside the running copy
    // ("uninstall --verify"), else the one under the destination.
    QString recordPath = QFileInfo(Places::executablePath()).absolutePath() + QStringLiteral("/IConf.xml");
    if (!QFileInfo::exists(recordPath))
        recordPath = InstallSettingsRecord::defaultPath();
    const InstallSettingsRecord record(m_list);
    if (!record.load(recordPath)) {
        print(stderr,
            QStringLiteral("error: Cannot verify the installation: the record %1: %2")
                .arg(recordPath, record.failure()));
        return Failed;
    }
    // The record has restored the destination it describes; the manifest
    // is written beside it.
    const QString manifestPath = QFileInfo(recordPath).absolutePath() + QStringLiteral("/manifest.sha256");
    QList<InstallManifest::Entry> entries;
    const QString failure = InstallManifest::read(manifestPath, entries);
    if (!failure.isEmpty()) {
        print(stderr,
            QStringLiteral("error: Cannot verify the installation: the manifest %1: %2")
                .arg(manifestPath, failure));
        return Failed;
    }

    const QString destination = expandMacros(QStringLiteral("$(DestDir)"));
    const QList<InstallManifest::Finding> findings = InstallManifest::check(destination, entries);
    int counts[4] = {};
    for (const InstallManifest::Finding &finding : findings) {
        print(stdout,
            InstallManifest::describe(finding.differences).leftJustified(9) + destination + QLatin1Char('/')
                + finding.name);
        for (int bit = 0; bit < 4; ++bit)
            counts[bit] += (finding.differences >> bit) & 1;
    }
    print(stdout,
        QStringLiteral("%1 files checked, %2 differ: %3 missing, %4 changed size, %5 changed mode, "
                       "%6 changed content")
            .arg(entries.size())
            .arg(findings.size())
            .arg(counts[0])
            .arg(counts[1])
            .arg(counts[2])
            .arg(counts[3]));
    return findings.isEmpty() ? Intact : Differs;
}
