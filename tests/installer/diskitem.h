#pragma once

#include "core/installexception.h"
#include "plan/installconfigurationitem.h"

#include <QSet>
#include <QStringList>

#include <functional>

// An item whose "disk" is a set of titles, so that checks after an install
// or a removal see what the actions did.
class DiskItem : public InstallConfigurationItem
{
    Q_OBJECT

public:
    DiskItem(InstallConfigurationItem *parent, const QString &title, QSet<QString> *disk, QStringList *log)
        : InstallConfigurationItem(parent, title, QString(), 0, true, AllFlags)
        , m_disk(disk)
        , m_log(log)
    { }

    // Called inside the action, before it does its work.
    std::function<void()> duringInstall;
    QString failure;

protected:
    void installAction() override
    {
        if (duringInstall)
            duringInstall();
        m_log->append(QStringLiteral("install ") + title());
        if (!failure.isEmpty())
            throw InstallException(failure);
        m_disk->insert(title());
    }
    void uninstallAction() override
    {
        m_log->append(QStringLiteral("remove ") + title());
        m_disk->remove(title());
    }
    void checkInstalledAction() override
    {
        setInstalled(m_disk->contains(title()) ? fullyInstalled : notInstalled);
    }

private:
    QSet<QString> *m_disk;
    QStringList *m_log;
};
