#include "core/macrotable.h"

#include "core/places.h"
#include "core/productinfo.h"

#include <QDir>
#include <QFileInfo>

namespace {

QString lastPathComponent(const QString &path)
{
    return path.mid(path.lastIndexOf(QLatin1Char('/')) + 1);
}

} // namespace

MacroTable::Entry &MacroTable::entry(const QString &name)
{
    auto it = m_entries.find(name);
    if (it == m_entries.end()) {
        Entry created;
        // The name goes into the expression as it stands: a name holding
        // expression characters matches more than itself, by contract.
        created.pattern = QRegularExpression(QStringLiteral("\\$\\(") + name + QStringLiteral("\\)"));
        it = m_entries.insert(name, created);
    }
    return it.value();
}

void MacroTable::set(const QString &name, const QString &value)
{
    entry(name).value = value;
}

void MacroTable::setPath(const QString &name, const QString &value)
{
    Entry &e = entry(name);
    e.value = value;
    e.path = true;
}

QString MacroTable::get(const QString &name)
{
    return entry(name).value;
}

bool MacroTable::isPath(const QString &name) const
{
    const auto it = m_entries.constFind(name);
    return it != m_entries.constEnd() && it->path;
}

QString MacroTable::expand(const QString &text) const
{
    const qsizetype room = text.size() + MaxGrowth;
    QString result = text;
    for (qsizetype pass = 0; pass <= m_entries.size(); ++pass) {
        // Every reference starts with "$(", so without one no pass can change anything.
        if (!result.contains(QLatin1String("$(")))
            return result;
        const QString before = result;
        for (auto it = m_entries.constBegin(); it != m_entries.constEnd(); ++it) {
            if (!it->pattern.isValid())
                continue;
            if (!it->value.isEmpty() && !fits(it->pattern, it->value, result, room))
                return before;
            result.replace(it->pattern, it->value);
        }
        if (result == before)
            return result;
    }
    return result;
}

// Whether replacing the pattern's matches in text by value keeps it within
// room characters. A value may refer to the groups of a name that holds
// expression characters, each copying at most the whole text.
bool MacroTable::fits(
    const QRegularExpression &pattern, const QString &value, const QString &text, qsizetype room)
{
    const qsizetype each = pattern.captureCount() > 0 ? value.size() * (text.size() + 1) : value.size();
    qsizetype size = text.size();
    for (auto matches = pattern.globalMatch(text); matches.hasNext();) {
        const qsizetype matched = matches.next().capturedLength();
        if (each - matched > room - size)
            return false;
        size += each - matched;
    }
    return true;
}

void MacroTable::setDefaults()
{
    const QString product = ProductInfo::fullProductName();
    QString destLeaf = (product + QLatin1Char('_') + ProductInfo::version()).toLower();
    destLeaf.replace(QLatin1Char(' '), QLatin1Char('_'));
    const QString destDir = QStringLiteral("$(OSAppDir)/") + destLeaf;
    const QString programFolderDir = QStringLiteral("$(Company)/$(DestName)");
    const QString home = QDir::homePath();

    set(QStringLiteral("Company"), ProductInfo::companyName());
    set(QStringLiteral("Product"), product);
    set(QStringLiteral("Version"), ProductInfo::version());
    set(QStringLiteral("AltArch"), QString());
    setPath(QStringLiteral("SrcDir"), QStringLiteral("$(SrcInstallerDir)"));
    setPath(QStringLiteral("DestDir"), destDir);
    set(QStringLiteral("DestName"), lastPathComponent(destDir));
    setPath(QStringLiteral("ProgramFolderDir"), programFolderDir);
    setPath(QStringLiteral("ProgramFolderName"), lastPathComponent(programFolderDir));
    setPath(QStringLiteral("InstallerDir"), QStringLiteral("$(DestDir)/bin"));
    setPath(QStringLiteral("ProductRegKey"), QStringLiteral("$(Company)/$(Product)"));
    setPath(QStringLiteral("SrcInstallerDir"), QFileInfo(Places::executablePath()).absolutePath());
    setPath(QStringLiteral("CurrentDir"), QDir::currentPath());
    setPath(QStringLiteral("OSRootDir"), QStringLiteral("/"));
    setPath(QStringLiteral("OSDir"), QStringLiteral("/"));
    setPath(QStringLiteral("OSArch"), ProductInfo::architecture());
    setPath(QStringLiteral("OSAppDir"), Places::systemDataFolder());
    setPath(QStringLiteral("UserAppDir"), home + QStringLiteral("/.local/share"));
    setPath(QStringLiteral("HomeDir"), home);
    setPath(QStringLiteral("TmpDir"), Places::temporaryFolder());
}

QString MacroTable::escapeForPattern(const QString &text)
{
    static const QString special = QStringLiteral("\\{}[]():?^$.+*,");
    QString escaped;
    escaped.reserve(text.size() * 2);
    for (const QChar c : text) {
        if (special.contains(c))
            escaped += QLatin1Char('\\');
        escaped += c;
    }
    return escaped;
}

MacroTable &macros()
{
    static MacroTable table;
    return table;
}

QString expandMacros(const QString &text)
{
    return macros().expand(text);
}
