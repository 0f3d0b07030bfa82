#include "core/console.h"

#include <QByteArray>
#include <algorithm>

#include <cstdio>
#include <cstdlib>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

namespace Console {

namespace {

// Non-canonical input without echo for as long as it lives; the saved
// settings come back on every way out.
class RawKeyMode
{
public:
    RawKeyMode()
        : m_active(::tcgetattr(STDIN_FILENO, &m_saved) == 0)
    {
        if (!m_active)
            return;
        struct termios raw = m_saved;
        raw.c_lflag &= ~tcflag_t(ICANON | ECHO);
        raw.c_cc[VMIN] = 1;
        raw.c_cc[VTIME] = 0;
        ::tcsetattr(STDIN_FILENO, TCSANOW, &raw);
    }
    ~RawKeyMode()
    {
        if (m_active)
            ::tcsetattr(STDIN_FILENO, TCSANOW, &m_saved);
    }
    RawKeyMode(const RawKeyMode &) = delete;
    RawKeyMode &operator=(const RawKeyMode &) = delete;

private:
    struct termios m_saved;
    bool m_active;
};

} // namespace

void textSize(int *columns, int *rows)
{
    struct winsize size = {};
    // A terminal that reports no cells is as good as none.
    if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0 || size.ws_row == 0)
        size = { 25, 80, 0, 0 };
    // Wider lines are harder to read, and the text was written for 80.
    *columns = std::min<int>(size.ws_col, 80);
    *rows = size.ws_row;
}

int readKey()
{
    const RawKeyMode mode;
    return std::getchar();
}

bool isAdministrator()
{
    return ::getuid() == 0;
}

void setVariable(const QString &name, const QString &value)
{
    ::setenv(name.toLocal8Bit().constData(), value.toLocal8Bit().constData(), 1);
}

} // namespace Console
