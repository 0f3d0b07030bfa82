#pragma once

#include <QLoggingCategory>

// Diagnostics of the installer application, its record and its single-instance guard.
Q_DECLARE_LOGGING_CATEGORY(lcInstaller)
