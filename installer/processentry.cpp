#include "installer/processentry.h"

#include "core/console.h"
#include "core/descriptor.h"
#include "core/entrycommandline.h"
#include "core/hexception.h"
#include "core/installcommandline.h"
#include "core/installlog.h"
#include "core/macrotable.h"
#include "core/productinfo.h"
#include "installer/brantleinstallerapplication.h"
#include "installer/copyfilesmode.h"
#include "installer/installsingleinstance.h"
#include "installer/installverification.h"
#include "installer/installwizardfactory.h"
#include "installer/installwizardinterface.h"
#include "plan/configurationlist.h"
#include "plan/installsettingsstore.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFont>
#include <QGuiApplication>
#include <QLoggingCategory>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <malloc.h>
#include <new>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// Console errors: standard output first, so the error comes after what was printed.
void printError(const QString &message)
{
    InstallLog::write(QStringLiteral("error: ") + message);
    std::fflush(stdout);
    std::fprintf(stderr, "error: %s\n", message.toLocal8Bit().constData());
    std::fflush(stderr);
}

// Nothing may end the process without a word, memory running out included.
QString outOfMemory()
{
    return QStringLiteral("out of memory");
}

QString noWindowMessage()
{
    return QStringLiteral("Cannot open the installer window: no display could be opened. "
                          "Run Setup with --silent to install without a window");
}

// Set while the window's application starts: a display that answered the
// probe may be gone by then, and the toolkit ends the process on that.
bool startingWindow = false;
QtMessageHandler toolkitHandler = nullptr;

// The toolkit aborts after a fatal message; a run ends with an error line
// and status 1 instead. Other messages are the logging rules' to show.
void handleMessage(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    if (type != QtFatalMsg) {
        // The project's own diagnostics, once the logging rules let them
        // through, belong in the run's log as well.
        if (context.category && qstrncmp(context.category, "setup.", 6) == 0)
            InstallLog::write(QLatin1String(context.category) + QLatin1String(": ") + message);
        toolkitHandler(type, context, message);
        return;
    }
    printError(startingWindow ? noWindowMessage() : message);
    ::_exit(1);
}

bool parseId(const char *text, unsigned long *id)
{
    if (!text || !*text)
        return false;
    char *end = nullptr;
    *id = std::strtoul(text, &end, 10);
    return *end == '\0';
}

} // namespace

ProcessEntry::ProcessEntry(int argc, char **argv)
    : m_argc(argc)
    , m_argv(argv)
{
    for (int i = 0; i < argc; ++i)
        m_arguments.append(QString::fromLocal8Bit(argv[i]));
}

ProcessEntry::~ProcessEntry() = default;

int ProcessEntry::runConsoleModes()
{
    try {
        return runConsoleModesUnguarded();
    } catch (const std::bad_alloc &) {
        printError(outOfMemory());
    }
    return 1;
}

int ProcessEntry::runConsoleModesUnguarded()
{
    EntryCommandLine options;
    switch (options.parse(m_arguments)) {
    case EntryCommandLine::Help:
        std::fputs(EntryCommandLine::helpPage().toLocal8Bit().constData(), stderr);
        return 1;
    case EntryCommandLine::ArgumentExpected:
        printError(QStringLiteral("argument expected"));
        return 1;
    case EntryCommandLine::Continue:
        break;
    }
    if (!options.copyFilesMode())
        return GoOn;
    return runCopyFilesMode(options);
}

int ProcessEntry::runCopyFilesMode(const EntryCommandLine &options)
{
    QCoreApplication application(m_argc, m_argv);
    try {
        CopyFilesMode(options).run();
    } catch (const HException &e) {
        printError(e.message());
        return 1;
    }
    return 0;
}

void ProcessEntry::prepareInstaller()
{
    // The X11 shared-memory extension fails under sudo and in remote sessions;
    // a value the user set is kept.
    if (!qEnvironmentVariableIsSet("QT_X11_NO_MITSHM"))
        Console::setVariable(QStringLiteral("QT_X11_NO_MITSHM"), QStringLiteral("1"));
    m_savedUmask = ::umask(022);
    // Extraction hands blocks of 1 MiB from one thread to another. Left to
    // itself, glibc raises its mapping threshold after the first such block
    // is freed and keeps later ones in per-thread heaps that never shrink;
    // a fixed threshold gives each block back as soon as it is written.
    ::mallopt(M_MMAP_THRESHOLD, 256 * 1024);
}

bool ProcessEntry::anotherInstallerRuns(bool raiseIt)
{
    m_instance = std::make_unique<InstallSingleInstance>(instanceIdentifier());
    if (!m_instance->isRunning())
        return false;
    // Whether or not the message arrived.
    if (raiseIt)
        m_instance->sendMessage(QString(), 5000);
    return true;
}

int ProcessEntry::runInstaller(InstallWizardFactory &factory)
{
    // As in the console modes. The window and the plan are gone by the time
    // it arrives here.
    try {
        return runInstallerUnguarded(factory);
    } catch (const std::bad_alloc &) {
        printError(outOfMemory());
    }
    return InstallApplication::Failed;
}

int ProcessEntry::runInstallerUnguarded(InstallWizardFactory &factory)
{
    macros().setDefaults();
    // The pass runs before any application object: whether the run is silent
    // decides which object may be created. Its error is reported once the
    // way to report it is known.
    InstallCommandLine commandLine;
    QString commandLineError;
    try {
        commandLine.parse(m_arguments, macros());
    } catch (const HException &e) {
        commandLineError = e.message();
    }

    // The toolkit's messages, and ours, would only confuse the console output;
    // QT_LOGGING_RULES (such as "setup.*=true") turns them on again.
    QLoggingCategory::setFilterRules(QStringLiteral("*=false"));
    toolkitHandler = qInstallMessageHandler(handleMessage);
    if (commandLineError.isEmpty() && !commandLine.logFile().isEmpty()) {
        const QString why = InstallLog::open(commandLine.logFile());
        if (!why.isEmpty()) {
            printError(QStringLiteral("Cannot use the log file %1: %2").arg(commandLine.logFile(), why));
            return InstallApplication::Failed;
        }
    }
    if (commandLineError.isEmpty() && commandLine.verifies()) {
        // Neither a medium nor a window: only the record and the files.
        const QCoreApplication application(m_argc, m_argv);
        ConfigurationList list(commandLine.rootRequired());
        try {
            static const int results[]
                = { InstallApplication::Succeeded, Differs, InstallApplication::Failed };
            return results[InstallVerification(&list).run()];
        } catch (const HException &e) {
            printError(e.message());
        }
        return InstallApplication::Failed;
    }
    // A silent installation still shows the agreement in a window when it
    // was not accepted on the command line and a display answers; the run
    // itself stays silent.
    const bool windowed = !commandLine.isSilent()
        || (commandLineError.isEmpty() && !commandLine.isDryRun()
            && InstallMode::isInstallation(commandLine.mode()) && !commandLine.licenceAccepted()
            && displayAvailable());
    std::unique_ptr<QCoreApplication> application;
    if (commandLine.isSilent() && !windowed) {
        application = std::make_unique<QCoreApplication>(m_argc, m_argv);
    } else if (commandLine.isSilent() || displayAvailable()) {
        QGuiApplication::setDesktopSettingsAware(false);
        startingWindow = true;
        application = factory.createApplication(m_argc, m_argv);
        startingWindow = false;
        // Plug-ins found after this point (styles, themes of the desktop) stay out.
        QCoreApplication::setLibraryPaths(QStringList());
        QGuiApplication::setFont(QFont(QStringLiteral("Sans"), 10));
    } else {
        // A command-line error is the more precise message of the two.
        printError(commandLineError.isEmpty() ? noWindowMessage() : commandLineError);
        return InstallApplication::Failed;
    }
    if (anotherInstallerRuns(!commandLine.isSilent())) {
        // A window run has brought the other one to the front. A silent run
        // has nothing to show, and a script must not read "did nothing" as
        // success.
        if (!commandLine.isSilent())
            return HandedOver;
        printError(QStringLiteral("another installer of this product is already running"));
        return InstallApplication::Failed;
    }

    ConfigurationList list(commandLine.rootRequired());
    std::unique_ptr<InstallWizardInterface> wizard;
    if (windowed)
        wizard = factory.createWizard(&list, commandLine.mode());
    // A settings folder that is a link, or a FIFO in place of the file, is
    // refused before anything changes.
    const QString refusal = commandLineError.isEmpty() ? InstallSettingsStore::checkFile() : commandLineError;
    if (!refusal.isEmpty()) {
        reportInstallationError(wizard.get(), refusal);
        return InstallApplication::Failed;
    }
    try {
        BrantleInstallerApplication installer(commandLine, &list, wizard.get());
        if (wizard)
            QObject::connect(m_instance.get(), &InstallSingleInstance::messageReceived, wizard.get(),
                &InstallWizardInterface::raiseWindow);
        return installer.run();
    } catch (const HException &e) {
        reportInstallationError(wizard.get(), e.message());
    }
    return InstallApplication::Failed;
}

bool ProcessEntry::displayAvailable() const
{
    // Windows on these platforms are seen by nobody, so nobody could answer them.
    const QByteArray platform = qgetenv("QT_QPA_PLATFORM");
    if (platform.startsWith("offscreen") || platform.startsWith("minimal"))
        return false;
    if (platform.isEmpty() && qEnvironmentVariableIsEmpty("DISPLAY")
        && qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY"))
        return false;

    std::fflush(stdout);
    std::fflush(stderr);
    const pid_t child = ::fork();
    if (child < 0)
        return false;
    if (child == 0) {
        // The toolkit writes why it cannot connect, then aborts; both stay
        // in the child.
        const int null = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
        if (null >= 0) {
            ::dup2(null, STDOUT_FILENO);
            ::dup2(null, STDERR_FILENO);
        }
        int argc = 1;
        char *argv[] = { m_argv[0], nullptr };
        QGuiApplication::setDesktopSettingsAware(false);
        QGuiApplication probe(argc, argv);
        ::_exit(0);
    }
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) { }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

void ProcessEntry::reportInstallationError(InstallWizardInterface *wizard, const QString &message)
{
    if (wizard)
        wizard->reportInstallationError(expandMacros(message));
    else
        printError(expandMacros(message));
}

void ProcessEntry::finish(int result)
{
    unsigned long uid = 0;
    unsigned long gid = 0;
    if (parseId(std::getenv("SUDO_UID"), &uid) && parseId(std::getenv("SUDO_GID"), &gid)) {
        handBackConfiguration(QDir::homePath(), expandMacros(QStringLiteral("$(Company)")),
            expandMacros(QStringLiteral("$(Product)")), uid_t(uid), gid_t(gid));
    }
    // The lock must not outlive the process: _exit skips every destructor.
    m_instance.reset();
    ::umask(m_savedUmask);
    std::fflush(stdout);
    std::fflush(stderr);
    ::_exit(result == InstallApplication::Succeeded ? 0
            : result == Differs                     ? 2
            : result == InstallApplication::NoSpace ? 3
                                                    : 1);
}

QString ProcessEntry::instanceIdentifier()
{
    return QString::asprintf("%s %s %s%s Setup", ProductInfo::companyName().toUtf8().constData(),
        ProductInfo::fullProductName().toUtf8().constData(), ProductInfo::majorVersion().toUtf8().constData(),
        ProductInfo::minorVersion().toUtf8().constData());
}

void ProcessEntry::handBackConfiguration(
    const QString &home, const QString &company, const QString &product, uid_t uid, gid_t gid)
{
    // Only into a home of the user's own: with HOME pointing elsewhere (root's
    // own, say) nothing there is the user's to get.
    const Descriptor homeFd(::open(QFile::encodeName(home).constData(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    struct stat status;
    if (homeFd.get() < 0 || ::fstat(homeFd.get(), &status) != 0 || status.st_uid != uid)
        return;
    // Each folder is opened below the one before without following a link,
    // and the folder held is what changes owner: never a link, never a file
    // (a hard link to one of root's would hand over the file itself).
    const QByteArray names[]
        = { QByteArrayLiteral(".config"), QFile::encodeName(company), QFile::encodeName(product) };
    Descriptor folders[3];
    int parent = homeFd.get();
    for (int i = 0; i < 3; ++i) {
        folders[i].reset(
            ::openat(parent, names[i].constData(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (folders[i].get() < 0 || ::fstat(folders[i].get(), &status) != 0)
            return;
        // Only what root made; a ".config" of another owner or group was
        // there before and stays as it is.
        if (status.st_uid == 0 && (i > 0 || status.st_gid == 0))
            ::fchownat(folders[i].get(), "", uid, gid, AT_EMPTY_PATH);
        parent = folders[i].get();
    }
}
