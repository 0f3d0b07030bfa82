#pragma once

#include "plan/installfootprint.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

class InstallConfigurationItem;
class InstallConfigurationList;

// What an operation would do, worked out from the plan as it now stands
// (mode, selection, installed states) without changing anything: the items
// it removes and installs with their files and bytes, the space each file
// system needs against what it has free, and the files that stay, go or are
// replaced. The space check before an operation and the dry run both use it.
// User-interface thread only.
class InstallDeploymentPlan
{
public:
    struct Step
    {
        const InstallConfigurationItem *item;
        bool removes;
        bool installs;
        InstallFootprints writes;
        InstallFootprints deletions;
    };
    struct FileSystem
    {
        QString mount;
        quint64 needed = 0;
        quint64 freed = 0;
        quint64 free = 0;
        quint64 blockSize = 0;
    };

    // removes and installs: whether the operation has a removal walk and an
    // installation walk. Throws InstallException when the medium cannot be
    // read.
    InstallDeploymentPlan(InstallConfigurationList *list, bool removes, bool installs);

    // Sorts the files the steps delete into replaced and removed, and finds
    // the files below destination that stay (the user's own); the
    // bookkeeping files (record, manifest) are written after the walks and
    // are none of them.
    void compareFiles(const QString &destination, const QStringList &bookkeeping);

    const QList<Step> &steps() const { return m_steps; }
    const QList<FileSystem> &fileSystems() const { return m_fileSystems; }
    // "not enough space on MOUNT: N MB needed, M MB free" for the first file
    // system short of room; empty when everything fits.
    QString spaceShortage() const;

    QString text(const QString &mode, const QString &destination) const;
    QByteArray json(const QString &mode, const QString &destination) const;

private:
    void addStep(InstallConfigurationItem *item, bool removes, bool installs);
    FileSystem &fileSystemOf(const QString &folder);

    QList<Step> m_steps;
    QList<FileSystem> m_fileSystems;
    QList<quint64> m_devices;
    QStringList m_replaced;
    QStringList m_removed;
    QStringList m_kept;
};
