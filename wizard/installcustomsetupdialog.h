#pragma once

#include "core/installmode.h"
#include "wizard/installwizarddialog.h"

class CustomItem;
class InstallConfigurationItem;
class InstallConfigurationList;
class QLabel;
class QTreeWidget;
class QTreeWidgetItem;

// The feature tree: every visible item of the plan as a row with a state
// icon. A click on the icon offers the three choices; the description area
// explains the selected row. Removing a feature that the minimal installation
// needs is asked about first, through the list's question interface.
class InstallCustomSetupDialog : public InstallWizardDialog
{
    Q_OBJECT
    Q_DISABLE_COPY(InstallCustomSetupDialog)

public:
    // The popup's entries, in menu order.
    enum Choice { InstallFeature = 0, InstallFeatureAndSubfeatures = 1, DoNotInstall = 2 };

    explicit InstallCustomSetupDialog(InstallConfigurationList *list, QWidget *parent = nullptr);
    ~InstallCustomSetupDialog() override;

    QTreeWidget *tree() const { return m_tree; }
    QLabel *descriptionArea() const { return m_description; }
    // The row of an item, null when it is not shown.
    CustomItem *rowOf(const InstallConfigurationItem *item) const;
    // What the popup does for a row once a choice is made.
    void applyChoice(CustomItem *row, Choice choice);

public slots:
    // The status line of the description area shows in maintenance modes only.
    void installationModeChanged(InstallMode::Mode mode);

protected:
    void prepareShow() override;

private:
    void onItemClicked(QTreeWidgetItem *row, int column);
    void onCurrentItemChanged(QTreeWidgetItem *row);
    void refreshIcons();

    InstallConfigurationList *m_list;
    QTreeWidget *m_tree;
    QLabel *m_description;
    bool m_maintenance = false;
};
