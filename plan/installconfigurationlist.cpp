#include "plan/installconfigurationlist.h"

#include "core/installmode.h"
#include "core/installsilentquestion.h"
#include "media/installmedia.h"
#include "plan/installmodesource.h"

#include <functional>

namespace {

// Counts the items of a subtree for which the test holds.
int countItems(
    const InstallConfigurationItem *item, const std::function<bool(const InstallConfigurationItem *)> &test)
{
    int count = test(item) ? 1 : 0;
    for (const InstallConfigurationItem *child : item->children())
        count += countItems(child, test);
    return count;
}

bool willBeRemoved(const InstallConfigurationItem *item)
{
    return item->installed() != InstallConfigurationItem::notInstalled && item->willUninstall();
}

} // namespace

InstallConfigurationList::InstallConfigurationList(
    const QString &title, const QString &description, int level, bool visible, quint32 flags)
    : InstallConfigurationItem(nullptr, title, description, level, visible, flags)
    , m_silentQuestion(std::make_unique<InstallSilentQuestion>())
    , m_overwriteTest(m_silentQuestion.get())
{ }

InstallConfigurationList::~InstallConfigurationList()
{
    if (m_media && m_media->overwriteDecision() == &m_overwriteTest)
        m_media->setOverwriteDecision(nullptr);
}

int InstallConfigurationList::mode() const
{
    return m_modeSource ? int(m_modeSource->mode()) : -1;
}

void InstallConfigurationList::setQuestion(InstallQuestion *question)
{
    m_question = question;
    m_overwriteTest.setQuestion(this->question());
}

InstallQuestion *InstallConfigurationList::question() const
{
    return m_question ? m_question : m_silentQuestion.get();
}

void InstallConfigurationList::setMedia(InstallMedia *media)
{
    if (m_media && m_media->overwriteDecision() == &m_overwriteTest)
        m_media->setOverwriteDecision(nullptr);
    m_media = media;
    if (m_media)
        m_media->setOverwriteDecision(&m_overwriteTest);
}

int InstallConfigurationList::installationSteps() const
{
    return countItems(this, [](const InstallConfigurationItem *item) {
        return item->willInstall() && item->installed() != fullyInstalled;
    });
}

int InstallConfigurationList::removalSteps() const
{
    return countItems(this, willBeRemoved);
}

int InstallConfigurationList::repairSteps() const
{
    return removeThenInstallSteps();
}

int InstallConfigurationList::upgradeSteps() const
{
    return removeThenInstallSteps();
}

int InstallConfigurationList::removeThenInstallSteps() const
{
    // An item removed first is not installed any more when the install walk
    // reaches it.
    return removalSteps() + countItems(this, [](const InstallConfigurationItem *item) {
        return item->willInstall() && (item->installed() != fullyInstalled || willBeRemoved(item));
    });
}
