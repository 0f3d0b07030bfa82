#include "archive/packagearchivebzblockencoder.h"

#include "archive/packagearchivebitwriter.h"

#include <algorithm>
#include <cstring>
#include <queue>

namespace {

// bzip2's CRC: CRC-32 shifted most significant bit first.
struct CrcTable
{
    quint32 values[256];
    constexpr CrcTable()
        : values {}
    {
        for (quint32 i = 0; i < 256; ++i) {
            quint32 crc = i << 24;
            for (int bit = 0; bit < 8; ++bit)
                crc = (crc & 0x80000000u) ? (crc << 1) ^ 0x04c11db7u : crc << 1;
            values[i] = crc;
        }
    }
};
constexpr CrcTable Crc;

const int RunA = 0;
const int RunB = 1;
const int GroupSize = 50;
const int MaxCodeLength = 17;
// Rounds of choosing a table per group and rebuilding the tables from the
// groups that chose them, as bzip2 does.
const int TableRounds = 4;

quint64 bigEndian64(const uchar *bytes)
{
    quint64 value;
    std::memcpy(&value, bytes, sizeof value);
    return __builtin_bswap64(value);
}

// Sorts entries by key(entry) >> lowest (a multiple of 8), a byte at a
// time from the highest one in which they differ: a counting pass a byte,
// and std::sort once a run is short. Rotations sorted on text fall into
// large groups that share their first bytes, where counting beats comparing.
template<typename Entry, typename Key>
void radixSort(Entry *entries, int size, Entry *scratch, int lowest, const Key &key)
{
    const int shortRun = 64;
    if (size < 2)
        return;
    if (size <= shortRun) {
        std::sort(entries, entries + size,
            [&key, lowest](const Entry &a, const Entry &b) { return key(a) >> lowest < key(b) >> lowest; });
        return;
    }
    quint64 differing = 0;
    const quint64 first = key(entries[0]);
    for (int i = 1; i < size; ++i)
        differing |= key(entries[i]) ^ first;
    differing >>= lowest;
    if (differing == 0)
        return;
    const int shift = lowest + (63 - __builtin_clzll(differing)) / 8 * 8;
    int starts[257] = {};
    for (int i = 0; i < size; ++i)
        ++starts[((key(entries[i]) >> shift) & 0xFF) + 1];
    for (int byte = 0; byte < 256; ++byte)
        starts[byte + 1] += starts[byte];
    int next[256];
    std::copy(starts, starts + 256, next);
    for (int i = 0; i < size; ++i)
        scratch[next[(key(entries[i]) >> shift) & 0xFF]++] = entries[i];
    std::copy(scratch, scratch + size, entries);
    if (shift == lowest)
        return;
    for (int byte = 0; byte < 256; ++byte)
        radixSort(entries + starts[byte], starts[byte + 1] - starts[byte], scratch, lowest, key);
}

// Huffman code lengths for frequencies, none longer than MaxCodeLength: when
// the tree is too deep the frequencies are flattened and it is built again.
void makeCodeLengths(uchar *lengths, const qint32 *frequencies, int alphabet)
{
    quint32 weights[2 * 258];
    int parents[2 * 258];
    for (int i = 0; i < alphabet; ++i)
        weights[i] = quint32(qMax(frequencies[i], 1));
    for (;;) {
        // Ties go to the shallower subtree, which keeps the tree flat.
        using Entry = std::pair<quint64, int>;
        std::priority_queue<Entry, std::vector<Entry>, std::greater<Entry>> heap;
        quint32 depths[2 * 258];
        for (int i = 0; i < alphabet; ++i) {
            depths[i] = 0;
            heap.emplace(quint64(weights[i]) << 8, i);
        }
        int nodes = alphabet;
        while (heap.size() > 1) {
            const Entry first = heap.top();
            heap.pop();
            const Entry second = heap.top();
            heap.pop();
            const int node = nodes++;
            parents[first.second] = node;
            parents[second.second] = node;
            depths[node] = 1 + qMax(depths[first.second], depths[second.second]);
            heap.emplace(((first.first >> 8) + (second.first >> 8)) << 8 | depths[node], node);
        }
        const int root = nodes - 1;
        bool tooLong = false;
        for (int i = 0; i < alphabet; ++i) {
            int length = 0;
            for (int node = i; node != root; node = parents[node])
                ++length;
            lengths[i] = uchar(length);
            tooLong = tooLong || length > MaxCodeLength;
        }
        if (!tooLong)
            return;
        for (int i = 0; i < alphabet; ++i)
            weights[i] = 1 + weights[i] / 2;
    }
}

} // namespace

PackageArchiveBzBlockEncoder::PackageArchiveBzBlockEncoder(int level)
    // bzip2 readers refuse a block of 100,000 * level bytes or more; its own
    // writer stops 19 short.
    : m_capacity(100000 * qBound(1, level, 9) - 19)
    , m_block(size_t(m_capacity) + Wrap)
{ }

qint64 PackageArchiveBzBlockEncoder::encode(
    const uchar *data, qint64 size, PackageArchiveBitWriter &out, quint32 &crc)
{
    const qint64 taken = takeRuns(data, size, crc);
    sortRotations();
    moveToFront();
    chooseTables();
    writeBlock(out, crc);
    return taken;
}

// Runs of 4 to 255 equal bytes become the 4 bytes and a count of the rest.
qint64 PackageArchiveBzBlockEncoder::takeRuns(const uchar *data, qint64 size, quint32 &crc)
{
    m_inUse.fill(false);
    quint32 sum = 0xffffffffu;
    uchar *block = m_block.data();
    qint64 taken = 0;
    int length = 0;
    // A run adds at most 5 bytes.
    while (taken < size && length + 5 <= m_capacity) {
        const uchar byte = data[taken];
        const qint64 most = qMin<qint64>(255, size - taken);
        int run = 1;
        while (run < most && data[taken + run] == byte)
            ++run;
        for (int i = 0; i < run; ++i)
            sum = sum << 8 ^ Crc.values[(sum >> 24) ^ byte];
        m_inUse[byte] = true;
        if (run < 4) {
            std::memset(block + length, byte, size_t(run));
            length += run;
        } else {
            std::memset(block + length, byte, 4);
            block[length + 4] = uchar(run - 4);
            m_inUse[run - 4] = true;
            length += 5;
        }
        taken += run;
    }
    crc = ~sum;
    m_length = length;
    return taken;
}

// Sorts the block's rotations: by their first two bytes by counting, then
// groups that tie by the next eight bytes at a time up to PrefixBytes, then
// by the group of the rotation h further on, doubling h, until every group
// is one rotation or the rest are equal all the way round.
void PackageArchiveBzBlockEncoder::sortRotations()
{
    const int n = m_length;
    uchar *block = m_block.data();
    for (int i = 0; i < Wrap; ++i)
        block[n + i] = block[i % n];
    m_order.resize(size_t(n));
    m_unsorted.clear();

    std::vector<qint32> starts(65537, 0);
    for (int p = 0; p < n; ++p)
        ++starts[size_t(block[p] << 8 | block[p + 1]) + 1];
    for (int key = 0; key < 65536; ++key) {
        starts[size_t(key) + 1] += starts[size_t(key)];
        if (starts[size_t(key) + 1] - starts[size_t(key)] > 1)
            m_unsorted.emplace_back(starts[size_t(key)], starts[size_t(key) + 1] - starts[size_t(key)]);
    }
    for (int p = 0; p < n; ++p)
        m_order[size_t(starts[size_t(block[p] << 8 | block[p + 1])]++)] = p;

    // Reading bytes touches less memory than reading groups, while prefixes are short.
    for (int depth = 2; depth < PrefixBytes && depth < n && !m_unsorted.empty(); depth += 8)
        sortByBytes(depth);
    if (m_unsorted.empty() || PrefixBytes >= n)
        return;
    m_group.resize(size_t(n));
    for (int i = 0; i < n; ++i)
        m_group[size_t(m_order[size_t(i)])] = i;
    for (const auto &[first, size] : m_unsorted) {
        for (int i = first; i < first + size; ++i)
            m_group[size_t(m_order[size_t(i)])] = first;
    }
    // Rotations longer than the block are equal all the way round.
    for (qint64 h = PrefixBytes; !m_unsorted.empty() && h < n; h *= 2)
        sortGroups(int(h));
}

// Sorts the unsorted groups, whose rotations share depth bytes, by the
// eight bytes that follow.
void PackageArchiveBzBlockEncoder::sortByBytes(int depth)
{
    const uchar *block = m_block.data();
    m_stillUnsorted.clear();
    for (const auto &[first, size] : m_unsorted) {
        // As large as the largest group so far: on most data far below the block.
        if (m_prefixes.size() < size_t(size))
            m_prefixes.resize(size_t(size));
        const auto entries = m_prefixes.begin();
        bool allEqual = true;
        for (int i = 0; i < size; ++i) {
            const qint32 rotation = m_order[size_t(first + i)];
            entries[i] = { bigEndian64(block + rotation + depth), rotation };
            allEqual = allEqual && entries[i].first == entries[0].first;
        }
        if (allEqual) {
            m_stillUnsorted.emplace_back(first, size);
            continue;
        }
        if (m_prefixScratch.size() < size_t(size))
            m_prefixScratch.resize(size_t(size));
        radixSort(&*entries, size, m_prefixScratch.data(), 0,
            [](const std::pair<quint64, qint32> &entry) { return entry.first; });
        for (int i = 0; i < size;) {
            int same = i + 1;
            while (same < size && entries[same].first == entries[i].first)
                ++same;
            for (int j = i; j < same; ++j)
                m_order[size_t(first + j)] = entries[j].second;
            if (same - i > 1)
                m_stillUnsorted.emplace_back(first + i, same - i);
            i = same;
        }
    }
    m_unsorted.swap(m_stillUnsorted);
}

// One doubling round: the groups, whose rotations share offset bytes, by
// the group of the rotation offset further on. Groups split earlier in the
// round are read with their new numbers, which order rotations by a longer
// prefix still.
void PackageArchiveBzBlockEncoder::sortGroups(int offset)
{
    const int n = m_length;
    m_stillUnsorted.clear();
    for (const auto &[first, size] : m_unsorted) {
        // The group number above the rotation: sorting the pair sorts by the number.
        if (m_keys.size() < size_t(size))
            m_keys.resize(size_t(size));
        quint64 *keys = m_keys.data();
        bool allEqual = true;
        for (int i = 0; i < size; ++i) {
            const qint32 rotation = m_order[size_t(first + i)];
            qint32 further = rotation + offset;
            if (further >= n)
                further -= n;
            keys[i] = quint64(quint32(m_group[size_t(further)])) << 32 | quint32(rotation);
            allEqual = allEqual && keys[i] >> 32 == keys[0] >> 32;
        }
        if (allEqual) {
            m_stillUnsorted.emplace_back(first, size);
            continue;
        }
        if (m_keyScratch.size() < size_t(size))
            m_keyScratch.resize(size_t(size));
        radixSort(keys, size, m_keyScratch.data(), 32, [](quint64 key) { return key; });
        for (int i = 0; i < size;) {
            int same = i + 1;
            while (same < size && keys[same] >> 32 == keys[i] >> 32)
                ++same;
            for (int j = i; j < same; ++j) {
                const qint32 rotation = qint32(keys[j] & 0xffffffffu);
                m_order[size_t(first + j)] = rotation;
                m_group[size_t(rotation)] = first + i;
            }
            if (same - i > 1)
                m_stillUnsorted.emplace_back(first + i, same - i);
            i = same;
        }
    }
    m_unsorted.swap(m_stillUnsorted);
}

// The last column of the sorted rotations, move-to-front coded over the
// bytes in use, runs of the front symbol written in bijective base 2 with
// RunA and RunB, then the end of block.
void PackageArchiveBzBlockEncoder::moveToFront()
{
    const int n = m_length;
    const uchar *block = m_block.data();
    uchar sequence[256];
    int inUse = 0;
    for (int byte = 0; byte < 256; ++byte) {
        if (m_inUse[size_t(byte)])
            sequence[byte] = uchar(inUse++);
    }
    m_alphabet = inUse + 2;
    std::fill(m_frequencies.begin(), m_frequencies.end(), 0);
    m_symbols.resize(size_t(n) + 1);
    quint16 *symbols = m_symbols.data();
    int count = 0;

    // Each symbol's place in the move-to-front list, rather than the list:
    // moving one to the front moves every symbol ahead of it back one,
    // which is one pass over all 256 places in vector registers, where
    // searching and shifting a list costs two calls and a pass each.
    uchar place[256];
    for (int i = 0; i < 256; ++i)
        place[i] = uchar(i);
    int zeros = 0;
    const auto flushZeros = [&] {
        if (zeros == 0)
            return;
        for (int rest = zeros - 1;; rest = (rest - 2) / 2) {
            const int symbol = (rest & 1) ? RunB : RunA;
            symbols[count++] = quint16(symbol);
            ++m_frequencies[size_t(symbol)];
            if (rest < 2)
                break;
        }
        zeros = 0;
    };
    // The last column is gathered first, in a loop of its own: its reads
    // land all over the block, and only a loop this short keeps many of
    // them under way at once.
    m_lastColumn.resize(size_t(n));
    uchar *last = m_lastColumn.data();
    for (int i = 0; i < n; ++i) {
        const qint32 before = m_order[size_t(i)] - 1;
        last[i] = sequence[block[before < 0 ? n - 1 : before]];
    }
    m_origin = int(std::find(m_order.begin(), m_order.end(), 0) - m_order.begin());
    for (int i = 0; i < n; ++i) {
        const uchar symbol = last[i];
        const uchar at = place[symbol];
        if (at == 0) {
            ++zeros;
            continue;
        }
        flushZeros();
        for (int other = 0; other < 256; ++other)
            place[other] = uchar(place[other] + (place[other] < at));
        place[symbol] = 0;
        symbols[count++] = quint16(at + 1);
        ++m_frequencies[size_t(at + 1)];
    }
    flushZeros();
    symbols[count++] = quint16(inUse + 1);
    ++m_frequencies[size_t(inUse + 1)];
    m_symbols.resize(size_t(count));
}

void PackageArchiveBzBlockEncoder::chooseTables()
{
    const int count = int(m_symbols.size());
    const quint16 *symbols = m_symbols.data();
    m_groups = count < 200 ? 2 : count < 600 ? 3 : count < 1200 ? 4 : count < 2400 ? 5 : 6;

    // Start with tables that each cover a slice of the alphabet holding an
    // equal share of the symbols.
    int remaining = count;
    int first = 0;
    for (int parts = m_groups; parts > 0; --parts) {
        const int share = remaining / parts;
        int last = first - 1;
        int gathered = 0;
        while (gathered < share && last < m_alphabet - 1)
            gathered += m_frequencies[size_t(++last)];
        if (last > first && parts != m_groups && parts != 1 && (m_groups - parts) % 2 == 1)
            gathered -= m_frequencies[size_t(last--)];
        for (int symbol = 0; symbol < m_alphabet; ++symbol)
            m_lengths[parts - 1][symbol] = uchar(symbol >= first && symbol <= last ? 0 : 15);
        first = last + 1;
        remaining -= gathered;
    }

    m_selectors.resize(size_t((count + GroupSize - 1) / GroupSize));
    for (int round = 0; round < TableRounds; ++round) {
        // Four 16-bit costs to a word: a group's cost under every table in
        // two additions a symbol.
        quint64 low[MaxAlphabet];
        quint64 high[MaxAlphabet];
        for (int symbol = 0; symbol < m_alphabet; ++symbol) {
            low[symbol] = high[symbol] = 0;
            for (int table = 0; table < m_groups; ++table) {
                quint64 &word = table < 4 ? low[symbol] : high[symbol];
                word |= quint64(m_lengths[table][symbol]) << (16 * (table % 4));
            }
        }
        qint32 frequencies[MaxGroups][MaxAlphabet] = {};
        for (int start = 0, group = 0; start < count; start += GroupSize, ++group) {
            const int end = qMin(start + GroupSize, count);
            quint64 lowCost = 0;
            quint64 highCost = 0;
            for (int i = start; i < end; ++i) {
                lowCost += low[symbols[i]];
                highCost += high[symbols[i]];
            }
            int best = 0;
            quint32 bestCost = ~0u;
            for (int table = 0; table < m_groups; ++table) {
                const quint32 cost
                    = quint32(((table < 4 ? lowCost : highCost) >> (16 * (table % 4))) & 0xffff);
                if (cost < bestCost) {
                    bestCost = cost;
                    best = table;
                }
            }
            m_selectors[size_t(group)] = uchar(best);
            for (int i = start; i < end; ++i)
                ++frequencies[best][symbols[i]];
        }
        for (int table = 0; table < m_groups; ++table)
            makeCodeLengths(m_lengths[table], frequencies[table], m_alphabet);
    }
}

void PackageArchiveBzBlockEncoder::writeBlock(PackageArchiveBitWriter &out, quint32 crc) const
{
    out.reserve(qsizetype(out.bitCount() / 8) + m_length + 1024);
    out.write(0x314159, 24);
    out.write(0x265359, 24);
    out.write(crc, 32);
    out.write(0, 1); // not randomised
    out.write(quint32(m_origin), 24);

    // Which bytes occur: sixteen ranges of sixteen, then each range in use.
    quint32 ranges = 0;
    for (int range = 0; range < 16; ++range) {
        for (int byte = range * 16; byte < range * 16 + 16; ++byte) {
            if (m_inUse[size_t(byte)])
                ranges |= 0x8000u >> range;
        }
    }
    out.write(ranges, 16);
    for (int range = 0; range < 16; ++range) {
        if (!(ranges & (0x8000u >> range)))
            continue;
        quint32 bytes = 0;
        for (int byte = 0; byte < 16; ++byte) {
            if (m_inUse[size_t(range * 16 + byte)])
                bytes |= 0x8000u >> byte;
        }
        out.write(bytes, 16);
    }

    out.write(quint32(m_groups), 3);
    out.write(quint32(m_selectors.size()), 15);
    uchar recent[MaxGroups];
    for (int table = 0; table < m_groups; ++table)
        recent[table] = uchar(table);
    for (const uchar selector : m_selectors) {
        int at = 0;
        while (recent[at] != selector)
            ++at;
        std::memmove(recent + 1, recent, size_t(at));
        recent[0] = selector;
        out.write((1u << (at + 1)) - 2, at + 1);
    }

    // Code lengths as differences from the previous one; codes canonical.
    quint32 codes[MaxGroups][MaxAlphabet];
    for (int table = 0; table < m_groups; ++table) {
        const uchar *lengths = m_lengths[table];
        int current = lengths[0];
        out.write(quint32(current), 5);
        for (int symbol = 0; symbol < m_alphabet; ++symbol) {
            for (; current < lengths[symbol]; ++current)
                out.write(2, 2);
            for (; current > lengths[symbol]; --current)
                out.write(3, 2);
            out.write(0, 1);
        }
        quint32 code = 0;
        for (int length = 1; length <= MaxCodeLength; ++length) {
            for (int symbol = 0; symbol < m_alphabet; ++symbol) {
                if (lengths[symbol] == length)
                    codes[table][symbol] = code++;
            }
            code <<= 1;
        }
    }

    const quint16 *symbols = m_symbols.data();
    const int count = int(m_symbols.size());
    for (int start = 0, group = 0; start < count; start += GroupSize, ++group) {
        const int table = m_selectors[size_t(group)];
        const int end = qMin(start + GroupSize, count);
        for (int i = start; i < end; ++i)
            out.write(codes[table][symbols[i]], m_lengths[table][symbols[i]]);
    }
}
