#pragma once

#include <QLoggingCategory>

// Diagnostics of the archive library ("setup.archive").
Q_DECLARE_LOGGING_CATEGORY(lcArchive)
