#pragma once

#include <QCheckBox>

class InstallConfigurationItem;

// A check box bound to one configuration item: it shows the item's will-install
// value and a toggle sets the item's selection.
class InstallConfigurationItemCheckBox : public QCheckBox
{
    Q_OBJECT
    Q_DISABLE_COPY(InstallConfigurationItemCheckBox)

public:
    InstallConfigurationItemCheckBox(
        const QString &label, InstallConfigurationItem *item, QWidget *parent = nullptr);
    ~InstallConfigurationItemCheckBox() override;

    InstallConfigurationItem *item() const { return m_item; }

signals:
    void willInstallChanged(int install);

private:
    void onToggled(bool checked);

    InstallConfigurationItem *m_item;
};
