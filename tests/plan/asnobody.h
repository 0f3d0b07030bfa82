#pragma once

#include <sys/types.h>
#include <unistd.h>

// While it lives, file access is checked as the unprivileged user "nobody"
// (the administrator bypasses the permissions these tests rely on). Only the
// effective ids change, so the destructor can switch back. A test that does
// not run as root is unprivileged already.
class AsNobody
{
public:
    static constexpr uid_t uid = 65534;
    static constexpr gid_t gid = 65534;

    AsNobody()
    {
        if (::geteuid() == 0)
            m_switched = ::setegid(gid) == 0 && ::seteuid(uid) == 0;
    }
    ~AsNobody()
    {
        if (m_switched) {
            (void)::seteuid(0);
            (void)::setegid(0);
        }
    }
    AsNobody(const AsNobody &) = delete;
    AsNobody &operator=(const AsNobody &) = delete;

    bool unprivileged() const { return ::geteuid() != 0; }

private:
    bool m_switched = false;
};
