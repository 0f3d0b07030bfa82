#include "core/runcommand.h"

#include <QProcess>

namespace {

struct Redirection
{
    QString file;
    bool append = false;
    bool standardOutput = false;
    bool standardError = false;
};

// Takes the first redirection operator and its file name out of the list.
// Returns false when the operator has no file name after it.
bool takeRedirection(QStringList &arguments, Redirection *redirection)
{
    static const QStringList operators
        = { QStringLiteral(">"), QStringLiteral("1>"), QStringLiteral(">>"), QStringLiteral("1>>"),
              QStringLiteral("2>"), QStringLiteral("2>>"), QStringLiteral("&>"), QStringLiteral("&>>") };
    for (int i = 0; i < arguments.size(); ++i) {
        const QString &argument = arguments.at(i);
        if (!operators.contains(argument))
            continue;
        if (i + 1 >= arguments.size())
            return false;
        redirection->append = argument.endsWith(QLatin1String(">>"));
        redirection->standardError
            = argument.startsWith(QLatin1Char('2')) || argument.startsWith(QLatin1Char('&'));
        redirection->standardOutput = !argument.startsWith(QLatin1Char('2'));
        redirection->file = arguments.at(i + 1);
        arguments.remove(i, 2);
        return true;
    }
    return true;
}

} // namespace

int runCommand(const QStringList &arguments, const QString &workingDirectory, bool captureOutput,
    const CommandOutput &receivers)
{
    QStringList commandLine = arguments;
    Redirection redirection;
    if (!takeRedirection(commandLine, &redirection) || commandLine.isEmpty())
        return -1;

    QProcess process;
    process.setProgram(commandLine.takeFirst());
    process.setArguments(commandLine);
    process.setWorkingDirectory(workingDirectory);
    // What is neither captured nor redirected goes where the installer's own goes.
    process.setInputChannelMode(QProcess::ForwardedInputChannel);
    process.setProcessChannelMode(captureOutput ? QProcess::SeparateChannels : QProcess::ForwardedChannels);
    const QIODevice::OpenMode mode = redirection.append ? QIODevice::Append : QIODevice::Truncate;
    if (redirection.standardOutput && redirection.standardError) {
        // Both through one descriptor, so that neither writes over the other.
        process.setProcessChannelMode(QProcess::MergedChannels);
        process.setStandardOutputFile(redirection.file, mode);
    } else if (redirection.standardOutput) {
        process.setStandardOutputFile(redirection.file, mode);
    } else if (redirection.standardError) {
        process.setStandardErrorFile(redirection.file, mode);
    }
    process.start();
    if (!process.waitForFinished(-1) || process.exitStatus() != QProcess::NormalExit)
        return -1;
    if (captureOutput) {
        const QByteArray standardOutput = process.readAllStandardOutput();
        if (!standardOutput.isEmpty() && receivers.standardOutput)
            receivers.standardOutput(standardOutput);
        const QByteArray standardError = process.readAllStandardError();
        if (!standardError.isEmpty() && receivers.standardError)
            receivers.standardError(standardError);
    }
    return static_cast<signed char>(process.exitCode());
}
