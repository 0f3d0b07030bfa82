#include "wizard/installitemselectiondialog.h"

#include "core/macrotable.h"
#include "plan/installconfigurationlist.h"
#include "wizard/installconfigurationitemcheckbox.h"

#include <QLabel>
#include <QScrollArea>
#include <QVBoxLayout>

InstallItemSelectionDialog::InstallItemSelectionDialog(const QString &title, const QString &description,
    const QString &text, InstallConfigurationList *list, const Filter &filter, const QString &labelPrefix,
    const QString &labelSuffix, QWidget *parent)
    : InstallWizardDialog(parent)
    , m_text(text)
    , m_label(new QLabel)
{
    setTitle(title);
    setDescription(description);
    m_label->setTextFormat(Qt::RichText);
    m_label->setWordWrap(true);

    auto *layout = new QVBoxLayout(this);
    applyBodySpacing(layout);
    layout->addWidget(m_label);

    auto *rows = new QWidget;
    auto *rowLayout = new QVBoxLayout(rows);
    rowLayout->setContentsMargins(4, 4, 4, 4);
    rowLayout->setSpacing(4);
    list->visit<int>(0, [&](int, InstallConfigurationItem *item) {
        if (filter(item)) {
            auto *row = new InstallConfigurationItemCheckBox(labelPrefix + item->title() + labelSuffix, item);
            rowLayout->addWidget(row);
            m_rows.append(row);
        }
        return 0;
    });
    rowLayout->addStretch(1);
    auto *scroll = new QScrollArea;
    scroll->setWidget(rows);
    scroll->setWidgetResizable(true);
    layout->addWidget(scroll, 1);
    prepareShow();
}

InstallItemSelectionDialog::~InstallItemSelectionDialog() = default;

void InstallItemSelectionDialog::prepareShow()
{
    m_label->setText(expandMacros(m_text));
}
