#pragma once

#include <QTreeWidgetItem>

class InstallConfigurationItem;

// One row of the feature tree, bound to one configuration item; rows of child
// items hang under their parent's row. The row does not own its item.
class CustomItem : public QTreeWidgetItem
{
public:
    enum State { Installed, PartlyInstalled, NotInstalled };

    CustomItem(QTreeWidget *tree, InstallConfigurationItem *item);
    CustomItem(CustomItem *parent, InstallConfigurationItem *item);

    InstallConfigurationItem *item() const { return m_item; }
    // From the item's selection: all of it, part of it (something below will
    // not be installed), or none of it.
    State state() const;
    // Sets the icon of this row and of every row below from the items.
    void refresh();

private:
    void setUp();

    InstallConfigurationItem *m_item;
};
