#include "installer/installconsolequestion.h"

int InstallConsoleQuestion::ask(const QString &heading, const QString &text, int buttons, int defaultButton)
{
    return InstallSilentQuestion::ask(heading + QStringLiteral(": ") + text, text, buttons, defaultButton);
}
