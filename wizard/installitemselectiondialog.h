#pragma once

#include "wizard/installwizarddialog.h"

#include <QList>

#include <functional>

class InstallConfigurationItem;
class InstallConfigurationItemCheckBox;
class InstallConfigurationList;
class QLabel;

// A page that lists some items of the plan with a check box each. Which
// items it offers is a filter over the plan's visible items; the controller
// passes over a page that lists none.
class InstallItemSelectionDialog : public InstallWizardDialog
{
    Q_OBJECT
    Q_DISABLE_COPY(InstallItemSelectionDialog)

public:
    using Filter = std::function<bool(const InstallConfigurationItem *)>;

    ~InstallItemSelectionDialog() override;

    int rowCount() const { return m_rows.size(); }
    const QList<InstallConfigurationItemCheckBox *> &rows() const { return m_rows; }

protected:
    // Each row reads labelPrefix + item title + labelSuffix.
    InstallItemSelectionDialog(const QString &title, const QString &description, const QString &text,
        InstallConfigurationList *list, const Filter &filter, const QString &labelPrefix,
        const QString &labelSuffix, QWidget *parent);

    void prepareShow() override;

private:
    QString m_text;
    QLabel *m_label;
    QList<InstallConfigurationItemCheckBox *> m_rows;
};
