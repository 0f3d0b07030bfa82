#pragma once

#include "wizard/installfolderfielddialog.h"

class QPushButton;

// Where the product goes: DestDir (and DestName), typed or picked with "...".
class InstallChooseDestinationDialog : public InstallFolderFieldDialog
{
    Q_OBJECT
    Q_DISABLE_COPY(InstallChooseDestinationDialog)

public:
    explicit InstallChooseDestinationDialog(QWidget *parent = nullptr);
    ~InstallChooseDestinationDialog() override;

    QPushButton *browseButton() const { return m_browse; }

private:
    void onBrowseClicked();

    QPushButton *m_browse;
};
