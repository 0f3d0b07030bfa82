#include "wizard/customitem.h"

#include "plan/installconfigurationitem.h"
#include "wizard/wizardresources.h"

namespace {

// Whether every visible item below will be installed.
bool wholeSubtreeSelected(const InstallConfigurationItem *item)
{
    for (const InstallConfigurationItem *child : item->children()) {
        if (!child->isVisible())
            continue;
        if (!child->willInstall() || !wholeSubtreeSelected(child))
            return false;
    }
    return true;
}

} // namespace

CustomItem::CustomItem(QTreeWidget *tree, InstallConfigurationItem *item)
    : QTreeWidgetItem(tree)
    , m_item(item)
{
    setUp();
}

CustomItem::CustomItem(CustomItem *parent, InstallConfigurationItem *item)
    : QTreeWidgetItem(parent)
    , m_item(item)
{
    setUp();
}

CustomItem::State CustomItem::state() const
{
    if (!m_item->willInstall())
        return NotInstalled;
    return wholeSubtreeSelected(m_item) ? Installed : PartlyInstalled;
}

void CustomItem::refresh()
{
    switch (state()) {
    case Installed:
        setIcon(0, WizardResources::installedIcon());
        break;
    case PartlyInstalled:
        setIcon(0, WizardResources::partlyInstalledIcon());
        break;
    case NotInstalled:
        setIcon(0, WizardResources::notInstalledIcon());
        break;
    }
    for (int i = 0; i < childCount(); ++i)
        static_cast<CustomItem *>(child(i))->refresh();
}

void CustomItem::setUp()
{
    setText(1, m_item->title());
    refresh();
}
