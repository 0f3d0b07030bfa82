#include "core/entrycommandline.h"

EntryCommandLine::Outcome EntryCommandLine::parse(const QStringList &arguments)
{
    for (int i = 1; i < arguments.size(); ++i) {
        const QString &option = arguments.at(i);
        const bool takesValue = option == QLatin1String("--copy-files-to")
            || option == QLatin1String("--data-file") || option == QLatin1String("--data-offset");
        if (takesValue) {
            if (i + 1 >= arguments.size())
                return ArgumentExpected;
            const QString &value = arguments.at(++i);
            if (option == QLatin1String("--copy-files-to")) {
                m_copyFilesMode = true;
                m_copyDestination = value;
            } else if (option == QLatin1String("--data-file")) {
                m_hasDataFile = true;
                m_dataFile = value;
            } else {
                m_dataOffsetText = value;
            }
        } else if (option == QLatin1String("--help")) {
            return Help;
        } else if (option == QLatin1String("--silent")) {
            m_showProgress = false;
        } else if (option == QLatin1String("--verbose")) {
            m_verbose = true;
        } else if (option == QLatin1String("--accept-license")) {
            m_licenceAccepted = true;
        }
        // Everything else belongs to the second pass.
    }
    return Continue;
}

quint32 EntryCommandLine::dataOffset() const
{
    bool ok = false;
    const quint32 offset = m_dataOffsetText.toUInt(&ok, 16);
    return ok ? offset : 0;
}

QString EntryCommandLine::helpPage()
{
    return QStringLiteral("Options:\n"
                          "  --accept-license      accept license agreement\n"
                          "  --copy-files-to dir   copy all installation files to dir\n"
                          "  --destination dir     set installation destination directory to dir\n"
                          "  --help                display help page and exit\n"
                          "  --no-upgrade          do a clean installation rather than an upgrade\n"
                          "  --silent              carry out silent installation\n"
                          "\n"
                          "Macros:\n"
                          "  $(Company)            product vendor name\n"
                          "  $(DestDir)            default installation destination directory path\n"
                          "  $(DestName)           default installation destination directory name\n"
                          "  $(OSArch)             operating system architecture\n"
                          "  $(OSAppDir)           operating system application directory\n"
                          "  $(OSRootDir)          operating system root directory\n"
                          "  $(Product)            product name\n"
                          "  $(UserAppDir)         user application directory\n"
                          "  $(Version)            product version number\n");
}
