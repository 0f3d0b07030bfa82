#include "plan/installconfigurationstate.h"

#include "core/macrotable.h"
#include "plan/installarchiveconfigurationitem.h"
#include "plan/installconfigurationlist.h"

#include <QDomElement>
#include <QMetaEnum>
#include <QSet>
#include <QXmlStreamWriter>

#include <algorithm>
#include <cctype>

namespace {

const QString planTag = QStringLiteral("plan");
const QString itemTag = QStringLiteral("item");
const QString filesTag = QStringLiteral("files");
const QString fileTag = QStringLiteral("file");

// Percent-encodes '%' and every byte of the UTF-8 form outside printable
// ASCII, so that the text survives the record's conversion to ASCII.
QString encodeText(const QString &text)
{
    static const char hex[] = "0123456789ABCDEF";
    // Most names need nothing encoded: those are kept as they are, without a copy.
    const auto plain = [](QChar c) {
        return c.unicode() >= 0x20 && c.unicode() < 0x7f && c != QLatin1Char('%');
    };
    if (std::all_of(text.begin(), text.end(), plain))
        return text;
    QString encoded;
    for (const char c : text.toUtf8()) {
        const auto byte = uchar(c);
        if (byte < 0x20 || byte >= 0x7f || byte == '%') {
            encoded += QLatin1Char('%');
            encoded += QLatin1Char(hex[byte >> 4]);
            encoded += QLatin1Char(hex[byte & 0xf]);
        } else {
            encoded += QLatin1Char(c);
        }
    }
    return encoded;
}

// The inverse of encodeText; false for text that encodeText cannot have made.
bool decodeText(const QString &encoded, QString &text)
{
    for (const QChar c : encoded) {
        if (c.unicode() < 0x20 || c.unicode() >= 0x7f)
            return false;
    }
    const QByteArray bytes = encoded.toLatin1();
    for (qsizetype i = bytes.indexOf('%'); i >= 0; i = bytes.indexOf('%', i + 1)) {
        if (i + 2 >= bytes.size() || !isxdigit(uchar(bytes[i + 1])) || !isxdigit(uchar(bytes[i + 2])))
            return false;
    }
    text = QString::fromUtf8(QByteArray::fromPercentEncoding(bytes));
    return true;
}

QString className(const InstallConfigurationItem *item)
{
    return QString::fromLatin1(item->metaObject()->className());
}

const QMetaEnum &installedStates()
{
    static const QMetaEnum states = QMetaEnum::fromType<InstallConfigurationItem::InstalledState>();
    return states;
}

bool writeItem(const InstallConfigurationItem *item, QXmlStreamWriter &writer)
{
    writer.writeStartElement(itemTag);
    writer.writeAttribute(QStringLiteral("class"), className(item));
    writer.writeAttribute(QStringLiteral("title"), encodeText(item->title()));
    writer.writeAttribute(
        QStringLiteral("installed"), QString::fromLatin1(installedStates().valueToKey(item->installed())));
    writer.writeAttribute(
        QStringLiteral("install"), item->installFlag() ? QStringLiteral("true") : QStringLiteral("false"));

    const auto *archive = qobject_cast<const InstallArchiveConfigurationItem *>(item);
    if (archive && archive->filesKnown()) {
        writer.writeStartElement(filesTag);
        for (const QString &name : archive->files()) {
            writer.writeEmptyElement(fileTag);
            writer.writeAttribute(QStringLiteral("name"), encodeText(name));
        }
        writer.writeEndElement();
    }

    QSet<QString> keys;
    for (const InstallConfigurationItem *child : item->children()) {
        const QString key = className(child) + QLatin1Char('\n') + child->title();
        if (keys.contains(key))
            return false;
        keys.insert(key);
        if (!writeItem(child, writer))
            return false;
    }
    writer.writeEndElement();
    return true;
}

// The child elements of element, or false when one is not one of the
// allowed names (text and comments are ignored).
bool childElements(const QDomElement &element, const QStringList &allowed, QList<QDomElement> &children)
{
    for (QDomNode node = element.firstChild(); !node.isNull(); node = node.nextSibling()) {
        if (!node.isElement())
            continue;
        const QDomElement child = node.toElement();
        if (!allowed.contains(child.tagName()))
            return false;
        children.append(child);
    }
    return true;
}

} // namespace

// A file an item wrote is named relative to its folder, as archive members
// are: a record naming anything else was not written by this installer.
bool InstallConfigurationState::isPlainRelativeName(const QString &name)
{
    if (name.isEmpty() || name.startsWith(QLatin1Char('/')) || name.contains(QChar(0)))
        return false;
    for (const QStringView part : QStringView(name).split(QLatin1Char('/'))) {
        if (part.isEmpty() || part == QLatin1String(".") || part == QLatin1String(".."))
            return false;
    }
    return true;
}

bool InstallConfigurationState::write(const InstallConfigurationList &list, QXmlStreamWriter &writer)
{
    writer.writeStartElement(planTag);
    writer.writeAttribute(QStringLiteral("version"), encodeText(expandMacros(QStringLiteral("$(Version)"))));
    if (!writeItem(&list, writer))
        return false;
    writer.writeEndElement();
    return true;
}

bool InstallConfigurationState::read(const QDomElement &element, InstallConfigurationList &list)
{
    m_items.clear();
    m_currentVersion = expandMacros(QStringLiteral("$(Version)"));
    QList<QDomElement> roots;
    if (element.tagName() != planTag
        || !decodeText(element.attribute(QStringLiteral("version")), m_recordedVersion)
        || !childElements(element, { itemTag }, roots) || roots.size() != 1 || !matches(roots.first(), &list)
        || !readItem(roots.first(), &list)) {
        m_items.clear();
        return false;
    }
    return true;
}

void InstallConfigurationState::apply() const
{
    // Parents come first: selecting a parent selects its required children,
    // and each child's own record then has the last word.
    for (const ItemState &state : m_items) {
        state.item->setInstall(state.install);
        state.item->setInstalled(state.installed);
        if (state.filesKnown)
            static_cast<InstallArchiveConfigurationItem *>(state.item)->setFiles(state.files);
    }
}

bool InstallConfigurationState::matches(
    const QDomElement &element, const InstallConfigurationItem *item) const
{
    QString title;
    if (element.attribute(QStringLiteral("class")) != className(item)
        || !element.hasAttribute(QStringLiteral("title"))
        || !decodeText(element.attribute(QStringLiteral("title")), title))
        return false;
    if (title == item->title())
        return true;
    return !m_recordedVersion.isEmpty() && m_recordedVersion != m_currentVersion
        && title.replace(m_recordedVersion, m_currentVersion) == item->title();
}

bool InstallConfigurationState::readItem(const QDomElement &element, InstallConfigurationItem *item)
{
    ItemState state { item, InstallConfigurationItem::notInstalled, false, false, {} };

    bool known = false;
    const int installed = installedStates().keyToValue(
        element.attribute(QStringLiteral("installed")).toLatin1().constData(), &known);
    if (!known)
        return false;
    state.installed = InstallConfigurationItem::InstalledState(installed);

    const QString install = element.attribute(QStringLiteral("install"));
    if (install != QLatin1String("true") && install != QLatin1String("false"))
        return false;
    state.install = install == QLatin1String("true");

    QList<QDomElement> children;
    if (!childElements(element, { itemTag, filesTag }, children))
        return false;

    // Files and child items are checked in full before this item's state is
    // kept, but the item is listed before its children so that apply() goes
    // parents first.
    const qsizetype position = m_items.size();
    QSet<const InstallConfigurationItem *> matched;
    for (const QDomElement &child : children) {
        if (child.tagName() == filesTag) {
            QList<QDomElement> files;
            if (state.filesKnown || !qobject_cast<InstallArchiveConfigurationItem *>(item)
                || !childElements(child, { fileTag }, files))
                return false;
            state.filesKnown = true;
            for (const QDomElement &file : files) {
                QString name;
                if (!file.hasAttribute(QStringLiteral("name"))
                    || !decodeText(file.attribute(QStringLiteral("name")), name)
                    || !isPlainRelativeName(name))
                    return false;
                state.files.append(name);
            }
            continue;
        }
        InstallConfigurationItem *counterpart = nullptr;
        for (InstallConfigurationItem *candidate : item->children()) {
            if (!matched.contains(candidate) && matches(child, candidate)) {
                counterpart = candidate;
                break;
            }
        }
        if (!counterpart)
            return false;
        matched.insert(counterpart);
        if (!readItem(child, counterpart))
            return false;
    }
    m_items.insert(position, state);
    return true;
}
