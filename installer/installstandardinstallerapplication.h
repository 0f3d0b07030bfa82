#pragma once

#include "installer/installapplication.h"

// The standard installer: welcome, licence agreement, destination,
// installation type, custom setup, start, progress and finish pages, the
// record of the installation in "$(InstallerDir)/IConf.xml" and the upgrade of
// an installation found under the chosen destination. The maintenance modes
// start from the record beside the running installer (the "uninstall" copy
// lives there). User-interface thread only.
class InstallStandardInstallerApplication : public InstallApplication
{
    Q_OBJECT
    Q_DISABLE_COPY(InstallStandardInstallerApplication)

public:
    InstallStandardInstallerApplication(const InstallCommandLine &commandLine, InstallConfigurationList *list,
        InstallWizardInterface *wizard, QObject *parent = nullptr);
    ~InstallStandardInstallerApplication() override;

    void start() override;

    // Loads the record at path; a folder medium then follows a restored
    // "$(SrcDir)". False when there is no usable record, with why in failure
    // when given.
    bool readRecord(const QString &path, QString *failure = nullptr);
    // The record of the installation under the destination as now chosen.
    static QString recordPath();

protected:
    void runSilent() override;
    void nextPage(int id) override;
    void writeRecord() override;

private:
    struct PageStep;
    struct PageSequence;

    // The pages of a run in the mode, in the order Next shows them.
    static const PageSequence &sequenceOf(Mode mode);
    // Leaving the licence page: a silent run goes on without the window,
    // and an agreement not accepted throws HException. False when the run
    // does not go on to the next page.
    bool leaveLicence();
    // Leaving the destination page: an empty field keeps the run there, and
    // an installation found under the folder turns it into an upgrade. False
    // when the run does not go on to the next page.
    bool leaveDestination();
    void finish(int id);
    // Shows the progress page's checking phase and finds out what is
    // installed; throws HException "Cannot check installation configuration".
    void checkInstallation();
    // Reads the record of a maintenance run and makes sure a destination is
    // known. False when the user cancelled the folder chooser.
    bool locateInstallation();
    // A silent repair: with a manifest only the files that are missing or
    // differ from it are written again, and their count is printed;
    // without one, everything installed is installed again.
    bool repair();
};
