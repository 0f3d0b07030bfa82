#pragma once

#include <QLoggingCategory>

// Diagnostics of the installation plan.
Q_DECLARE_LOGGING_CATEGORY(lcPlan)
