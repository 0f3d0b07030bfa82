#include "plan/installconfigurationitem.h"

#include "core/installexception.h"
#include "core/installmode.h"
#include "core/installsilentquestion.h"
#include "core/installusercancelexception.h"
#include "core/macrotable.h"
#include "plan/installconfigurationlist.h"
#include "plan/planlogging.h"

#include <algorithm>
#include <iterator>

InstallConfigurationItem::InstallConfigurationItem(InstallConfigurationItem *parent, const QString &title,
    const QString &description, int level, bool visible, quint32 flags)
    : QObject(parent)
    , m_title(expandMacros(title))
    , m_description(expandMacros(description))
    , m_level(level)
    , m_visible(visible)
    , m_flags(flags)
    , m_parentItem(parent)
    , m_install(level < 2)
{
    if (m_parentItem)
        m_parentItem->m_children.append(this);
}

InstallConfigurationItem::~InstallConfigurationItem()
{
    // The object base deletes the children after this body has run; they must
    // not reach back into this half-destroyed item.
    for (InstallConfigurationItem *child : std::as_const(m_children))
        child->m_parentItem = nullptr;
    if (m_parentItem)
        m_parentItem->m_children.removeOne(this);
}

InstallConfigurationList *InstallConfigurationItem::list() const
{
    const InstallConfigurationItem *top = this;
    while (top->m_parentItem)
        top = top->m_parentItem;
    return qobject_cast<InstallConfigurationList *>(const_cast<InstallConfigurationItem *>(top));
}

bool InstallConfigurationItem::willInstall() const
{
    if (!isEnabled())
        return false;
    // The root is the plan itself, not a component: it does not hold back its
    // children, so an optional component directly below it follows its own
    // selection in every mode, Remove included.
    if (m_parentItem && m_parentItem->m_parentItem && !m_parentItem->willInstall())
        return false;
    // Optional components follow the selection alone, whatever the mode.
    if (m_level == 3 || m_level == 4)
        return m_install;
    const InstallConfigurationList *root = list();
    const int mode = root ? root->mode() : -1;
    switch (mode) {
    case InstallMode::Minimal:
        return m_level > 0 ? false : m_install;
    case InstallMode::Typical:
        return m_level > 1 ? false : m_install;
    case InstallMode::Full:
        return m_level > 2 ? false : m_install;
    case InstallMode::Custom:
    case InstallMode::Modify:
    case InstallMode::Repair:
    case InstallMode::Upgrade:
        return m_install;
    default:
        // No application, Remove, or an unknown mode.
        return false;
    }
}

bool InstallConfigurationItem::willUninstall() const
{
    if (!m_uninstall)
        return false;
    if (isMode(InstallMode::Repair) || isMode(InstallMode::Upgrade))
        return true;
    return !willInstall();
}

InstallFootprints InstallConfigurationItem::installFootprint() const
{
    return {};
}

InstallFootprints InstallConfigurationItem::removalFootprint() const
{
    return {};
}

int InstallConfigurationItem::itemCount() const
{
    int count = 1;
    for (const InstallConfigurationItem *child : m_children)
        count += child->itemCount();
    return count;
}

QString InstallConfigurationItem::levelText(int level)
{
    switch (level) {
    case 0:
        return QStringLiteral("Required for minimal installation.");
    case 1:
        return QStringLiteral("Required for typical installation.");
    case 2:
        return QStringLiteral("Required for full installation.");
    case 3:
    case 4:
        return QStringLiteral("Optional installation.");
    }
    return QString();
}

QString InstallConfigurationItem::installedText(InstalledState state)
{
    switch (state) {
    case notInstalled:
        return QStringLiteral("Not currently installed.");
    case partiallyInstalled:
        return QStringLiteral("Only partially installed.");
    case fullyInstalled:
        return QStringLiteral("Currently installed.");
    }
    return QString();
}

bool InstallConfigurationItem::install()
{
    if (willInstall() && m_installed != fullyInstalled) {
        InstallConfigurationList *root = list();
        if (root) {
            root->passCheckpoint();
            emit root->starting(this);
        }
        bool terminate = false;
        QString failed;
        try {
            installAction();
            setInstalled(fullyInstalled);
        } catch (const InstallException &failure) {
            const int answer = question()->ask(m_title + QStringLiteral(" Installation Failed"),
                QStringLiteral("<p>The installation of the ") + m_title
                    + QStringLiteral(" component has failed.</p><p>") + failure.message()
                    + QStringLiteral(".</p><p>Do you want to terminate the installation?</p>"
                                     "<p>Click Yes to terminate installation or No to continue.</p>"),
                InstallQuestion::Yes | InstallQuestion::No, InstallQuestion::Yes);
            terminate = answer == InstallQuestion::Yes;
            failed = failure.message();
        }
        if (root)
            emit root->finished(this);
        if (terminate)
            throw InstallUserCancelException(failed);
    }
    for (InstallConfigurationItem *child : std::as_const(m_children)) {
        if (!child->install())
            return false;
    }
    return true;
}

bool InstallConfigurationItem::uninstall()
{
    for (auto child = m_children.crbegin(); child != m_children.crend(); ++child) {
        if (!(*child)->uninstall())
            return false;
    }
    if (m_installed == notInstalled || !willUninstall())
        return true;

    InstallConfigurationList *root = list();
    if (root) {
        root->passCheckpoint();
        emit root->starting(this);
    }
    try {
        uninstallAction();
        setInstalled(notInstalled);
    } catch (const InstallException &failure) {
        // A repair removes only to install again; a failure shows up then.
        if (!isMode(InstallMode::Repair)) {
            const int answer = question()->ask(m_title + QStringLiteral(" Removal Failed"),
                QStringLiteral("The removal of the ") + m_title + QStringLiteral(" component has failed.<p>")
                    + failure.message()
                    + QStringLiteral(".<p>Do you want to terminate the installation? Click Yes to terminate "
                                     "installation or No to continue."),
                InstallQuestion::Yes | InstallQuestion::No, InstallQuestion::Yes);
            if (answer == InstallQuestion::Yes)
                throw InstallUserCancelException(failure.message());
        }
    }
    if (root)
        emit root->finished(this);
    return true;
}

bool InstallConfigurationItem::checkInstalled()
{
    InstallConfigurationList *root = list();
    for (auto child = m_children.crbegin(); child != m_children.crend(); ++child) {
        if (root)
            emit root->starting(this);
        const bool checked = (*child)->checkInstalled();
        if (root)
            emit root->finished(this);
        if (!checked) {
            // The progress display still counts every item of this subtree.
            if (root)
                emit root->skipped(itemCount() - 1);
            return false;
        }
    }
    try {
        checkInstalledAction();
    } catch (const InstallException &failure) {
        // What is installed cannot be known; the caller gives up the check.
        qCWarning(lcPlan) << "checking" << m_title << "failed:" << failure.message();
        return false;
    }
    if (m_installed == notInstalled)
        return true;
    // An installed component shows as selected.
    if (!m_install)
        setInstall(true, false);
    return true;
}

void InstallConfigurationItem::setInstall(bool install, bool recursive)
{
    if (install != m_install) {
        m_install = install;
        if (install) {
            // Selecting a component selects what it needs.
            for (InstallConfigurationItem *child : std::as_const(m_children)) {
                if (child->m_level < 2)
                    child->setInstall(true, false);
            }
        }
        checkWillInstall();
    }
    if (recursive) {
        for (InstallConfigurationItem *child : std::as_const(m_children))
            child->setInstall(install, true);
    }
}

void InstallConfigurationItem::setInstalled(InstalledState installed, bool recursive)
{
    m_installed = installed;
    if (recursive) {
        for (InstallConfigurationItem *child : std::as_const(m_children))
            child->setInstalled(installed, true);
    }
}

void InstallConfigurationItem::setUninstall(bool uninstall)
{
    m_uninstall = uninstall;
}

void InstallConfigurationItem::checkWillInstall()
{
    const int value = willInstall() ? 1 : 0;
    if (value != m_lastWillInstall) {
        m_lastWillInstall = value;
        emit willInstallChanged(value);
    }
    // The children are asked even when this value stayed: a mode change can
    // turn a required child off below an optional parent that stays on.
    for (InstallConfigurationItem *child : std::as_const(m_children))
        child->checkWillInstall();
}

void InstallConfigurationItem::installAction()
{ }

void InstallConfigurationItem::uninstallAction()
{ }

void InstallConfigurationItem::checkInstalledAction()
{ }

void InstallConfigurationItem::announceTotalSteps(qint64 steps)
{
    emit totalSteps(int(std::clamp<qint64>(steps, 2, INT_MAX)));
}

InstallQuestion *InstallConfigurationItem::question() const
{
    if (const InstallConfigurationList *root = list())
        return root->question();
    static InstallSilentQuestion silent;
    return &silent;
}

bool InstallConfigurationItem::isMode(int mode) const
{
    const InstallConfigurationList *root = list();
    return root && root->mode() == mode;
}
