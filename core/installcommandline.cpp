#include "core/installcommandline.h"

#include "core/console.h"
#include "core/hexception.h"
#include "core/macrotable.h"
#include "core/places.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <iterator>

#include <sys/stat.h>
#include <unistd.h>

namespace {

// The record and the menu entry keep the destination, and are read from
// other folders later: it is made absolute now. An empty one would install
// into the root folder.
QString absoluteDestination(const QString &folder)
{
    if (folder.trimmed().isEmpty())
        throw HException(QStringLiteral("The destination given with --destination is empty"));
    return QDir::cleanPath(QDir::current().absoluteFilePath(folder));
}

// A value missing at the end of the line is taken as empty, not as an error.
QString valueAfter(const QStringList &arguments, int &i)
{
    return ++i < arguments.size() ? arguments.at(i) : QString();
}

} // namespace

void InstallCommandLine::parse(const QStringList &arguments, MacroTable &table)
{
    auto value = [&arguments](int &i) {
        return valueAfter(arguments, i);
    };

    for (int i = 1; i < arguments.size(); ++i) {
        const QString &option = arguments.at(i);
        if (option == QLatin1String("--silent") || option == QLatin1String("--quiet")
            || option == QLatin1String("-s")) {
            m_runFlags |= Silent;
        } else if (option == QLatin1String("--accept-license")) {
            m_runFlags |= LicenceAccepted;
        } else if (option == QLatin1String("--modify")) {
            m_modify = true;
        } else if (option == QLatin1String("--remove")) {
            m_remove = true;
        } else if (option == QLatin1String("--repair")) {
            m_repair = true;
        } else if (option == QLatin1String("--no-upgrade")) {
            // Recognised so that it is no error; an upgrade is decided by the record alone.
        } else if (option == QLatin1String("--data-file")) {
            m_hasDataFile = true;
            m_dataFile = value(i);
        } else if (option == QLatin1String("--data-offset")) {
            m_dataOffsetText = value(i);
        } else if (option == QLatin1String("--set")) {
            const QString assignment = value(i);
            const int equals = assignment.indexOf(QLatin1Char('='));
            if (equals > 0)
                table.set(assignment.left(equals), assignment.mid(equals + 1));
        } else if (option == QLatin1String("--destination")) {
            table.set(QStringLiteral("DestDir"), absoluteDestination(table.expand(value(i))));
        } else if (option == QLatin1String("--user-mode-install")) {
            m_rootRequired = false;
            table.setPath(QStringLiteral("OSAppDir"), Places::userDataFolder());
        } else if (option == QLatin1String("--verify")) {
            m_verify = true;
        } else if (option == QLatin1String("--log")) {
            // Made absolute now: the run changes no folder, but messages name it.
            m_logFile = value(i);
            if (m_logFile.isEmpty())
                throw HException(QStringLiteral("argument expected"));
            m_logFile = QDir::current().absoluteFilePath(m_logFile);
        } else if (!parseDeploymentOption(arguments, i)) {
            throw HException(QStringLiteral("Unknown command line option: '") + option + QLatin1Char('\''));
        }
    }

    m_mode = InstallMode::Typical;
    const QString program = QFileInfo(arguments.value(0)).fileName();
    if (program.contains(QLatin1String("uninstall"), Qt::CaseInsensitive))
        m_mode = InstallMode::Remove;
    if (m_modify)
        m_mode = InstallMode::Modify;
    else if (m_remove)
        m_mode = InstallMode::Remove;
    else if (m_repair)
        m_mode = InstallMode::Repair;
    if (m_hasInstallType && InstallMode::isInstallation(m_mode))
        m_mode = m_installType;

    // A user maintains an installation of its own as it was made: in user
    // mode, without having to remember the option.
    const bool maintenance
        = m_mode == InstallMode::Modify || m_mode == InstallMode::Repair || m_mode == InstallMode::Remove;
    if (m_rootRequired && !Console::isAdministrator() && maintenance && ownsInstallation(table)) {
        m_rootRequired = false;
        table.setPath(QStringLiteral("OSAppDir"), Places::userDataFolder());
    }
    // Verifying reads what anyone may read, and writes nothing.
    if (m_rootRequired && !Console::isAdministrator() && !m_verify)
        throw HException(QStringLiteral("The installer must be run as root"));
}

bool InstallCommandLine::parseDeploymentOption(const QStringList &arguments, int &i)
{
    const QString &option = arguments.at(i);
    if (option == QLatin1String("--dry-run") || option == QLatin1String("--dry-run=json")) {
        m_dryRun = option.endsWith(QLatin1String("json")) ? DryRunJson : DryRunText;
        // A dry run shows no window and waits for no answer, with or without "--silent".
        m_runFlags |= Silent;
    } else if (option == QLatin1String("--install-type")) {
        static const char *const types[] = { "minimal", "typical", "full", "custom" };
        const QString type = valueAfter(arguments, i);
        const auto found = std::find_if(std::begin(types), std::end(types), [&type](const char *name) {
            return type.compare(QLatin1String(name), Qt::CaseInsensitive) == 0;
        });
        if (found == std::end(types))
            throw HException(QStringLiteral("Unknown installation type '") + type
                + QStringLiteral("': use minimal, typical, full or custom"));
        m_hasInstallType = true;
        m_installType = InstallMode::Mode(found - std::begin(types));
    } else if (option == QLatin1String("--feature")) {
        // The title may hold "=", the state never does.
        const QString assignment = valueAfter(arguments, i);
        const int equals = assignment.lastIndexOf(QLatin1Char('='));
        const QString state = assignment.mid(equals + 1).trimmed().toLower();
        if (equals <= 0 || (state != QLatin1String("on") && state != QLatin1String("off")))
            throw HException(QStringLiteral("--feature takes TITLE=on or TITLE=off, not '") + assignment
                + QLatin1Char('\''));
        m_featureSwitches.append({ assignment.left(equals).trimmed(), state == QLatin1String("on") });
    } else {
        return false;
    }
    return true;
}

bool InstallCommandLine::ownsInstallation(const MacroTable &table)
{
    // The record beside the running copy, else the one under the destination.
    const QString records[]
        = { QFileInfo(Places::executablePath()).absolutePath() + QStringLiteral("/IConf.xml"),
              table.expand(QStringLiteral("$(DestDir)/bin/IConf.xml")) };
    for (const QString &record : records) {
        struct stat status;
        if (::lstat(QFile::encodeName(record).constData(), &status) == 0)
            return S_ISREG(status.st_mode) && status.st_uid == ::getuid();
    }
    return false;
}

qint64 InstallCommandLine::dataOffset() const
{
    bool ok = false;
    const qint64 offset = m_dataOffsetText.toLongLong(&ok, 16);
    return ok ? offset : 0;
}
