#pragma once

#include <QStringList>

#include <memory>

#include <sys/types.h>

class InstallSingleInstance;
class InstallWizardFactory;
class InstallWizardInterface;

// The process from start to exit. A process runs exactly one of: the help page,
// the copy-files mode, a hand-over to an installer that already runs, or one
// installer run. main() calls these steps in order and creates the
// application object between them.
class ProcessEntry
{
public:
    // Returned by runConsoleModes() when the installer is to run.
    static const int GoOn = -1;
    // Returned by runInstaller() when an installer already runs: it has been
    // told to come to the front and this process ends with status 0.
    static const int HandedOver = -2;
    // A verification found files that differ from the manifest: exit status 2.
    static const int Differs = -3;

    ProcessEntry(int argc, char **argv);
    ~ProcessEntry();
    ProcessEntry(const ProcessEntry &) = delete;
    ProcessEntry &operator=(const ProcessEntry &) = delete;

    // First pass over the command line: the help page, "argument expected" and
    // the copy-files mode end the process with the status returned; GoOn
    // otherwise. Creates its own console application object when needed.
    // Running out of memory ends it with "error: out of memory" and 1.
    int runConsoleModes();

    // Before the installer's application object: the environment it needs
    // and a umask of 022 (the previous one is restored by finish()).
    void prepareInstaller();

    // After the application object exists: true when an installer of this
    // product and version already runs for this user; with raiseIt it has
    // been told to come to the front.
    bool anotherInstallerRuns(bool raiseIt);

    // Defaults, the second pass, the application object (the factory's once a
    // display answers; a console one for a silent run, unless it is an
    // installation whose agreement is still to be read and a display
    // answers: then the window shows the agreement alone), the plan, the
    // wizard and the run. Returns the application's result (1 for success)
    // or HandedOver (a window run found another installer; a silent one
    // fails); with "--verify" only the record and the files are read, and
    // Differs is returned when a file differs. A "--log" file is opened
    // first. Running out of memory fails with "error: out of memory".
    int runInstaller(InstallWizardFactory &factory);

    // Whether a window could be opened: the platform in use is one that shows
    // something and it connects. Probed in a child process, because the
    // toolkit aborts when it cannot connect.
    bool displayAvailable() const;

    // Hands the per-user configuration folders back to the sudo user, restores
    // the umask and ends the process at once: status 0 for result 1, 2 for
    // Differs, 3 for not enough space, else 1.
    [[noreturn]] void finish(int result);

    // "%s %s %s%s Setup" from the company, product and version.
    static QString instanceIdentifier();

    // Gives the three per-user configuration folders under home to uid:gid,
    // only when home is uid's own: only folders, each opened below the one
    // before without following a link, and only what root made. Failures
    // are ignored.
    static void handBackConfiguration(
        const QString &home, const QString &company, const QString &product, uid_t uid, gid_t gid);

private:
    int runConsoleModesUnguarded();
    int runInstallerUnguarded(InstallWizardFactory &factory);
    int runCopyFilesMode(const class EntryCommandLine &options);
    static void reportInstallationError(InstallWizardInterface *wizard, const QString &message);

    int m_argc;
    char **m_argv;
    QStringList m_arguments;
    mode_t m_savedUmask = 0;
    std::unique_ptr<InstallSingleInstance> m_instance;
};
