#pragma once

#include "core/installmode.h"

// Where the plan learns the run's mode. The installer application implements
// it and hands itself to the configuration list; a list without one behaves as
// a plan with no application (only optional items can be selected). Lives on
// the user-interface thread.
class InstallModeSource
{
public:
    virtual ~InstallModeSource() = default;

    virtual InstallMode::Mode mode() const = 0;
};
