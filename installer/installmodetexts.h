#pragma once

#include <QString>

// What a run says of itself in its mode: the titles of the complete and
// failed pages, the outcome texts and the question a Cancel asks. The texts
// hold macros, expanded when they are shown.
struct InstallModeTexts
{
    QString completeTitle;
    QString failedTitle;
    QString success;
    QString failure;
    QString cancelled;
    QString cancelTitle;
    QString cancelLead;

    // The four installation types share one set of texts.
    static const InstallModeTexts &of(int mode);
};
