#include "plan/planlogging.h"

Q_LOGGING_CATEGORY(lcPlan, "setup.plan")
