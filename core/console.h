#pragma once

#include <QString>

// Terminal and user facts for the console modes.
namespace Console {

// The size console text is laid out for, in character cells: the terminal's
// on standard output but no wider than 80 columns, or 80x25 when standard
// output is no terminal.
void textSize(int *columns, int *rows);
// Waits for one key on standard input's terminal, without echo and without
// waiting for a line; the terminal's settings are restored before returning.
int readKey();
// True when the real user id is 0.
bool isAdministrator();
// Sets an environment variable, overwriting.
void setVariable(const QString &name, const QString &value);

} // namespace Console
