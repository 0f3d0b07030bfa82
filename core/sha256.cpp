#include "core/sha256.h"

#include <cpuid.h>
#include <cstring>
#include <immintrin.h>

namespace {

const uint32_t roundConstants[64]
    = { 0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
          0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
          0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
          0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
          0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
          0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
          0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
          0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2 };

// Asked once: under a hypervisor each cpuid traps out of the guest, which
// cost more than hashing a small file.
bool askShaExtensions()
{
    unsigned a = 0, b = 0, c = 0, d = 0;
    if (!__get_cpuid(1, &a, &b, &c, &d) || !(c & bit_SSE4_1) || !(c & bit_SSSE3))
        return false;
    return __get_cpuid_count(7, 0, &a, &b, &c, &d) && (b & bit_SHA);
}

bool hasShaExtensions()
{
    static const bool has = askShaExtensions();
    return has;
}

// The blocks through the SHA extensions. The state is held as the
// instructions want it, ABEF and CDGH; each step of four rounds takes the
// next four words of the schedule, which the message instructions extend
// in place.
__attribute__((target("sha,sse4.1,ssse3"))) void compressWithExtensions(
    uint32_t state[8], const unsigned char *data, qint64 count)
{
    const __m128i byteOrder = _mm_set_epi64x(0x0c0d0e0f08090a0bULL, 0x0405060700010203ULL);
    __m128i cdab = _mm_shuffle_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i *>(state)), 0xB1);
    __m128i efgh = _mm_shuffle_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i *>(state + 4)), 0x1B);
    __m128i abef = _mm_alignr_epi8(cdab, efgh, 8);
    __m128i cdgh = _mm_blend_epi16(efgh, cdab, 0xF0);

    for (; count > 0; --count, data += 64) {
        const __m128i abefBefore = abef;
        const __m128i cdghBefore = cdgh;
        __m128i words[4];
        for (int i = 0; i < 4; ++i)
            words[i] = _mm_shuffle_epi8(
                _mm_loadu_si128(reinterpret_cast<const __m128i *>(data + 16 * i)), byteOrder);
        for (int step = 0; step < 16; ++step) {
            __m128i &current = words[step % 4];
            __m128i &next = words[(step + 1) % 4];
            __m128i &previous = words[(step + 3) % 4];
            __m128i message = _mm_add_epi32(
                current, _mm_loadu_si128(reinterpret_cast<const __m128i *>(roundConstants + 4 * step)));
            cdgh = _mm_sha256rnds2_epu32(cdgh, abef, message);
            if (step >= 3 && step < 15) {
                next = _mm_add_epi32(next, _mm_alignr_epi8(current, previous, 4));
                next = _mm_sha256msg2_epu32(next, current);
            }
            message = _mm_shuffle_epi32(message, 0x0E);
            abef = _mm_sha256rnds2_epu32(abef, cdgh, message);
            if (step >= 1 && step < 13)
                previous = _mm_sha256msg1_epu32(previous, current);
        }
        abef = _mm_add_epi32(abef, abefBefore);
        cdgh = _mm_add_epi32(cdgh, cdghBefore);
    }

    const __m128i feba = _mm_shuffle_epi32(abef, 0x1B);
    const __m128i dchg = _mm_shuffle_epi32(cdgh, 0xB1);
    _mm_storeu_si128(reinterpret_cast<__m128i *>(state), _mm_blend_epi16(feba, dchg, 0xF0));
    _mm_storeu_si128(reinterpret_cast<__m128i *>(state + 4), _mm_alignr_epi8(dchg, feba, 8));
}

} // namespace

Sha256::Sha256()
    : m_extensions(hasShaExtensions())
    , m_portable(QCryptographicHash::Sha256)
    , m_state { 0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a, 0x510e527f, 0x9b05688c, 0x1f83d9ab,
        0x5be0cd19 }
{ }

void Sha256::compress(const unsigned char *blocks, qint64 count)
{
    compressWithExtensions(m_state, blocks, count);
}

void Sha256::addData(const char *data, qint64 size)
{
    if (!m_extensions) {
        m_portable.addData(QByteArrayView(data, size));
        return;
    }
    const auto *bytes = reinterpret_cast<const unsigned char *>(data);
    m_length += quint64(size);
    if (m_pendingSize > 0) {
        const int taken = int(std::min<qint64>(size, 64 - m_pendingSize));
        std::memcpy(m_pending + m_pendingSize, bytes, size_t(taken));
        m_pendingSize += taken;
        bytes += taken;
        size -= taken;
        if (m_pendingSize < 64)
            return;
        compress(m_pending, 1);
        m_pendingSize = 0;
    }
    compress(bytes, size / 64);
    m_pendingSize = int(size % 64);
    std::memcpy(m_pending, bytes + size - m_pendingSize, size_t(m_pendingSize));
}

QByteArray Sha256::result()
{
    if (!m_extensions)
        return m_portable.result();
    // A one bit, zeros up to 56 bytes into a block, the length in bits.
    const quint64 bits = m_length * 8;
    unsigned char tail[72] = { 0x80 };
    const int padding = (m_pendingSize < 56 ? 56 : 120) - m_pendingSize;
    for (int i = 0; i < 8; ++i)
        tail[padding + i] = static_cast<unsigned char>(bits >> (56 - 8 * i));
    addData(reinterpret_cast<const char *>(tail), padding + 8);
    QByteArray digest(32, Qt::Uninitialized);
    for (int i = 0; i < 32; ++i)
        digest[i] = char(m_state[i / 4] >> (24 - 8 * (i % 4)));
    return digest;
}
