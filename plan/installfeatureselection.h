#pragma once

#include "core/installcommandline.h"

class InstallConfigurationList;

// Switches features of the plan on and off by the titles the custom setup
// page shows, matched without regard to case, by the rules of that page:
// switching a feature on switches on what holds it and what it requires,
// switching it off takes what is below it along. A top row stands for the
// whole product and stays on; removing the product is "--remove".
class InstallFeatureSelection
{
public:
    // Throws HException naming the titles that may be given when one is
    // unknown or may not be switched off; nothing has changed then.
    static void apply(
        InstallConfigurationList *list, const QList<InstallCommandLine::FeatureSwitch> &switches);
};
