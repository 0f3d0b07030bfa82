#include "wizard/wizardlogging.h"

Q_LOGGING_CATEGORY(lcWizard, "setup.wizard")
