#pragma once

#include <QByteArray>
#include <QCryptographicHash>

#include <cstdint>

// SHA-256 of a stream of bytes. On a processor with the SHA extensions the
// blocks go through them, at about four times the speed of the portable
// code, which is what lets verifying an installation keep up with the disk;
// elsewhere QCryptographicHash does the work. One object per stream, on any
// one thread.
class Sha256
{
public:
    Sha256();

    void addData(const char *data, qint64 size);
    // The 32-byte digest; the object is spent afterwards.
    QByteArray result();

private:
    void compress(const unsigned char *blocks, qint64 count);

    const bool m_extensions;
    QCryptographicHash m_portable;
    uint32_t m_state[8];
    unsigned char m_pending[64];
    int m_pendingSize = 0;
    quint64 m_length = 0;
};
