#include "archive/archivelogging.h"

// Debug lines (the body's decompression count, a bzip2 fallback) only when
// asked for, as packarchive's output is read by scripts.
Q_LOGGING_CATEGORY(lcArchive, "setup.archive", QtInfoMsg)
