#pragma once

#include <QtGlobal>

#include <array>
#include <vector>

class PackageArchiveBitWriter;

// Compresses bytes into bzip2 blocks, one at a time: the first run-length
// stage, the Burrows-Wheeler transform (rotations sorted by prefix doubling,
// which stays n log n on repetitive data), move-to-front with zero runs, and
// up to six Huffman tables chosen per 50 symbols. The blocks are ordinary
// bzip2 blocks; bzip2's own encoder spends about half its time on a
// byte-by-byte move-to-front that this one does by keeping each symbol's
// place, updated for all 256 at once.
// Buffers are kept between blocks: one encoder per thread.
class PackageArchiveBzBlockEncoder
{
public:
    // level is the block size in hundreds of kilobytes, 1 to 9.
    explicit PackageArchiveBzBlockEncoder(int level);

    // Encodes the longest start of data that fits one block and appends the
    // block (from its magic number to its last symbol) to out. Returns how
    // many bytes of data it took (at least one when size > 0) and sets crc
    // to the block's CRC.
    qint64 encode(const uchar *data, qint64 size, PackageArchiveBitWriter &out, quint32 &crc);

private:
    static constexpr int MaxGroups = 6;
    static constexpr int MaxAlphabet = 258;
    // Rotations are sorted by reading bytes up to this prefix, and by
    // doubling beyond it; the block is followed by this many of its first
    // bytes again and more, so that prefixes can be read past its end.
    static constexpr int PrefixBytes = 10;
    static constexpr int Wrap = PrefixBytes + 8;

    qint64 takeRuns(const uchar *data, qint64 size, quint32 &crc);
    void sortRotations();
    void sortByBytes(int depth);
    void sortGroups(int offset);
    void moveToFront();
    void chooseTables();
    void writeBlock(PackageArchiveBitWriter &out, quint32 crc) const;

    int m_capacity;
    // The run-length coded block, and its first Wrap bytes again.
    std::vector<uchar> m_block;
    int m_length = 0;
    std::array<bool, 256> m_inUse {};
    // Rotation starts in sorted order, and each start's group (the index of
    // the first rotation sharing its sorted prefix).
    std::vector<qint32> m_order;
    std::vector<qint32> m_group;
    // Sort keys with the rotation: the next bytes, or the group further on.
    std::vector<std::pair<quint64, qint32>> m_prefixes;
    std::vector<quint64> m_keys;
    // Room for the radix sorts of those to move entries through.
    std::vector<std::pair<quint64, qint32>> m_prefixScratch;
    std::vector<quint64> m_keyScratch;
    // Unsorted groups as (first index, size).
    std::vector<std::pair<qint32, qint32>> m_unsorted;
    std::vector<std::pair<qint32, qint32>> m_stillUnsorted;
    int m_origin = 0;
    // The sorted rotations' last bytes, numbered among the bytes in use.
    std::vector<uchar> m_lastColumn;
    // Move-to-front output and what the Huffman stage makes of it.
    std::vector<quint16> m_symbols;
    int m_alphabet = 0;
    std::array<qint32, MaxAlphabet> m_frequencies {};
    int m_groups = 0;
    std::vector<uchar> m_selectors;
    uchar m_lengths[MaxGroups][MaxAlphabet] {};
};
