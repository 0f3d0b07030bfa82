#pragma once

#include "core/installmode.h"

#include <QList>
#include <QString>
#include <QStringList>

class MacroTable;

// The second pass over the command line, owned by the installer application:
// the starting mode, silent running, the medium, the destination and macro
// overrides. Unlike the first pass it rejects every argument it does not know.
class InstallCommandLine
{
public:
    // How a dry run ("--dry-run", "--dry-run=json") prints its plan.
    enum DryRun { NoDryRun, DryRunText, DryRunJson };
    // One "--feature TITLE=on|off": a row of the custom setup page by its title.
    struct FeatureSwitch
    {
        QString title;
        bool on;
    };

    // Run flags, as the application keeps them.
    enum RunFlag {
        Silent = 1,
        LicenceAccepted = 2,
    };

    // Walks the arguments after the program path, applying "--set",
    // "--destination" and "--user-mode-install" to the table as it goes, then
    // checks root. A user who is not root and owns the record of the
    // installation to modify, repair or remove maintains it in user mode.
    // Throws HException with "Unknown command line option: '...'"
    // or "The installer must be run as root"; nothing has been installed then.
    // "--log" with no file is "argument expected".
    void parse(const QStringList &arguments, MacroTable &table);

    int runFlags() const { return m_runFlags; }
    bool isSilent() const { return m_runFlags & Silent; }
    bool licenceAccepted() const { return m_runFlags & LicenceAccepted; }
    // Starts true; "--user-mode-install", or maintaining one's own
    // installation, clears it.
    bool rootRequired() const { return m_rootRequired; }
    InstallMode::Mode mode() const { return m_mode; }
    // With a data file the medium is a package archive at dataOffset(),
    // otherwise the file store at "$(SrcDir)".
    bool hasDataFile() const { return m_hasDataFile; }
    const QString &dataFile() const { return m_dataFile; }
    // Signed hexadecimal without prefix; 0 when the text does not convert.
    qint64 dataOffset() const;

    DryRun dryRun() const { return m_dryRun; }
    bool isDryRun() const { return m_dryRun != NoDryRun; }
    // In the order given; the titles are matched against the plan later.
    const QList<FeatureSwitch> &featureSwitches() const { return m_featureSwitches; }
    // "--verify": compare the installation with its manifest; no medium and
    // no root needed, nothing is written.
    bool verifies() const { return m_verify; }
    // "--log FILE": empty when not given.
    const QString &logFile() const { return m_logFile; }

private:
    static bool ownsInstallation(const MacroTable &table);
    // The options of an unattended deployment: "--install-type", "--feature"
    // and the dry run. False when the option is none of them.
    bool parseDeploymentOption(const QStringList &arguments, int &i);

    int m_runFlags = 0;
    bool m_rootRequired = true;
    bool m_modify = false;
    bool m_remove = false;
    bool m_repair = false;
    bool m_hasDataFile = false;
    QString m_dataFile;
    QString m_dataOffsetText;
    DryRun m_dryRun = NoDryRun;
    QList<FeatureSwitch> m_featureSwitches;
    bool m_hasInstallType = false;
    InstallMode::Mode m_installType = InstallMode::Typical;
    InstallMode::Mode m_mode = InstallMode::Typical;
    bool m_verify = false;
    QString m_logFile;
};
