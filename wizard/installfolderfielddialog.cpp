#include "wizard/installfolderfielddialog.h"

#include "core/macrotable.h"

#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QVBoxLayout>

InstallFolderFieldDialog::InstallFolderFieldDialog(const QString &text, const QString &groupTitle,
    const QString &folderMacro, const QString &nameMacro, QWidget *parent)
    : InstallWizardDialog(parent)
    , m_text(text)
    , m_folderMacro(folderMacro)
    , m_nameMacro(nameMacro)
    , m_label(new QLabel)
    , m_group(new QGroupBox(groupTitle))
    , m_edit(new QLineEdit)
{
    m_label->setTextFormat(Qt::RichText);
    m_label->setWordWrap(true);
    auto *layout = new QVBoxLayout(this);
    applyBodySpacing(layout);
    layout->addWidget(m_label);
    layout->addStretch(1);
    auto *row = new QHBoxLayout(m_group);
    row->addWidget(m_edit, 1);
    layout->addWidget(m_group);
    connect(m_edit, &QLineEdit::textEdited, this, &InstallFolderFieldDialog::onTextEdited);
    prepareShow();
}

InstallFolderFieldDialog::~InstallFolderFieldDialog() = default;

void InstallFolderFieldDialog::prepareShow()
{
    m_label->setText(expandMacros(m_text));
    m_edit->setText(expandMacros(QStringLiteral("$(") + m_folderMacro + QStringLiteral(")")));
}

void InstallFolderFieldDialog::setFolder(const QString &folder)
{
    onTextEdited(folder);
    prepareShow();
}

void InstallFolderFieldDialog::onTextEdited(const QString &text)
{
    macros().setPath(m_folderMacro, text);
    macros().set(m_nameMacro, text.mid(text.lastIndexOf(QLatin1Char('/')) + 1));
}
