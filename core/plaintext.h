#pragma once

#include <QString>

// Messages, titles and questions hold macros and a little markup (<p>, <br>,
// <b>): for the console they become plain text. Paragraph and line breaks
// end a line, other tags go, runs of blank lines become one line break.
QString plainLines(const QString &text);
// The same on one line, for a line of standard error.
QString plainLine(const QString &text);
