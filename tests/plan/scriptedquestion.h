#pragma once

#include "core/installmode.h"
#include "core/installquestion.h"
#include "plan/installmodesource.h"

#include <QList>
#include <QString>
#include <QStringList>
#include <functional>

// Answers questions from a script and records every question asked. When the
// script runs out it answers Cancel (or the default when Cancel is not
// offered) and notes the surprise, so that a test can tell an unexpected
// question from an expected one.
class ScriptedQuestion : public InstallQuestion
{
public:
    struct Asked
    {
        QString heading;
        int defaultButton;
    };

    int ask(const QString &heading, const QString &, int buttons, int defaultButton) override
    {
        asked.append({ heading, defaultButton });
        if (beforeAnswer)
            beforeAnswer(asked.size());
        if (answers.isEmpty()) {
            // Ends the run rather than loop on a default Retry.
            ++unscripted;
            return (buttons & Cancel) ? int(Cancel) : defaultButton;
        }
        return answers.takeFirst();
    }

    QString locateFile(const QString &) override { return QString(); }

    QStringList headings() const
    {
        QStringList result;
        for (const Asked &question : asked)
            result.append(question.heading);
        return result;
    }

    QList<int> answers;
    QList<Asked> asked;
    int unscripted = 0;
    // Runs before each answer with the number of questions asked so far.
    std::function<void(int)> beforeAnswer;
};

// A mode that the test sets directly.
class FixedMode : public InstallModeSource
{
public:
    explicit FixedMode(int mode)
        : value(mode)
    { }
    InstallMode::Mode mode() const override { return InstallMode::Mode(value); }

    int value;
};
