#pragma once

#include "core/installcheckpoint.h"
#include "media/installmedia.h"
#include "plan/installconfigurationitem.h"
#include "plan/installoverwritetest.h"

#include <QPointer>
#include <QSet>

#include <memory>
#include <optional>

class InstallModeSource;

// The root of the installation plan. The application drives the whole tree
// through install(), uninstall() and checkInstalled(); items announce each
// action on the list (starting, finished, skipped), which the progress display
// listens to. The list also carries what the items need from the run: the mode
// (through InstallModeSource), the question interface, the checkpoint and the
// medium. It refers to them, never owns them; the application sets them
// before a walk. User-interface thread only.
class InstallConfigurationList : public InstallConfigurationItem
{
    Q_OBJECT
    Q_DISABLE_COPY(InstallConfigurationList)

public:
    InstallConfigurationList(
        const QString &title, const QString &description, int level, bool visible, quint32 flags = AllFlags);
    ~InstallConfigurationList() override;

    // Null means there is no installer application.
    void setModeSource(InstallModeSource *source) { m_modeSource = source; }
    InstallModeSource *modeSource() const { return m_modeSource; }
    // The application's mode, or -1 when there is none.
    int mode() const;

    // Null restores the silent answers.
    void setQuestion(InstallQuestion *question);
    InstallQuestion *question() const;

    // Also makes the medium ask this plan before it replaces a file.
    void setMedia(InstallMedia *media);
    InstallMedia *media() const { return m_media; }

    InstallOverwriteTest &overwriteTest() { return m_overwriteTest; }

    // Not owned; null means nothing stops a walk from outside.
    void setCheckpoint(InstallCheckpoint *checkpoint) { m_checkpoint = checkpoint; }
    // Before each item an operation walk acts on and each file a removal
    // deletes; throws what the checkpoint throws.
    void passCheckpoint() const
    {
        if (m_checkpoint)
            m_checkpoint->check();
    }

    // A repair of damaged files: the items that copy files leave these
    // (absolute, clean paths) alone and replace the rest whatever stands
    // there. None: every file, as the overwrite rules say.
    void setIntactFiles(std::optional<QSet<QString>> paths)
    {
        m_intactFiles = std::move(paths);
        m_rewritten = 0;
    }
    const std::optional<QSet<QString>> &intactFiles() const { return m_intactFiles; }
    // How many files such a repair has written so far.
    void addRewritten(int count) { m_rewritten += count; }
    int rewritten() const { return m_rewritten; }

    // Progress steps of the operations, as the progress page counts them: one
    // per item that the walk will announce with starting(). Installation: the
    // items that will be installed and are not fully installed. Removal: the
    // installed items that will be uninstalled. Repair and upgrade: those
    // removals plus every item that will be installed afterwards. The counts
    // depend on the mode, so ask after it is set.
    int installationSteps() const;
    int removalSteps() const;
    int repairSteps() const;
    int upgradeSteps() const;

signals:
    void starting(InstallConfigurationItem *item);
    void finished(InstallConfigurationItem *item);
    void skipped(int count);

private:
    int removeThenInstallSteps() const;

    InstallModeSource *m_modeSource = nullptr;
    InstallQuestion *m_question = nullptr;
    InstallCheckpoint *m_checkpoint = nullptr;
    std::unique_ptr<InstallQuestion> m_silentQuestion;
    QPointer<InstallMedia> m_media;
    InstallOverwriteTest m_overwriteTest;
    std::optional<QSet<QString>> m_intactFiles;
    int m_rewritten = 0;
};
