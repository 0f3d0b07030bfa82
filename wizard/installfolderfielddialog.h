#pragma once

#include "wizard/installwizarddialog.h"

class QLineEdit;
class QGroupBox;

// A page whose one field is a folder kept in a pair of macros: the folder
// itself and its last path component (DestDir and DestName, for instance).
// Every edit updates both at once, so a text shown later with the macros
// already names the folder being typed.
class InstallFolderFieldDialog : public InstallWizardDialog
{
    Q_OBJECT
    Q_DISABLE_COPY(InstallFolderFieldDialog)

public:
    ~InstallFolderFieldDialog() override;

    QLineEdit *folderEdit() const { return m_edit; }

protected:
    InstallFolderFieldDialog(const QString &text, const QString &groupTitle, const QString &folderMacro,
        const QString &nameMacro, QWidget *parent);

    void prepareShow() override;
    // The group box in which a derived page may add its own controls.
    QGroupBox *group() const { return m_group; }
    // Sets both macros from a folder and shows it.
    void setFolder(const QString &folder);

private:
    void onTextEdited(const QString &text);

    QString m_text;
    QString m_folderMacro;
    QString m_nameMacro;
    class QLabel *m_label;
    QGroupBox *m_group;
    QLineEdit *m_edit;
};
