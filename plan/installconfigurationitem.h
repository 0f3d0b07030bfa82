#pragma once

#include "plan/installfootprint.h"

#include <QList>
#include <QObject>
#include <QString>

#include <climits>

class InstallConfigurationList;
class InstallQuestion;

// One node of the installation plan: an installable component or an action
// (copy files, extract an archive folder, write a shortcut, ...). The base
// supplies the tree, the selection rules, the installed state, the walks that
// run the actions of a whole subtree, and the questions asked when an action
// fails; each kind supplies its three actions.
//
// An item is created with its parent item, which owns it (object parent) and
// lists it among its children in creation order; the topmost item is the
// configuration list, through which items reach the run's mode, questions and
// medium and on which they announce their work. User-interface thread only.
class InstallConfigurationItem : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY(InstallConfigurationItem)
    Q_PROPERTY(bool install READ willInstall WRITE setInstall)
    Q_PROPERTY(InstalledState installed READ installed WRITE setInstalled)

public:
    enum InstalledState { notInstalled = 0, partiallyInstalled = 1, fullyInstalled = 2 };
    Q_ENUM(InstalledState)

    enum Flag : quint32 {
        // Without it an item is never installed and never shown.
        EnabledFlag = 0x10000,
        AllFlags = 0xffffffff,
    };

    // title and description may hold macros; they are expanded here, once.
    InstallConfigurationItem(InstallConfigurationItem *parent, const QString &title,
        const QString &description, int level, bool visible, quint32 flags);
    ~InstallConfigurationItem() override;

    QString title() const { return m_title; }
    QString description() const { return m_description; }
    int level() const { return m_level; }
    quint32 flags() const { return m_flags; }
    bool isEnabled() const { return m_flags & EnabledFlag; }
    // Both the visible flag and the enabled flag.
    bool isVisible() const { return m_visible && isEnabled(); }
    // The user's selection, before the mode and the parents are considered.
    bool installFlag() const { return m_install; }
    bool uninstallFlag() const { return m_uninstall; }
    InstalledState installed() const { return m_installed; }

    bool willInstall() const;
    bool willUninstall() const;

    // What the install action would write (from the medium's sizes) and what
    // the uninstall action would delete (as it is on disk now), without
    // doing either; nothing for an item that writes no file. A medium that
    // cannot be read throws, as the action would.
    virtual InstallFootprints installFootprint() const;
    virtual InstallFootprints removalFootprint() const;

    InstallConfigurationItem *parentItem() const { return m_parentItem; }
    const QList<InstallConfigurationItem *> &children() const { return m_children; }
    // The topmost item when it is a configuration list, else null.
    InstallConfigurationList *list() const;

    // The list's question interface; by the silent rules when the item is not
    // part of a list.
    InstallQuestion *question() const;

    // The item and all its descendants.
    int itemCount() const;

    // Calls visitor(context, item) on every enabled and visible item of the
    // subtree, parents before children; what it returns is the context of the
    // item's children. A hidden item is passed over with all its descendants.
    // This item is given to the visitor only when includeSelf is set.
    template<typename Context, typename Visitor>
    void visit(const Context &context, Visitor &&visitor, bool includeSelf = false)
    {
        if (includeSelf) {
            visitItem(this, context, visitor);
            return;
        }
        for (InstallConfigurationItem *child : m_children)
            visitItem(child, context, visitor);
    }

    // "Required for minimal installation." and its siblings; empty for a
    // level that has no text.
    static QString levelText(int level);
    static QString installedText(InstalledState state);

public slots:
    // Installs the subtree, parents first, children in creation order.
    bool install();
    // Removes the subtree: children last to first, then this item.
    bool uninstall();
    // Finds out what of the subtree is installed, in the order of uninstall().
    // False when an item could not be checked.
    bool checkInstalled();
    void setInstall(bool install, bool recursive = false);
    void setInstalled(InstallConfigurationItem::InstalledState installed, bool recursive = false);
    void setUninstall(bool uninstall);
    // Announces a changed will-install value here and below.
    void checkWillInstall();

signals:
    void totalSteps(int steps);
    void progress(int step);
    void progress(const QString &string);
    void willInstallChanged(int install);

protected:
    // The item's own work. Failures throw InstallException with a message;
    // InstallUserCancelException ends the run.
    virtual void installAction();
    virtual void uninstallAction();
    // Sets the installed state from what is on disk. Throwing InstallException
    // makes checkInstalled() fail, so the caller knows the check is incomplete.
    virtual void checkInstalledAction();

    // Emits totalSteps, raised to at least 2 (and kept within int).
    void announceTotalSteps(qint64 steps);
    // True when there is an application and its mode is the given one.
    bool isMode(int mode) const;

private:
    template<typename Context, typename Visitor>
    static void visitItem(InstallConfigurationItem *item, const Context &context, Visitor &visitor)
    {
        if (!item->isVisible())
            return;
        const Context inner = visitor(context, item);
        for (InstallConfigurationItem *child : item->m_children)
            visitItem(child, inner, visitor);
    }

    QString m_title;
    QString m_description;
    int m_level;
    bool m_visible;
    quint32 m_flags;
    InstallConfigurationItem *m_parentItem;
    QList<InstallConfigurationItem *> m_children;
    bool m_install;
    bool m_uninstall = true;
    InstalledState m_installed = notInstalled;
    int m_lastWillInstall = -1;
};
