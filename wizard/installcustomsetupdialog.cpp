#include "wizard/installcustomsetupdialog.h"

#include "core/installquestion.h"
#include "plan/installconfigurationlist.h"
#include "wizard/customitem.h"
#include "wizard/wizardresources.h"

#include <QCursor>
#include <QHeaderView>
#include <QLabel>
#include <QMenu>
#include <QTreeWidget>
#include <QVBoxLayout>

namespace {

bool isMaintenance(int mode)
{
    return mode == InstallMode::Modify || mode == InstallMode::Repair || mode == InstallMode::Remove
        || mode == InstallMode::Upgrade;
}

} // namespace

InstallCustomSetupDialog::InstallCustomSetupDialog(InstallConfigurationList *list, QWidget *parent)
    : InstallWizardDialog(parent)
    , m_list(list)
    , m_tree(new QTreeWidget)
    , m_description(new QLabel)
    , m_maintenance(isMaintenance(list->mode()))
{
    setTitle(QStringLiteral("Custom Setup"));
    setDescription(QStringLiteral("Select the program features that you want to install"));

    auto *layout = new QVBoxLayout(this);
    applyBodySpacing(layout);
    auto *hint = new QLabel(
        QStringLiteral("Click on an icon in the list below to change how a feature is installed."));
    hint->setWordWrap(true);
    layout->addWidget(hint);

    m_tree->setColumnCount(2);
    m_tree->setHeaderLabels({ QStringLiteral("Icon"), QStringLiteral("Name") });
    m_tree->header()->setSectionResizeMode(0, QHeaderView::ResizeToContents);
    m_tree->header()->setStretchLastSection(true);
    m_tree->setRootIsDecorated(true);
    m_tree->setUniformRowHeights(true);
    layout->addWidget(m_tree, 1);

    m_description->setTextFormat(Qt::RichText);
    m_description->setWordWrap(true);
    m_description->setAlignment(Qt::AlignLeft | Qt::AlignTop);
    m_description->setFrameStyle(QFrame::StyledPanel | QFrame::Sunken);
    m_description->setMargin(4);
    // Three lines of description, level and status without resizing the tree.
    m_description->setMinimumHeight(m_description->fontMetrics().lineSpacing() * 4 + 10);
    layout->addWidget(m_description);

    m_list->visit<CustomItem *>(nullptr, [this](CustomItem *parentRow, InstallConfigurationItem *item) {
        return parentRow ? new CustomItem(parentRow, item) : new CustomItem(m_tree, item);
    });
    m_tree->expandAll();

    connect(m_tree, &QTreeWidget::itemClicked, this, &InstallCustomSetupDialog::onItemClicked);
    connect(m_tree, &QTreeWidget::currentItemChanged, this, &InstallCustomSetupDialog::onCurrentItemChanged);
    if (m_tree->topLevelItemCount() > 0)
        m_tree->setCurrentItem(m_tree->topLevelItem(0));
}

InstallCustomSetupDialog::~InstallCustomSetupDialog() = default;

CustomItem *InstallCustomSetupDialog::rowOf(const InstallConfigurationItem *item) const
{
    for (QTreeWidgetItemIterator it(m_tree); *it; ++it) {
        auto *row = static_cast<CustomItem *>(*it);
        if (row->item() == item)
            return row;
    }
    return nullptr;
}

void InstallCustomSetupDialog::applyChoice(CustomItem *row, Choice choice)
{
    InstallConfigurationItem *item = row->item();
    switch (choice) {
    case InstallFeature:
    case InstallFeatureAndSubfeatures:
        item->setInstall(true, choice == InstallFeatureAndSubfeatures);
        for (InstallConfigurationItem *ancestor = item->parentItem(); ancestor;
             ancestor = ancestor->parentItem())
            ancestor->setInstall(true);
        break;
    case DoNotInstall:
        if (item->level() == 0) {
            const QString name = item->title();
            const int answer = m_list->question()->ask(QStringLiteral("Remove ") + name + QStringLiteral("?"),
                QStringLiteral("The ") + name
                    + QStringLiteral(
                        " component is required for the minimal installation.<p>Are you sure you want to "
                        "remove it?"),
                InstallQuestion::Yes | InstallQuestion::No, InstallQuestion::No);
            if (answer != InstallQuestion::Yes)
                return;
        }
        item->setInstall(false);
        break;
    }
    refreshIcons();
    onCurrentItemChanged(m_tree->currentItem());
}

void InstallCustomSetupDialog::installationModeChanged(InstallMode::Mode mode)
{
    m_maintenance = isMaintenance(mode);
    refreshIcons();
    onCurrentItemChanged(m_tree->currentItem());
}

void InstallCustomSetupDialog::prepareShow()
{
    refreshIcons();
    onCurrentItemChanged(m_tree->currentItem());
}

void InstallCustomSetupDialog::onItemClicked(QTreeWidgetItem *row, int column)
{
    if (column != 0)
        return;
    QMenu menu(this);
    menu.setObjectName(QStringLiteral("feature-menu"));
    QAction *feature = menu.addAction(WizardResources::partlyInstalledIcon(),
        QStringLiteral("This feature will be installed on the local hard drive."));
    QAction *everything = menu.addAction(WizardResources::installedIcon(),
        QStringLiteral("This feature, and all subfeatures, will be installed on the local hard drive."));
    menu.addSeparator();
    QAction *nothing = menu.addAction(
        WizardResources::notInstalledIcon(), QStringLiteral("This feature will not be available."));
    QAction *chosen = menu.exec(QCursor::pos());
    auto *customRow = static_cast<CustomItem *>(row);
    if (chosen == feature)
        applyChoice(customRow, InstallFeature);
    else if (chosen == everything)
        applyChoice(customRow, InstallFeatureAndSubfeatures);
    else if (chosen == nothing)
        applyChoice(customRow, DoNotInstall);
}

void InstallCustomSetupDialog::onCurrentItemChanged(QTreeWidgetItem *row)
{
    if (!row) {
        m_description->clear();
        return;
    }
    const InstallConfigurationItem *item = static_cast<CustomItem *>(row)->item();
    QString text = QStringLiteral("<b>Description:</b> ") + item->description() + QStringLiteral(".<p>")
        + QStringLiteral("<b>Installation Level:</b> ") + InstallConfigurationItem::levelText(item->level());
    if (m_maintenance)
        text += QStringLiteral("<p><b>Status:</b> ")
            + InstallConfigurationItem::installedText(item->installed());
    m_description->setText(text);
}

void InstallCustomSetupDialog::refreshIcons()
{
    for (int i = 0; i < m_tree->topLevelItemCount(); ++i)
        static_cast<CustomItem *>(m_tree->topLevelItem(i))->refresh();
}
