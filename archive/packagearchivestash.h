#pragma once

#include <QByteArray>

#include <functional>
#include <unordered_map>
#include <unordered_set>

class PackageArchiveIOFileInterface;
struct PackageArchiveData;

// Members the reader passed on its way to a later one, kept decompressed in
// an unnamed temporary file until they are asked for: items that take their
// members in another order than the body's then decompress no part twice.
// Each member is kept at most once and its space given back when taken.
// When the temporary file cannot be made or fills up, the stash stops
// keeping members and reading falls back to seeking. It keeps at most half
// of what the temporary folder has free beyond a reserve, so that a crafted
// table cannot fill the folder; members past that are read again.
class PackageArchiveStash
{
public:
    PackageArchiveStash() = default;
    ~PackageArchiveStash();
    PackageArchiveStash(const PackageArchiveStash &) = delete;
    PackageArchiveStash &operator=(const PackageArchiveStash &) = delete;

    // Whether the member is worth keeping: not kept, not read before.
    bool wants(const PackageArchiveData *member) const;
    bool accepting() const { return !m_failed; }
    // Reads the member's bytes from the stream, which stands at its offset,
    // and keeps them. Throws what the stream throws; a full temporary file
    // only stops the stash.
    void put(const PackageArchiveData *member, PackageArchiveIOFileInterface &stream);
    enum Taken { NotKept, Delivered, Unreadable };
    // Hands a kept member's bytes to deliver in blocks of at most blockSize
    // (until deliver returns false) and forgets them. Unreadable when the
    // temporary file failed part way.
    Taken take(
        const PackageArchiveData *member, qint32 blockSize, const std::function<bool(QByteArray)> &deliver);
    // Notes that the member was read from the body.
    void noteRead(const PackageArchiveData *member) { m_read.insert(member); }

private:
    bool open();

    int m_fd = -1;
    bool m_failed = false;
    qint64 m_end = 0;
    // Bytes kept and not yet taken, and how many may be.
    qint64 m_kept = 0;
    qint64 m_cap = 0;
    // Where each kept member's bytes are in the file.
    std::unordered_map<const PackageArchiveData *, qint64> m_places;
    std::unordered_set<const PackageArchiveData *> m_read;
};
