#include "media/medialog.h"

Q_LOGGING_CATEGORY(lcMedia, "setup.media")
