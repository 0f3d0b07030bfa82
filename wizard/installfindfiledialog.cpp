#include "wizard/installfindfiledialog.h"

#include "core/macrotable.h"
#include "wizard/installfolderchooser.h"

#include <QDialogButtonBox>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

namespace {

QString titleOf(InstallFindFileDialog::Form form)
{
    switch (form) {
    case InstallFindFileDialog::InstallationFolder:
        return QStringLiteral("Locate Installation Folder");
    case InstallFindFileDialog::File:
        return QStringLiteral("Locate File");
    case InstallFindFileDialog::ProductFolder:
        return QStringLiteral("Locate $(Product) Folder");
    }
    return QString();
}

QString textOf(InstallFindFileDialog::Form form, const QString &path)
{
    switch (form) {
    case InstallFindFileDialog::InstallationFolder:
        // A paragraph break keeps the path apart from the request that follows it.
        return QStringLiteral("<p>Cannot find the directory named:<p>") + path + QStringLiteral("<p>")
            + QStringLiteral(
                "Please locate the '$(Product) $(Version)' installation folder\nand then click OK to "
                "continue. Click Cancel to terminate installation.");
    case InstallFindFileDialog::File:
        return QStringLiteral("<p>Cannot find the file named:<p>") + path
            + QStringLiteral("<p>Please locate the ") + QFileInfo(path).fileName()
            + QStringLiteral(" file and then click OK to continue. Click Cancel to terminate installation.");
    case InstallFindFileDialog::ProductFolder:
        return QStringLiteral(
            "Please locate the '$(Product) $(Version)' folder\nand then click OK to continue. Click "
            "Cancel to terminate installation.");
    }
    return QString();
}

} // namespace

InstallFindFileDialog::InstallFindFileDialog(Form form, const QString &path, QWidget *parent)
    : QDialog(parent)
    , m_form(form)
    , m_label(new QLabel(expandMacros(textOf(form, path))))
    , m_edit(new QLineEdit(path))
{
    setWindowTitle(expandMacros(titleOf(form)));
    setModal(true);
    m_label->setTextFormat(Qt::RichText);
    m_label->setWordWrap(true);
    m_label->setMinimumWidth(420);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(12, 12, 12, 12);
    layout->setSpacing(8);
    layout->addWidget(m_label);
    auto *row = new QHBoxLayout;
    row->addWidget(m_edit, 1);
    auto *browse = new QPushButton(QStringLiteral("..."));
    browse->setObjectName(QStringLiteral("browse"));
    browse->setAutoDefault(false);
    row->addWidget(browse);
    layout->addLayout(row);
    auto *buttons = new QDialogButtonBox;
    buttons->addButton(QStringLiteral("&OK"), QDialogButtonBox::AcceptRole)->setDefault(true);
    buttons->addButton(QStringLiteral("&Cancel"), QDialogButtonBox::RejectRole);
    layout->addWidget(buttons);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(browse, &QPushButton::clicked, this, &InstallFindFileDialog::onBrowseClicked);
}

InstallFindFileDialog::~InstallFindFileDialog() = default;

QString InstallFindFileDialog::text() const
{
    return m_label->text();
}

QString InstallFindFileDialog::chosenPath() const
{
    return m_edit->text().trimmed();
}

QString InstallFindFileDialog::locate()
{
    if (exec() != QDialog::Accepted || chosenPath().isEmpty())
        return QString();
    const QString place = chosenPath();
    if (m_form == File)
        macros().setPath(QStringLiteral("SrcDir"), QFileInfo(place).absolutePath());
    else
        macros().setPath(QStringLiteral("DestDir"), place);
    return place;
}

void InstallFindFileDialog::onBrowseClicked()
{
    const QString start = m_form == File ? QFileInfo(chosenPath()).absolutePath() : chosenPath();
    const QString folder
        = InstallFolderChooser::choose(this, QStringLiteral("Please locate installation folder."), start);
    if (folder.isEmpty())
        return;
    m_edit->setText(m_form == File ? folder + QLatin1Char('/') + QFileInfo(chosenPath()).fileName() : folder);
}
