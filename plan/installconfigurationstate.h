#pragma once

#include "plan/installconfigurationitem.h"

#include <QList>
#include <QStringList>

class InstallArchiveConfigurationItem;
class InstallConfigurationList;
class QDomElement;
class QXmlStreamWriter;

// What a later run needs to know about the items of a plan: for every item
// its installed state and its selection, and for archive items the names of
// the files they extracted, so that a removal, repair or upgrade removes
// exactly those. Written into the installation record as one element that
// mirrors the tree:
//
//   <plan version="5.50a">
//    <item class="ConfigurationList" title="Install Configuration List" installed="fullyInstalled"
//    install="true">
//     <item class="InstallArchiveConfigurationItem" title="Binary Files" ...>
//      <files>
//       <file name="Quilmor"/>
//
// An item is known by its class and its title among its parent's children,
// so a record never restores one item's state into another item that was
// renamed, moved or reordered. Titles that name the version (the product
// group) still match when the record comes from another version. Titles and
// file names are stored with every byte outside printable ASCII
// percent-encoded, so that they survive the record's ASCII conversion.
//
// Reading checks the whole element first and applies nothing until apply():
// a damaged element, or one from another layout (an item that this plan does
// not have), leaves the plan as it was.
class InstallConfigurationState
{
public:
    // Writes the element; false when two siblings have the same class and
    // title, which a later run could not tell apart.
    static bool write(const InstallConfigurationList &list, QXmlStreamWriter &writer);

    // Matches element against list; false, with nothing kept, when the
    // element is damaged or from another layout.
    bool read(const QDomElement &element, InstallConfigurationList &list);
    // Gives every matched item its recorded state, parents first.
    void apply() const;

    // Relative, with no empty, "." or ".." part and no zero byte: the names
    // archive members may have, and the only ones a record or manifest may hold.
    static bool isPlainRelativeName(const QString &name);

private:
    struct ItemState
    {
        InstallConfigurationItem *item;
        InstallConfigurationItem::InstalledState installed;
        bool install;
        bool filesKnown;
        QStringList files;
    };

    bool readItem(const QDomElement &element, InstallConfigurationItem *item);
    bool matches(const QDomElement &element, const InstallConfigurationItem *item) const;

    QString m_recordedVersion;
    QString m_currentVersion;
    QList<ItemState> m_items;
};
