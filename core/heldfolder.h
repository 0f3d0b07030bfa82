#pragma once

#include "core/descriptor.h"

#include <QString>

// A folder found once and then held by its descriptor. Every name below it is
// resolved against the folder that was found, never again by path, so a
// folder renamed or swapped for a symbolic link meanwhile cannot carry a
// write or a deletion somewhere else. Below a held folder no link is ever
// followed. Failures leave errno set and the folder invalid.
class HeldFolder
{
public:
    enum Creation { Existing, Create };
    // Whether the folder named may itself be a link (one it trusts).
    enum EndLink { FollowTrustedLink, RefuseLink };

    HeldFolder() = default;
    HeldFolder(HeldFolder &&) noexcept = default;
    HeldFolder &operator=(HeldFolder &&) noexcept = default;

    // Opens a folder named by a path (a relative one against the current
    // folder). A link on the way is followed only when root or the running
    // user owns it, as the kernel's protected links do in shared folders;
    // anyone else's link refuses the open. With Create, missing folders are
    // made (mode 0777 less the creation mask). "." and ".." are taken by
    // their names, as in a cleaned path.
    static HeldFolder open(
        const QString &path, Creation creation = Existing, EndLink endLink = FollowTrustedLink);

    // The folder at relative below this one: "/"-separated names, each a real
    // folder, never a link. ".." is refused; empty names and "." are passed.
    HeldFolder below(const QString &relative, Creation creation = Existing) const;

    bool isValid() const { return m_fd.get() >= 0; }
    int fd() const { return m_fd.get(); }
    // The path it was found by, for messages.
    const QString &path() const { return m_path; }

private:
    HeldFolder(int fd, const QString &path);

    Descriptor m_fd;
    QString m_path;
};
