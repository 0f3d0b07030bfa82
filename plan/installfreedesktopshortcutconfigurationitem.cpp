#include "plan/installfreedesktopshortcutconfigurationitem.h"

#include "core/fileutils.h"
#include "core/installexception.h"
#include "core/macrotable.h"
#include "core/places.h"
#include "plan/desktopcacheupdate.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>

namespace {

// Desktop entries separate arguments with spaces, so spaces inside a path
// are escaped.
QString escapeSpaces(const QString &path)
{
    QString escaped = path;
    return escaped.replace(QLatin1Char(' '), QStringLiteral("\\ "));
}

// Characters a desktop entry's command line reserves besides the space.
bool needsQuoting(const QString &path)
{
    static const QString reserved = QStringLiteral("\t\n\"'\\<>~|&;$*?#()`%");
    return std::any_of(path.cbegin(), path.cend(), [](QChar c) { return reserved.contains(c); });
}

// The value escapes of a desktop entry string: a backslash, a line break or
// a tab would otherwise end or change the value.
QString escapeValue(const QString &text)
{
    QString escaped;
    for (const QChar c : text) {
        if (c == QLatin1Char('\\'))
            escaped += QStringLiteral("\\\\");
        else if (c == QLatin1Char('\n'))
            escaped += QStringLiteral("\\n");
        else if (c == QLatin1Char('\t'))
            escaped += QStringLiteral("\\t");
        else
            escaped += c;
    }
    return escaped;
}

// A path with spaces alone keeps the backslash-space form menus have always
// read; one with any other reserved character is quoted as the format says
// (a backslash before " ` $ and itself, % doubled), then value-escaped.
QString commandValue(const QString &path)
{
    if (!needsQuoting(path))
        return escapeSpaces(path);
    QString quoted;
    for (const QChar c : path) {
        if (c == QLatin1Char('"') || c == QLatin1Char('`') || c == QLatin1Char('$') || c == QLatin1Char('\\'))
            quoted += QLatin1Char('\\');
        quoted += c == QLatin1Char('%') ? QStringLiteral("%%") : QString(c);
    }
    return escapeValue(QLatin1Char('"') + quoted + QLatin1Char('"'));
}

} // namespace

InstallFreeDesktopShortcutConfigurationItem::InstallFreeDesktopShortcutConfigurationItem(quint32 systemWide,
    const QString &vendor, const QString &name, const QString &exec, const QString &icon, bool terminal,
    bool startupNotify, const QString &categories, const QString &mimeTypes, InstallConfigurationItem *parent,
    const QString &title, const QString &description, int level, bool visible)
    : InstallConfigurationItem(parent, title, description, level, visible, AllFlags)
    , m_systemWide(systemWide)
    , m_dataFolder(systemWide == 1 ? Places::systemDataFolder() : Places::userDataFolder())
    , m_name(name)
    , m_exec(exec)
    , m_icon(icon)
    , m_terminal(terminal)
    , m_startupNotify(startupNotify)
    , m_categories(categories)
    , m_mimeTypes(mimeTypes)
{
    QString vendorPart = expandMacros(vendor);
    vendorPart.remove(QLatin1Char(' '));
    QString namePart = expandMacros(name);
    namePart.replace(QLatin1Char(' '), QLatin1Char('-'));
    m_shortcutPath = applicationsFolder() + QLatin1Char('/') + vendorPart.toLower() + QLatin1Char('-')
        + namePart.toLower() + QStringLiteral(".desktop");
}

QString InstallFreeDesktopShortcutConfigurationItem::applicationsFolder() const
{
    return m_dataFolder + QStringLiteral("/applications");
}

void InstallFreeDesktopShortcutConfigurationItem::installAction()
{
    // A desktop without an applications folder gets no menu entry; that is
    // not worth failing the installation for.
    if (!FileUtils::makePath(applicationsFolder()))
        return;

    const QString name = expandMacros(m_name);
    const QString program = expandMacros(m_exec);
    QString entry = QStringLiteral("[Desktop Entry]\n"
                                   "Version=1.0\n");
    entry += QStringLiteral("Name=") + name + QLatin1Char('\n');
    entry += QStringLiteral("Comment=") + name + QLatin1Char('\n');
    entry += QStringLiteral("Type=Application\n");
    entry += QStringLiteral("Exec=") + commandValue(program) + QLatin1Char('\n');
    // A path, not a command line: only the value escapes apply.
    entry += QStringLiteral("TryExec=")
        + (needsQuoting(program) ? escapeValue(program) : escapeSpaces(program)) + QLatin1Char('\n');
    if (!m_icon.isEmpty())
        entry += QStringLiteral("Icon=") + escapeSpaces(expandMacros(m_icon)) + QLatin1Char('\n');
    entry += m_terminal ? QStringLiteral("Terminal=true\n") : QStringLiteral("Terminal=false\n");
    entry
        += m_startupNotify ? QStringLiteral("StartupNotify=true\n") : QStringLiteral("StartupNotify=false\n");
    if (m_categories.isEmpty())
        entry += QStringLiteral("NoDisplay=true\n");
    else
        entry += QStringLiteral("Categories=") + m_categories + QLatin1Char('\n');
    if (!m_mimeTypes.isEmpty())
        entry += QStringLiteral("MimeType=") + m_mimeTypes + QLatin1Char('\n');
    // The file is replaced whole: a link planted in its place is not followed.
    if (!FileUtils::writeFile(m_shortcutPath, entry.toUtf8()))
        throw InstallException(QStringLiteral("Cannot write .desktop file"));

    updateDesktopDatabase();
}

void InstallFreeDesktopShortcutConfigurationItem::uninstallAction()
{
    if (QFile::exists(m_shortcutPath))
        FileUtils::removeFile(m_shortcutPath);
    updateDesktopDatabase();
}

InstallFootprints InstallFreeDesktopShortcutConfigurationItem::installFootprint() const
{
    const QFileInfo entry(m_shortcutPath);
    return { { entry.absolutePath(), { entry.fileName() }, 0 } };
}

InstallFootprints InstallFreeDesktopShortcutConfigurationItem::removalFootprint() const
{
    const QFileInfo entry(m_shortcutPath);
    return { InstallFootprint::onDisk(entry.absolutePath(), { entry.fileName() }) };
}

void InstallFreeDesktopShortcutConfigurationItem::checkInstalledAction()
{
    setInstalled(QFile::exists(m_shortcutPath) ? fullyInstalled : notInstalled);
}

void InstallFreeDesktopShortcutConfigurationItem::updateDesktopDatabase() const
{
    runDesktopCacheUpdate(
        { QStringLiteral("update-desktop-database"), QStringLiteral("-q"), applicationsFolder() });
}
