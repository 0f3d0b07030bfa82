#pragma once

#include <QLoggingCategory>

// Diagnostics of the wizard.
Q_DECLARE_LOGGING_CATEGORY(lcWizard)
