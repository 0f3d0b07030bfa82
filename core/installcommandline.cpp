#include "core/installcommandline.h"

#include "core/console.h"
#include "core/hexception.h"
#include "core/macrotable.h"
#include "core/places.h"

#include <QFileInfo>

void InstallCommandLine::parse(const QStringList &arguments, MacroTable &table)
{
    // A value missing at the end of the line is taken as empty, not as an error.
    auto value = [&arguments](int &i) {
        return ++i < arguments.size() ? arguments.at(i) : QString();
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
            table.set(QStringLiteral("DestDir"), table.expand(value(i)));
        } else if (option == QLatin1String("--user-mode-install")) {
            m_rootRequired = false;
            table.setPath(QStringLiteral("OSAppDir"), Places::userDataFolder());
        } else {
            throw HException(QStringLiteral("Unknown command line option: '") + option + QLatin1Char('\''));
        }
    }

    if (m_rootRequired && !Console::isAdministrator())
        throw HException(QStringLiteral("The installer must be run as root"));

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
}

qint64 InstallCommandLine::dataOffset() const
{
    bool ok = false;
    const qint64 offset = m_dataOffsetText.toLongLong(&ok, 16);
    return ok ? offset : 0;
}
