#pragma once

#include "core/installsilentquestion.h"

// The silent answers of a run without a window, with the whole question on
// its one line: someone reading the log later learns why a component failed,
// not only that it did.
class InstallConsoleQuestion : public InstallSilentQuestion
{
public:
    using InstallSilentQuestion::InstallSilentQuestion;

    int ask(const QString &heading, const QString &text, int buttons, int defaultButton) override;
};
