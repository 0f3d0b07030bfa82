#include "wizard/installconfigurationitemcheckbox.h"

#include "plan/installconfigurationitem.h"

InstallConfigurationItemCheckBox::InstallConfigurationItemCheckBox(
    const QString &label, InstallConfigurationItem *item, QWidget *parent)
    : QCheckBox(label, parent)
    , m_item(item)
{
    setChecked(item->willInstall());
    connect(this, &QCheckBox::toggled, this, &InstallConfigurationItemCheckBox::onToggled);
    connect(this, &InstallConfigurationItemCheckBox::willInstallChanged, item,
        [item](int install) { item->setInstall(install != 0); });
    // The selection may also change elsewhere (the mode, a parent).
    connect(item, &InstallConfigurationItem::willInstallChanged, this, [this](int install) {
        const QSignalBlocker blocker(this);
        setChecked(install != 0);
    });
}

InstallConfigurationItemCheckBox::~InstallConfigurationItemCheckBox() = default;

void InstallConfigurationItemCheckBox::onToggled(bool checked)
{
    emit willInstallChanged(checked ? 1 : 0);
}
