#include "wizard/installfinisheddialog.h"

#include "core/fileutils.h"
#include "core/macrotable.h"
#include "wizard/wizardlogging.h"

#include <QCheckBox>
#include <QFileInfo>
#include <QLabel>
#include <QVBoxLayout>

#include <cerrno>
#include <cstring>
#include <unistd.h>

InstallFinishedDialog::InstallFinishedDialog(
    const Settings &settings, InstallMode::Mode mode, QWidget *parent)
    : InstallWizardDialog(parent)
    , m_settings(settings)
    , m_mode(mode)
    , m_label(new QLabel)
{
    setTitle(QStringLiteral("Installation Complete"));
    setNextLabel(QStringLiteral("&Finish"));
    m_label->setTextFormat(Qt::RichText);
    m_label->setWordWrap(true);
    m_label->setAlignment(Qt::AlignLeft | Qt::AlignTop);
    auto *layout = new QVBoxLayout(this);
    applyBodySpacing(layout);
    layout->addWidget(m_label);
    layout->addStretch(1);
    if (!m_settings.releaseNotes.isEmpty())
        m_releaseNotesBox = addBox(QStringLiteral("Show Release Notes"), false);
    if (!m_settings.runProgram.isEmpty())
        m_runBox = addBox(expandMacros(m_settings.runLabel), true);
    prepareShow();
}

InstallFinishedDialog::~InstallFinishedDialog() = default;

void InstallFinishedDialog::setText(const QString &text)
{
    m_text = text;
    prepareShow();
}

QStringList InstallFinishedDialog::commands() const
{
    QStringList result;
    if (m_releaseNotesBox && !m_releaseNotesBox->isHidden() && m_releaseNotesBox->isChecked()) {
        // The path is absolute; its own leading slash is the third of "file:///".
        QString path = expandMacros(m_settings.releaseNotes);
        while (path.startsWith(QLatin1Char('/')))
            path.remove(0, 1);
        result.append(QStringLiteral("xdg-open") + QStringLiteral("|file:///") + path);
    }
    if (m_runBox && !m_runBox->isHidden() && m_runBox->isChecked())
        result.append(expandMacros(m_settings.runProgram));
    return result;
}

bool InstallFinishedDialog::runClosingActions() const
{
    const QStringList lines = commands();
    if (lines.isEmpty())
        return true;
    QByteArray content;
    for (const QString &line : lines)
        content += (line + QLatin1Char('\n')).toUtf8();
    // Root writes this file in a folder a user may own: a link put there to
    // make us overwrite something else is replaced, never followed.
    const QString path = commandsFile();
    if (FileUtils::writeFile(path, content))
        return true;
    qCWarning(lcWizard) << "Cannot write" << path << std::strerror(errno);
    return false;
}

QString InstallFinishedDialog::commandsFile()
{
    return expandMacros(QStringLiteral("$(SrcDir)/.extract_commands.txt"));
}

void InstallFinishedDialog::installationModeChanged(InstallMode::Mode mode)
{
    m_mode = mode;
    prepareShow();
}

void InstallFinishedDialog::prepareShow()
{
    m_label->setText(expandMacros(m_text));
    const bool boxes = offersBoxes();
    for (QCheckBox *box : { m_releaseNotesBox, m_runBox }) {
        if (box)
            box->setHidden(!boxes);
    }
}

QCheckBox *InstallFinishedDialog::addBox(const QString &label, bool checked)
{
    // The offers sit together at the foot of the page, below the outcome.
    auto *layout = static_cast<QVBoxLayout *>(this->layout());
    auto *box = new QCheckBox(label);
    box->setChecked(checked);
    layout->addWidget(box);
    return box;
}

bool InstallFinishedDialog::offersBoxes() const
{
    if (m_mode == InstallMode::Remove)
        return false;
    // Without root the commands can only be handed over through an
    // existing file that the starting program made for us.
    return ::geteuid() == 0 || QFileInfo::exists(commandsFile());
}
