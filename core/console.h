#pragma once

#include <QString>

// Terminal and user facts for the console modes.
namespace Console {

// Size of the terminal on standard output in character cells. False when
// standard output is no terminal; either pointer may be null.
bool terminalSize(int *columns, int *rows);
// Waits for one key on standard input's terminal, without echo and without
// waiting for a line; the terminal's settings are restored before returning.
int readKey();
// True when the real user id is 0.
bool isAdministrator();
// Points HOME at the real user's home directory from the password database.
void fixHome();
// Sets an environment variable, overwriting.
void setVariable(const QString &name, const QString &value);

} // namespace Console
