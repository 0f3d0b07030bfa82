#pragma once

#include <unistd.h>

// Owns a file descriptor and closes it when it goes out of scope, so no
// error path can leak one.
class Descriptor
{
public:
    explicit Descriptor(int fd = -1)
        : m_fd(fd)
    { }
    ~Descriptor() { reset(); }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    Descriptor(Descriptor &&other) noexcept
        : m_fd(other.release())
    { }
    Descriptor &operator=(Descriptor &&other) noexcept
    {
        if (this != &other)
            reset(other.release());
        return *this;
    }

    int get() const { return m_fd; }
    // Closes the one held and takes fd instead.
    void reset(int fd = -1)
    {
        if (m_fd >= 0)
            ::close(m_fd);
        m_fd = fd;
    }
    // Gives the descriptor up without closing it.
    int release()
    {
        const int fd = m_fd;
        m_fd = -1;
        return fd;
    }
    // Closes now, for callers that must know whether the close (and so a
    // delayed write error) succeeded.
    bool close()
    {
        const int fd = m_fd;
        m_fd = -1;
        return fd < 0 || ::close(fd) == 0;
    }

private:
    int m_fd;
};
