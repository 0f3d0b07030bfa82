#include "archive/packagearchivebitwriter.h"

void PackageArchiveBitWriter::append(const PackageArchiveBitWriter &other)
{
    flushWholeBytes();
    const auto *data = reinterpret_cast<const uchar *>(other.m_bytes.constData());
    const qsizetype whole = other.m_bytes.size();
    if (m_bufferBits == 0) {
        m_bytes.append(other.m_bytes);
    } else {
        // Each byte lands across two: keep the shift out of write()'s loop.
        const qsizetype at = m_bytes.size();
        m_bytes.resize(at + whole);
        auto *target = reinterpret_cast<uchar *>(m_bytes.data()) + at;
        const int shift = m_bufferBits;
        quint32 carry = quint32(m_buffer) & ((1u << shift) - 1);
        for (qsizetype i = 0; i < whole; ++i) {
            target[i] = uchar(carry << (8 - shift) | data[i] >> shift);
            carry = data[i] & ((1u << shift) - 1);
        }
        m_buffer = carry;
    }
    // The other's buffer holds fewer than 32 bits.
    if (other.m_bufferBits > 0)
        write(quint32(other.m_buffer), other.m_bufferBits);
}
