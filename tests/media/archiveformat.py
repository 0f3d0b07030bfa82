"""An independent reader and writer of package archives, written from the
format description alone, used to cross-check the C++ implementation.

Run as a script it writes the small archives the C++ tests read:
    python3 archiveformat.py make-data FOLDER
"""
import bz2
import os
import struct
import sys
import zlib
from collections import namedtuple

MAGIC = 0x71F5C6B1
LEGACY_MAGIC = 0xB231F47A
INNER_MAGIC = 0x4152C3C8

Member = namedtuple("Member", "name data mode mtime")
Parsed = namedtuple("Parsed", "version kind members raw")
Entry = namedtuple("Entry", "name offset size mode mtime data readonly")


def compress(kind, raw, level=7):
    if kind == 0:
        return zlib.compress(raw, level)
    if kind == 1:
        return bz2.compress(raw, level)
    raise ValueError(kind)


def body_v2(members):
    names = [m.name.encode("latin-1") for m in members]
    out = [struct.pack("<I16x", len(members))]
    offset = 20 + 18 * len(members) + sum(len(n) for n in names)
    for member, name in zip(members, names):
        out.append(struct.pack("<HIIIi", len(name), offset, len(member.data), member.mode, member.mtime))
        out.append(name)
        offset += len(member.data)
    out.extend(m.data for m in members)
    return b"".join(out)


def body_v1(members):
    out = [struct.pack("<II", INNER_MAGIC, len(members))]
    offset = 8 + 1040 * len(members)
    for member in members:
        name = member.name.encode("latin-1")
        assert len(name) < 1024
        readonly = 0 if member.mode & 0o222 else 1
        out.append(name.ljust(1024, b"\0") + struct.pack("<IIIi", offset, len(member.data), readonly, member.mtime))
        offset += len(member.data)
    out.extend(m.data for m in members)
    return b"".join(out)


def _bzip2_block(data, level):
    """The one block bz2 makes of data: (bits as an integer, bit count, block CRC)."""
    stream = bz2.compress(data, level)
    value, length = int.from_bytes(stream, "big"), len(stream) * 8
    # "BZh" and the level, the block, then the end magic, the stream CRC and up to 7 bits of padding.
    for pad in range(8):
        end = length - pad - 32 - 48
        if (value >> (length - end - 48)) & ((1 << 48) - 1) == 0x177245385090:
            break
    else:
        raise ValueError("more than one block")
    bits = end - 32
    block = (value >> (length - end)) & ((1 << bits) - 1)
    return block, bits, (block >> (bits - 80)) & 0xFFFFFFFF


def write_repeated(count, record, kind, level=9, piece_size=4 << 20):
    """A current archive whose table announces count members and holds count
    copies of record, in a few kilobytes: one compressed piece of records is
    repeated, so that tables of millions of records are made in a moment."""
    per_piece = max(1, piece_size // len(record))
    head = struct.pack("<I16x", count)
    pieces, left = [], count
    while left > 0:
        pieces.append(min(left, per_piece))
        left -= pieces[-1]
    out = [struct.pack("<IHH", MAGIC, (kind << 12) | 2, 0)]
    if kind == 0:
        # After a full flush deflate starts afresh, so one piece's bytes stand for every copy.
        compressor = zlib.compressobj(level)
        out.append(compressor.compress(head) + compressor.flush(zlib.Z_FULL_FLUSH))
        adler = zlib.adler32(head)
        made = {}
        for n in pieces:
            if n not in made:
                data = record * n
                made[n] = data, compressor.compress(data) + compressor.flush(zlib.Z_FULL_FLUSH)
            adler = zlib.adler32(made[n][0], adler)
            out.append(made[n][1])
        out.append(b"\x03\x00" + struct.pack(">I", adler))
        return b"".join(out)
    # bzip2 blocks are independent and bit-aligned: the same bits, once per piece.
    blocks = [_bzip2_block(head, level)]
    made = {}
    for n in pieces:
        if n not in made:
            made[n] = _bzip2_block(record * n, level)
        blocks.append(made[n])
    value, length, combined = 0, 0, 0
    for block, bits, crc in blocks:
        value, length = (value << bits) | block, length + bits
        combined = (((combined << 1) | (combined >> 31)) & 0xFFFFFFFF) ^ crc
    value, length = (value << 80) | (0x177245385090 << 32) | combined, length + 80
    value, length = value << (-length % 8), length + (-length % 8)
    out.append(b"BZh%d" % level + value.to_bytes(length // 8, "big"))
    return b"".join(out)


def size_estimate(members):
    total = (1040 * len(members) + sum(len(m.data) + 1040 for m in members)) & 0xFFFFFFFF
    return (total + total // 100 + 13) & 0xFFFFFFFF


def write_v2(members, kind=0, level=7, version=2):
    return struct.pack("<IHH", MAGIC, (kind << 12) | version, 0) + compress(kind, body_v2(members), level)


def write_v1(members, level=7):
    header = struct.pack("<II", LEGACY_MAGIC, 1) + struct.pack(">I", size_estimate(members))
    return header + zlib.compress(body_v1(members), level)


def decompress(kind, data):
    if kind == 0:
        d = zlib.decompressobj()
        raw = d.decompress(data)
        assert d.eof, "zlib body does not end"
        return raw
    if kind == 1:
        return bz2.decompress(data)
    raise ValueError("kind %d" % kind)


def parse(blob, offset=0):
    """Parses an archive starting at offset; checks the layout as it goes."""
    blob = blob[offset:]
    magic = struct.unpack_from("<I", blob)[0]
    if magic == MAGIC:
        field, zero = struct.unpack_from("<HH", blob, 4)
        assert zero == 0
        kind, version = field >> 12, field & 0xFFF
        assert version == 2, version
        raw = decompress(kind, blob[8:])
        count = struct.unpack_from("<I", raw)[0]
        assert raw[4:20] == b"\0" * 16
        pos = 20
        entries = []
        for _ in range(count):
            length, off, size, mode, mtime = struct.unpack_from("<HIIIi", raw, pos)
            name = raw[pos + 18:pos + 18 + length].decode("latin-1")
            pos += 18 + length
            entries.append([name, off, size, mode, mtime, None, None])
    elif magic == LEGACY_MAGIC:
        assert struct.unpack_from("<I", blob, 4)[0] == 1
        kind, version = 0, 1
        raw = decompress(0, blob[12:])
        inner, count = struct.unpack_from("<II", raw)
        assert inner == INNER_MAGIC
        pos = 8
        entries = []
        for _ in range(count):
            field = raw[pos:pos + 1024]
            name = field.split(b"\0", 1)[0]
            assert field[len(name):] == b"\0" * (1024 - len(name)), "name field not zero-filled"
            off, size, readonly, mtime = struct.unpack_from("<IIIi", raw, pos + 1024)
            assert readonly in (0, 1)
            pos += 1040
            entries.append([name.decode("latin-1"), off, size, None, mtime, None, readonly])
    else:
        raise ValueError("not an archive")
    # Data follows the table without gaps, in table order.
    for entry in entries:
        assert entry[1] == pos, "member %s at %d, expected %d" % (entry[0], entry[1], pos)
        entry[5] = raw[entry[1]:entry[1] + entry[2]]
        assert len(entry[5]) == entry[2]
        pos += entry[2]
    assert pos == len(raw), "trailing bytes in body"
    if version == 1:
        estimate = struct.unpack_from(">I", blob, 8)[0]
        members = [Member(e[0], e[5], 0o444 if e[6] else 0o666, e[4]) for e in entries]
        assert estimate == size_estimate(members), "size estimate %d" % estimate
    return Parsed(version, kind, [Entry(*e) for e in entries], raw)


def sample_members():
    return [
        Member("readme.txt", b"hello archive\n", 0o100644, 1_600_000_000),
        Member("bin/tool", bytes(range(256)) * 40, 0o100755, 1_500_000_000),
        Member("empty", b"", 0o100444, 0),
        Member("lib/caf\u00e9.so", b"\x7fELF" + b"x" * 5000, 0o100555, 2_000_000_000),
    ]


def make_data(folder):
    members = sample_members()
    os.makedirs(folder, exist_ok=True)

    def put(name, data):
        with open(os.path.join(folder, name), "wb") as f:
            f.write(data)

    v2 = write_v2(members)
    put("v2-zlib.pa", v2)
    put("v2-bzip2.pa", write_v2(members, kind=1))
    put("v1.pa", write_v1(members))
    put("v1-empty.pa", write_v1([]))
    put("v1-in-current-bzip2.pa", struct.pack("<IHH", MAGIC, (1 << 12) | 1, 0) + bz2.compress(body_v1(members)))
    put("v2-empty.pa", write_v2([]))
    put("embedded-at-1000.bin", b"\x7fELF" + b"\xAA" * 996 + write_v2(members, kind=1))
    put("plain-v1-empty.pa", struct.pack("<II", INNER_MAGIC, 0))
    put("plain-v1-one.pa", body_v1(members[:1]))
    put("version0.pa", write_v2(members, version=0))
    put("version3.pa", write_v2(members, version=3))
    put("kind2.pa", struct.pack("<IHH", MAGIC, (2 << 12) | 2, 0) + body_v2(members))
    put("short-header.pa", struct.pack("<I", MAGIC))
    put("not-an-archive.txt", b"just some text, long enough\n")
    put("legacy-bad-inner.pa", struct.pack("<IIi", LEGACY_MAGIC, 1, 0) + zlib.compress(b"\0" * 16))
    put("truncated-zlib.pa", v2[:60])
    put("truncated-table-zlib.pa", struct.pack("<IHH", MAGIC, 2, 0) + zlib.compress(body_v2(members)[:40]))
    corrupt = bytearray(v2)
    for i in range(20, 40):
        corrupt[i] ^= 0x5A
    put("corrupt-zlib.pa", bytes(corrupt))
    bz = write_v2(members, kind=1)
    put("truncated-bzip2.pa", bz[:len(bz) - 20])
    corrupt = bytearray(bz)
    for i in range(30, 50):
        corrupt[i] ^= 0x5A
    put("corrupt-bzip2.pa", bytes(corrupt))
    # The table promises more data than the body holds.
    short = write_v2([Member("big", b"x" * 10, 0o100644, 0)])
    body = bytearray(body_v2([Member("big", b"x" * 10, 0o100644, 0)]))
    struct.pack_into("<I", body, 20 + 6, 100)
    put("short-member-zlib.pa", short[:8] + zlib.compress(bytes(body)))


if __name__ == "__main__":
    if len(sys.argv) == 3 and sys.argv[1] == "make-data":
        make_data(sys.argv[2])
    else:
        sys.exit("usage: archiveformat.py make-data FOLDER")
