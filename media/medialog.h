#pragma once

#include <QLoggingCategory>

// Diagnostics of the media library ("setup.media").
Q_DECLARE_LOGGING_CATEGORY(lcMedia)
