#include "wizard/installchoosedestinationdialog.h"

#include "core/macrotable.h"
#include "wizard/installfolderchooser.h"

#include <QGroupBox>
#include <QLayout>
#include <QPushButton>

InstallChooseDestinationDialog::InstallChooseDestinationDialog(QWidget *parent)
    : InstallFolderFieldDialog(
        QStringLiteral("Setup will install $(Product) $(Version) in the following folder.<p>To "
                       "install to this folder, click Next. To install to a different folder, "
                       "click Browse and select another folder."),
        QStringLiteral("Destination Folder"), QStringLiteral("DestDir"), QStringLiteral("DestName"), parent)
    , m_browse(new QPushButton(QStringLiteral("...")))
{
    setTitle(QStringLiteral("Choose Destination Location"));
    setDescription(QStringLiteral("Select folder where Setup will install files."));
    m_browse->setObjectName(QStringLiteral("browse"));
    group()->layout()->addWidget(m_browse);
    connect(m_browse, &QPushButton::clicked, this, &InstallChooseDestinationDialog::onBrowseClicked);
}

InstallChooseDestinationDialog::~InstallChooseDestinationDialog() = default;

void InstallChooseDestinationDialog::onBrowseClicked()
{
    const QString folder = InstallFolderChooser::choose(this,
        QStringLiteral("Please select destination folder."), expandMacros(QStringLiteral("$(DestDir)")));
    if (folder.isEmpty())
        return;
    setFolder(folder);
}
