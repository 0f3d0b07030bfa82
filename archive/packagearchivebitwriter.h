#pragma once

#include <QByteArray>

// Gathers bits most significant first, as bzip2 streams store them. Whole
// bytes can be taken out as they fill; the bits of the byte being filled stay.
class PackageArchiveBitWriter
{
public:
    // Appends the count (at most 32) low bits of value. Bits go out to the
    // bytes four at a time: this runs once for every symbol of a block.
    void write(quint32 value, int count)
    {
        m_buffer = m_buffer << count | (value & (count == 32 ? ~0u : (1u << count) - 1));
        m_bufferBits += count;
        if (m_bufferBits >= 32) {
            m_bufferBits -= 32;
            const quint32 word = quint32(m_buffer >> m_bufferBits);
            const char bytes[4] = { char(word >> 24), char(word >> 16), char(word >> 8), char(word) };
            m_bytes.append(bytes, 4);
        }
    }
    // Appends another writer's bits.
    void append(const PackageArchiveBitWriter &other);
    // Fills the byte being filled with zero bits.
    void padToByte()
    {
        if (m_bufferBits % 8 != 0)
            write(0, 8 - m_bufferBits % 8);
    }

    quint64 bitCount() const { return quint64(m_bytes.size()) * 8 + quint64(m_bufferBits); }
    // The whole bytes gathered since the last take.
    QByteArray takeBytes()
    {
        flushWholeBytes();
        QByteArray bytes;
        bytes.swap(m_bytes);
        return bytes;
    }
    void reserve(qsizetype bytes) { m_bytes.reserve(bytes); }

private:
    // Moves the buffer's whole bytes out, leaving fewer than 8 bits in it.
    void flushWholeBytes()
    {
        while (m_bufferBits >= 8) {
            m_bufferBits -= 8;
            m_bytes.append(char(m_buffer >> m_bufferBits));
        }
    }

    QByteArray m_bytes;
    quint64 m_buffer = 0;
    int m_bufferBits = 0;
};
