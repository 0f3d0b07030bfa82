#pragma once

#include <QStringList>

#include <functional>

// Runs a program without a shell. The first argument is searched on PATH; the
// whole list is its argument vector. One argument that is exactly ">", "1>",
// ">>", "1>>", "2>", "2>>", "&>" or "&>>" redirects output to the file named by
// the next argument (the doubled forms append); both are taken out of the list.
// With captureOutput, standard output and error are read through pipes and
// handed to the receivers once the program has ended; otherwise the program
// shares the installer's standard input, output and error.
// Returns the child's exit status as a signed 8-bit value when it ended
// normally, -1 for an empty list or a child that could not be started.
struct CommandOutput
{
    std::function<void(const QByteArray &)> standardOutput;
    std::function<void(const QByteArray &)> standardError;
};

int runCommand(const QStringList &arguments, const QString &workingDirectory = QString(),
    bool captureOutput = false, const CommandOutput &receivers = CommandOutput());
