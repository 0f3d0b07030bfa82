#pragma once

#include "core/installquestion.h"

#include <cstdio>

// Answers every question by rule, for runs without a window: the default
// button, except that Retry is never chosen (Ignore instead, as retrying
// without anybody to fix the cause would loop), and a missing file cannot be
// located. Each answer is written as one line to the given stream (standard
// error unless told otherwise), so that a log shows what was decided.
class InstallSilentQuestion : public InstallQuestion
{
public:
    explicit InstallSilentQuestion(std::FILE *stream = stderr);

    int ask(const QString &heading, const QString &text, int buttons, int defaultButton) override;
    QString locateFile(const QString &path) override;

    // The button's label without its shortcut marker ("Yes to All").
    static QString buttonName(int button);

private:
    void writeLine(const QString &line);

    std::FILE *m_stream;
};
