#include "wizard/wizardresources.h"

// Qt declares the registration function where this is expanded, so it must
// stay outside any namespace.
static bool registerWizardResources()
{
    Q_INIT_RESOURCE(wizard);
    return true;
}

static QPixmap load(const char *name)
{
    static const bool registered = registerWizardResources();
    Q_UNUSED(registered);
    return QPixmap(QStringLiteral(":/wizard/") + QLatin1String(name));
}

QPixmap WizardResources::headerImage()
{
    return load("header.png");
}

QIcon WizardResources::installedIcon()
{
    return QIcon(load("feature-installed.png"));
}

QIcon WizardResources::partlyInstalledIcon()
{
    return QIcon(load("feature-partial.png"));
}

QIcon WizardResources::notInstalledIcon()
{
    return QIcon(load("feature-none.png"));
}

QPixmap WizardResources::questionIcon()
{
    return load("question.png");
}
