#include "wizard/installtextdialog.h"

#include "core/macrotable.h"

#include <QLabel>
#include <QVBoxLayout>

InstallTextDialog::InstallTextDialog(
    const QString &title, const QString &text, const QString &nextLabel, quint32 flags, QWidget *parent)
    : InstallWizardDialog(parent)
    , m_text(text)
    , m_label(new QLabel)
{
    setTitle(title);
    setNextLabel(nextLabel);
    setFlags(flags);
    m_label->setTextFormat(Qt::RichText);
    m_label->setWordWrap(true);
    m_label->setAlignment(Qt::AlignLeft | Qt::AlignTop);
    m_label->setTextInteractionFlags(Qt::TextSelectableByMouse);
    auto *layout = new QVBoxLayout(this);
    applyBodySpacing(layout);
    layout->addWidget(m_label);
    layout->addStretch(1);
    prepareShow();
}

InstallTextDialog::~InstallTextDialog() = default;

void InstallTextDialog::setText(const QString &text)
{
    m_text = text;
    prepareShow();
}

void InstallTextDialog::prepareShow()
{
    m_label->setText(expandMacros(m_text));
}
