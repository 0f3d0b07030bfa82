#include "core/runcommand.h"

#include "core/descriptor.h"

#include <QByteArray>
#include <QFile>

#include <vector>

#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

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

// Reads what is available; false once the pipe has nothing more to give.
bool drain(int fd, const std::function<void(const QByteArray &)> &receiver)
{
    char buffer[4096];
    for (;;) {
        const ssize_t got = ::read(fd, buffer, sizeof buffer);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return false;
        if (receiver)
            receiver(QByteArray(buffer, int(got)));
        return true;
    }
}

int waitForChild(pid_t child)
{
    const struct timespec pause = { 0, 10 * 1000 * 1000 };
    for (;;) {
        int status = 0;
        const pid_t done = ::waitpid(child, &status, WNOHANG);
        if (done == child) {
            if (WIFEXITED(status))
                return static_cast<signed char>(WEXITSTATUS(status));
            return -1;
        }
        if (done < 0 && errno != EINTR)
            return -1;
        ::nanosleep(&pause, nullptr);
    }
}

} // namespace

int runCommand(const QStringList &arguments, const QString &workingDirectory, bool captureOutput,
    const CommandOutput &receivers)
{
    QStringList commandLine = arguments;
    Redirection redirection;
    if (!takeRedirection(commandLine, &redirection) || commandLine.isEmpty())
        return -1;

    Descriptor redirected;
    if (redirection.standardOutput || redirection.standardError) {
        const int flags = O_WRONLY | O_CREAT | O_CLOEXEC | (redirection.append ? O_APPEND : O_TRUNC);
        redirected.reset(::open(QFile::encodeName(redirection.file).constData(), flags, 0666));
        if (redirected.get() < 0)
            return -1;
    }

    // Everything the child needs is prepared before fork: after it only
    // async-signal-safe calls are allowed.
    std::vector<QByteArray> encoded;
    encoded.reserve(size_t(commandLine.size()));
    for (const QString &argument : commandLine)
        encoded.push_back(QFile::encodeName(argument));
    std::vector<char *> argv;
    for (QByteArray &argument : encoded)
        argv.push_back(argument.data());
    argv.push_back(nullptr);
    const QByteArray directory = QFile::encodeName(workingDirectory);

    Descriptor outRead, outWrite, errRead, errWrite;
    if (captureOutput) {
        int out[2], err[2];
        if (::pipe2(out, O_CLOEXEC) != 0)
            return -1;
        outRead.reset(out[0]);
        outWrite.reset(out[1]);
        if (::pipe2(err, O_CLOEXEC) != 0)
            return -1;
        errRead.reset(err[0]);
        errWrite.reset(err[1]);
    }

    const pid_t child = ::fork();
    if (child < 0)
        return -1;
    if (child == 0) {
        if (captureOutput && (::dup2(outWrite.get(), 1) < 0 || ::dup2(errWrite.get(), 2) < 0))
            ::_exit(-1);
        if (redirection.standardOutput && ::dup2(redirected.get(), 1) < 0)
            ::_exit(-1);
        if (redirection.standardError && ::dup2(redirected.get(), 2) < 0)
            ::_exit(-1);
        if (!directory.isEmpty() && ::chdir(directory.constData()) != 0)
            ::_exit(-1);
        ::execvp(argv[0], argv.data());
        ::_exit(-1);
    }

    redirected.reset();
    if (captureOutput) {
        // Our copies of the write ends must go, or the pipes never hang up.
        outWrite.reset();
        errWrite.reset();
        bool outOpen = true;
        bool errOpen = true;
        while (outOpen || errOpen) {
            struct pollfd fds[2] = { { outOpen ? outRead.get() : -1, POLLIN, 0 },
                { errOpen ? errRead.get() : -1, POLLIN, 0 } };
            const int ready = ::poll(fds, 2, 100);
            if (ready < 0 && errno != EINTR)
                break;
            if (ready <= 0)
                continue;
            if (fds[0].revents & (POLLIN | POLLHUP | POLLERR))
                outOpen = drain(outRead.get(), receivers.standardOutput);
            if (fds[1].revents & (POLLIN | POLLHUP | POLLERR))
                errOpen = drain(errRead.get(), receivers.standardError);
        }
    }
    return waitForChild(child);
}
