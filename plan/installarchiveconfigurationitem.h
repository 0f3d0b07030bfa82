#pragma once

#include "plan/installconfigurationitem.h"

#include <QStringList>

// Extracts one top-level folder of the installation medium (for example
// "bin") into a destination folder (for example "$(DestDir)/bin"), and removes
// what it extracted. The names of the folder's files are learnt from the
// medium at installation; a later run restores them through the files
// property (from the installation record) so that it can check and remove.
class InstallArchiveConfigurationItem : public InstallConfigurationItem
{
    Q_OBJECT
    Q_DISABLE_COPY(InstallArchiveConfigurationItem)
    Q_PROPERTY(QStringList files READ files WRITE setFiles)

public:
    enum Option : quint32 {
        ExtractOnInstall = 1,
        RemoveOnUninstall = 2,
    };

    InstallArchiveConfigurationItem(InstallConfigurationItem *parent, const QString &title,
        const QString &description, int level, bool visible, quint32 flags, const QString &archiveName,
        const QString &destination, quint32 options);

    QString archiveName() const { return m_archiveName; }
    // Unexpanded.
    QString destination() const { return m_destination; }
    quint32 options() const { return m_options; }

    QStringList files() const { return m_files; }
    void setFiles(const QStringList &files);
    bool filesKnown() const { return m_filesKnown; }

public slots:
    // The medium reports each file's size once it is written; the item adds
    // them up, so that its progress ends at the total it announced (both in
    // units of 1024 bytes).
    void extractedFile(quint64 bytesExtracted);

    InstallFootprints installFootprint() const override;
    InstallFootprints removalFootprint() const override;

protected:
    void installAction() override;
    void uninstallAction() override;
    void checkInstalledAction() override;

private:
    // Progress is counted in KiB, so that a product of any size fits the bar.
    void reportBytes(quint64 bytes);
    QString m_archiveName;
    QString m_destination;
    quint32 m_options;
    QStringList m_files;
    bool m_filesKnown = false;
    quint64 m_bytesExtracted = 0;
};
