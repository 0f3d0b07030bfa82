#pragma once

#include "media/installmedia.h"

// A medium that is a plain directory tree, usually the folder the installer
// was started from. Only regular files count; symbolic links and other kinds
// are neither listed nor followed.
class FileStoreInstallMedia : public InstallMedia
{
    Q_OBJECT
    Q_DISABLE_COPY(FileStoreInstallMedia)

public:
    explicit FileStoreInstallMedia(const QString &root, QObject *parent = nullptr);

    QString root() const { return m_root; }

    // Names in a stable order: each folder's entries sorted by name, files
    // and folders alike, depth first.
    QStringList list(const QString &folder, quint64 &totalSize) override;
    quint64 totalSize() override;
    void copyFiles(
        const QString &sourceFolder, const QStringList &files, const QString &destinationFolder) override;

private:
    QString m_root;
};
