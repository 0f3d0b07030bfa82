#include "wizard/installmodechoicedialog.h"

#include "core/macrotable.h"

#include <QButtonGroup>
#include <QGridLayout>
#include <QGroupBox>
#include <QLabel>
#include <QRadioButton>
#include <QVBoxLayout>

InstallModeChoiceDialog::InstallModeChoiceDialog(const QString &groupTitle, QWidget *parent)
    : InstallWizardDialog(parent)
    , m_choices(new QButtonGroup(this))
    , m_grid(new QGridLayout)
{
    auto *layout = new QVBoxLayout(this);
    applyBodySpacing(layout);
    auto *group = new QGroupBox(groupTitle);
    m_grid->setHorizontalSpacing(16);
    m_grid->setVerticalSpacing(12);
    m_grid->setColumnStretch(1, 1);
    group->setLayout(m_grid);
    layout->addWidget(group);
    layout->addStretch(1);
    connect(m_choices, &QButtonGroup::idClicked, this,
        [this](int id) { emit modeChosen(static_cast<InstallMode::Mode>(id)); });
}

InstallModeChoiceDialog::~InstallModeChoiceDialog() = default;

void InstallModeChoiceDialog::installationModeChanged(InstallMode::Mode mode)
{
    if (QAbstractButton *button = m_choices->button(mode))
        button->setChecked(true);
}

void InstallModeChoiceDialog::addChoice(
    InstallMode::Mode mode, const QString &label, const QString &description)
{
    auto *button = new QRadioButton(label);
    auto *text = new QLabel(expandMacros(description));
    text->setWordWrap(true);
    text->setTextFormat(Qt::RichText);
    text->setBuddy(button);
    // Puts the description's first line level with the button's label.
    text->setContentsMargins(
        0, qMax(0, (button->sizeHint().height() - text->fontMetrics().height()) / 2), 0, 0);
    const int row = m_grid->rowCount();
    m_grid->addWidget(button, row, 0, Qt::AlignTop);
    m_grid->addWidget(text, row, 1, Qt::AlignTop);
    m_choices->addButton(button, mode);
}
