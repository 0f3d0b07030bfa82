#pragma once

#include <QDialog>

class QLabel;
class QLineEdit;

// Asks where something the run needs has gone: the installation folder, one
// file, or the product's folder. The user types or browses to it; OK takes it,
// Cancel means the run cannot go on.
class InstallFindFileDialog : public QDialog
{
    Q_OBJECT
    Q_DISABLE_COPY(InstallFindFileDialog)

public:
    enum Form { InstallationFolder, File, ProductFolder };

    // path: what was looked for (not used by the product-folder form).
    InstallFindFileDialog(Form form, const QString &path, QWidget *parent = nullptr);
    ~InstallFindFileDialog() override;

    Form form() const { return m_form; }
    QString text() const;
    QLineEdit *pathEdit() const { return m_edit; }
    // The place the user gave.
    QString chosenPath() const;

    // Shows the box; OK sets the macro of the form (SrcDir for a file,
    // DestDir for a folder) and returns the place, Cancel returns an empty text.
    QString locate();

private:
    void onBrowseClicked();

    Form m_form;
    QLabel *m_label;
    QLineEdit *m_edit;
};
