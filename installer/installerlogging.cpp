#include "installer/installerlogging.h"

Q_LOGGING_CATEGORY(lcInstaller, "setup.installer")
