#include "wizard/installfolderchooser.h"

#include <QFileDialog>

QString InstallFolderChooser::choose(QWidget *parent, const QString &caption, const QString &startFolder)
{
    QFileDialog dialog(parent, caption, startFolder);
    dialog.setObjectName(QStringLiteral("folder-chooser"));
    dialog.setFileMode(QFileDialog::Directory);
    dialog.setOptions(QFileDialog::ShowDirsOnly | QFileDialog::DontUseNativeDialog);
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty())
        return QString();
    return dialog.selectedFiles().constFirst();
}
