"""An independent reader and writer of package archives, written from the
format description alone (archive/packagearchive.cpp), with Python's own zlib
and bz2. It checks packarchive both ways and writes the end-to-end tests'
crafted archives.

    python3 archiveformat.py test PACKARCHIVE   # packarchive against this module
    python3 archiveformat.py make-data FOLDER   # the archives in tests/data/archives
"""
import bz2
import os
import random
import resource
import stat
import struct
import subprocess
import sys
import tempfile
import time
import unittest
import zlib
from collections import namedtuple

MAGIC, LEGACY_MAGIC, INNER_MAGIC = 0x71F5C6B1, 0xB231F47A, 0x4152C3C8
Member = namedtuple("Member", "name data mode mtime")
Entry = namedtuple("Entry", "name data mode mtime readonly")


def body_v2(members):
    names = [m.name.encode("latin-1") for m in members]
    out = [struct.pack("<I16x", len(members))]
    offset = 20 + 18 * len(members) + sum(len(n) for n in names)
    for member, name in zip(members, names):
        out += [struct.pack("<HIIIi", len(name), offset, len(member.data), member.mode, member.mtime), name]
        offset += len(member.data)
    return b"".join(out + [m.data for m in members])


def body_v1(members):
    out = [struct.pack("<II", INNER_MAGIC, len(members))]
    offset = 8 + 1040 * len(members)
    for member in members:
        readonly = 0 if member.mode & 0o222 else 1
        out.append(member.name.encode("latin-1").ljust(1024, b"\0")
                   + struct.pack("<IIIi", offset, len(member.data), readonly, member.mtime))
        offset += len(member.data)
    return b"".join(out + [m.data for m in members])


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
    body = body_v2(members)
    return struct.pack("<IHH", MAGIC, (kind << 12) | version, 0) + (
        zlib.compress(body, level) if kind == 0 else bz2.compress(body, level))


def write_v1(members, level=7):
    return struct.pack("<II", LEGACY_MAGIC, 1) + struct.pack(">I", size_estimate(members)) + zlib.compress(
        body_v1(members), level)


def parse(blob, offset=0):
    """The members of the archive at offset; checks the layout on the way."""
    blob = blob[offset:]
    magic = struct.unpack_from("<I", blob)[0]
    if magic == MAGIC:
        field, zero = struct.unpack_from("<HH", blob, 4)
        kind, version = field >> 12, field & 0xFFF
        assert (zero, version) == (0, 2)
        if kind == 0:
            inflater = zlib.decompressobj()
            raw = inflater.decompress(blob[8:])
            assert inflater.eof and not inflater.unused_data, "not one whole zlib stream"
        else:
            inflater = bz2.BZ2Decompressor()
            raw = inflater.decompress(blob[8:])
            assert inflater.eof and not inflater.unused_data, "not one whole bzip2 stream"
        count, pos, records = struct.unpack_from("<I", raw)[0], 20, []
        assert raw[4:20] == b"\0" * 16
        for _ in range(count):
            length, off, size, mode, mtime = struct.unpack_from("<HIIIi", raw, pos)
            records.append((raw[pos + 18:pos + 18 + length].decode("latin-1"), off, size, mode, mtime, None))
            pos += 18 + length
    else:
        assert magic == LEGACY_MAGIC and struct.unpack_from("<I", blob, 4)[0] == 1
        kind, version, raw = 0, 1, zlib.decompress(blob[12:])
        inner, count = struct.unpack_from("<II", raw)
        assert inner == INNER_MAGIC
        pos, records = 8, []
        for _ in range(count):
            name = raw[pos:pos + 1024].split(b"\0", 1)[0]
            assert raw[pos + len(name):pos + 1024] == b"\0" * (1024 - len(name)), "name field not zero-filled"
            off, size, readonly, mtime = struct.unpack_from("<IIIi", raw, pos + 1024)
            records.append((name.decode("latin-1"), off, size, None, mtime, readonly))
            pos += 1040
    # Data follows the table without gaps, in table order, to the end.
    entries = []
    for name, off, size, mode, mtime, readonly in records:
        assert off == pos, "member %s at %d, expected %d" % (name, off, pos)
        entries.append(Entry(name, raw[off:off + size], mode, mtime, readonly))
        pos += size
    assert pos == len(raw), "trailing bytes in body"
    if version == 1:
        members = [Member(e.name, e.data, 0o444 if e.readonly else 0o666, e.mtime) for e in entries]
        assert struct.unpack_from(">I", blob, 8)[0] == size_estimate(members), "size estimate"
    return version, kind, entries


def sample_members():
    return [Member("readme.txt", b"hello archive\n", 0o100644, 1_600_000_000),
            Member("bin/tool", bytes(range(256)) * 40, 0o100755, 1_500_000_000),
            Member("empty", b"", 0o100444, 0),
            Member("lib/caf\u00e9.so", b"\x7fELF" + b"x" * 5000, 0o100555, 2_000_000_000)]


def make_data(folder):
    members, one = sample_members(), [Member("big", b"x" * 10, 0o100644, 0)]
    v2, bz = write_v2(members), write_v2(members, kind=1)
    short = bytearray(body_v2(one))
    struct.pack_into("<I", short, 20 + 6, 100)  # promises more than the body holds
    files = {
        "v2-zlib.pa": v2, "v2-bzip2.pa": bz, "v1.pa": write_v1(members), "v1-empty.pa": write_v1([]),
        "v1-in-current-bzip2.pa": struct.pack("<IHH", MAGIC, (1 << 12) | 1, 0) + bz2.compress(body_v1(members)),
        "v2-empty.pa": write_v2([]), "embedded-at-1000.bin": b"\x7fELF" + b"\xAA" * 996 + bz,
        "plain-v1-empty.pa": struct.pack("<II", INNER_MAGIC, 0), "plain-v1-one.pa": body_v1(members[:1]),
        "version0.pa": write_v2(members, version=0), "version3.pa": write_v2(members, version=3),
        "kind2.pa": struct.pack("<IHH", MAGIC, (2 << 12) | 2, 0) + body_v2(members),
        "short-header.pa": struct.pack("<I", MAGIC), "not-an-archive.txt": b"just some text, long enough\n",
        "legacy-bad-inner.pa": struct.pack("<IIi", LEGACY_MAGIC, 1, 0) + zlib.compress(b"\0" * 16),
        "truncated-zlib.pa": v2[:60], "truncated-bzip2.pa": bz[:len(bz) - 20],
        "truncated-table-zlib.pa": struct.pack("<IHH", MAGIC, 2, 0) + zlib.compress(body_v2(members)[:40]),
        "corrupt-zlib.pa": v2[:20] + bytes(b ^ 0x5A for b in v2[20:40]) + v2[40:],
        "corrupt-bzip2.pa": bz[:30] + bytes(b ^ 0x5A for b in bz[30:50]) + bz[50:],
        "short-member-zlib.pa": write_v2(one)[:8] + zlib.compress(bytes(short)),
    }
    os.makedirs(folder, exist_ok=True)
    for name, data in files.items():
        with open(os.path.join(folder, name), "wb") as f:
            f.write(data)


PACKARCHIVE = None
DATA = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "data", "archives")


def packarchive(*args, check=True):
    result = subprocess.run([PACKARCHIVE, *args], capture_output=True, text=True)
    if check and result.returncode != 0:
        raise AssertionError("packarchive %s failed: %s" % (" ".join(args), result.stderr))
    return result


class Packarchive(unittest.TestCase):
    def setUp(self):
        self.tmp = tempfile.TemporaryDirectory()
        self.addCleanup(self.tmp.cleanup)

    def path(self, name):
        return os.path.join(self.tmp.name, name)

    def test_what_it_writes_decodes_independently(self):
        rng, files = random.Random(7), {}
        for index, (name, mode, data) in enumerate([
                ("bin/tool", 0o755, bytes(rng.getrandbits(8) for _ in range(70000))), ("bin/empty", 0o644, b""),
                ("include/a/b/header.h", 0o444, b"#pragma once\n" * 300), ("top", 0o600, b"top-level")]):
            os.makedirs(os.path.dirname(self.path("tree/" + name)), exist_ok=True)
            with open(self.path("tree/" + name), "wb") as f:
                f.write(data)
            os.chmod(self.path("tree/" + name), mode)
            os.utime(self.path("tree/" + name), (1_400_000_000 + index * 86_401,) * 2)
            files[name] = (data, mode, 1_400_000_000 + index * 86_401)
        prefix = b"#!/bin/sh\nexit 0\n" * 10
        for version, kind, level, append in ((2, 0, 1, False), (2, 1, 9, True), (2, 0, 9, True), (1, 0, 7, True)):
            with self.subTest(version=version, kind=kind, level=level, append=append):
                archive = self.path("out-%d-%d-%d.pa" % (version, kind, level))
                with open(archive, "wb") as f:
                    f.write(prefix if append else b"")
                os.chmod(archive, 0o750)  # a data file may be a program: appending keeps its mode
                args = ["create", "-v%d" % version, "--bzip2" if kind else "--zlib", "-%d" % level]
                out = packarchive(*args + (["--append"] if append else []) + [archive, self.path("tree")]).stdout
                # The offset as Setup's --data-offset takes it, in hexadecimal.
                offset = int(out.partition("--data-offset ")[2].rstrip(")\n") or "0", 16)
                self.assertEqual(offset, len(prefix) if append else 0)
                if append:
                    self.assertEqual(stat.S_IMODE(os.stat(archive).st_mode), 0o750)
                with open(archive, "rb") as f:
                    self.assertEqual(parse(f.read(), offset)[:2], (version, kind))
                with open(archive, "rb") as f:
                    entries = parse(f.read(), offset)[2]
                self.assertEqual([e.name for e in entries], sorted(files))
                for entry in entries:
                    data, mode, mtime = files[entry.name]
                    self.assertEqual((entry.data, entry.mtime), (data, mtime), entry.name)
                    if version == 2:
                        self.assertEqual(entry.mode, stat.S_IFREG | mode, entry.name)
                    else:
                        self.assertEqual(entry.readonly, 0 if mode & 0o222 else 1, entry.name)

    def test_what_this_module_writes_lists_and_extracts(self):
        members = sample_members()
        for label, blob, version in (("v2 zlib", write_v2(members), 2), ("v2 bzip2", write_v2(members, 1), 2),
                                     ("v1", write_v1(members), 1)):
            with self.subTest(form=label):
                archive, out = self.path(label), self.path(label + "-out")
                with open(archive, "wb") as f:
                    f.write(b"\0" * 4097 + blob)
                packarchive("extract", "--offset", "4097", archive, out)
                listing = packarchive("list", "--offset", "4097", archive).stdout.splitlines()
                self.assertEqual(len(listing), len(members))
                for line, member in zip(listing, members):
                    mode = member.mode if version == 2 else (0o666 if member.mode & 0o222 else 0o444)
                    when = time.strftime("%Y-%m-%d %H:%M:%S", time.gmtime(member.mtime))
                    self.assertEqual(line.split(None, 4), ["%06o" % mode, str(len(member.data))] + when.split()
                                     + [member.name])
                    written = os.path.join(out, member.name)
                    with open(written, "rb") as f:
                        self.assertEqual(f.read(), member.data, member.name)
                    status = os.stat(written)
                    self.assertEqual((stat.S_IMODE(status.st_mode), int(status.st_mtime)), (mode & 0o777, member.mtime))

    def test_failures(self):
        # A name the table cannot hold, one byte a character.
        euro = self.path("euro/\u20ac.txt")
        os.makedirs(os.path.dirname(euro))
        open(euro, "wb").close()
        # Two members named "x", the later one's bytes first in the body.
        body = bytearray(body_v2([Member("x", b"later", 0o100644, 0), Member("x", b"first", 0o100644, 0)]))
        body[20:58] = body[39:58] + body[20:39]
        twice = self.path("twice.pa")
        with open(twice, "wb") as f:
            f.write(struct.pack("<IHH", MAGIC, 2, 0) + zlib.compress(bytes(body)))
        for args, expected in (
                (["list", "/nonexistent/a.pa"], "error: /nonexistent/a.pa does not exist\n"),
                (["verify", os.path.join(DATA, "corrupt-zlib.pa")], "error: error reading from compressed stream\n"),
                (["verify", os.path.join(DATA, "short-member-zlib.pa")], "error: big: error reading stream\n"),
                (["create", "-v1", "--bzip2", "x", "y"], "error: version 1 archives are always zlib\n"),
                (["extract", os.path.join(DATA, "v2-zlib.pa"), self.path("out"), "nothing"],
                 "error: no member nothing\n"),
                (["create", self.path("euro.pa"), self.path("euro")],
                 "error: refusing file name outside Latin-1 %s\n" % euro),
                (["extract", twice, self.path("twice")], "error: cannot overwrite file %s/x\n" % self.path("twice")),
                (["create", "/dev/full", DATA], "error: error writing to compressed stream\n"),
                (["bogus"], "error: unknown command bogus\n"), (["list"], "error: list needs one archive\n"),
                (["list", "-v1", "x"], "error: Unknown option 'v1'. (see packarchive --help)\n"),
                (["create", self.path("x.pa"), twice], "error: not a folder: %s\n" % twice),
                (["create", "--append", "/nonexistent/d", DATA], "error: /nonexistent/d does not exist\n")):
            with self.subTest(args=args):
                result = packarchive(*args, check=False)
                self.assertEqual((result.returncode, result.stderr), (1, expected))
        self.assertFalse(os.path.exists(self.path("euro.pa")))
        # The earlier member is kept without --overwrite, the later one wins with it.
        packarchive("extract", "--overwrite", twice, self.path("over"))
        for folder, data in (("twice", b"first"), ("over", b"later")):
            with open(self.path(folder + "/x"), "rb") as f:
                self.assertEqual(f.read(), data, folder)
        # Named members only, each below its folder.
        packarchive("extract", os.path.join(DATA, "v2-zlib.pa"), self.path("named"), "bin/tool", "empty")
        self.assertEqual(sorted(os.listdir(self.path("named"))) + os.listdir(self.path("named/bin")),
                         ["bin", "empty", "tool"])
        self.assertEqual(packarchive("verify", "--offset", "1000", os.path.join(DATA, "embedded-at-1000.bin")).stdout,
                         "ok: 4 members, 15258 bytes\n")

    def test_blocks_of_long_runs_extract_in_bounded_memory(self):
        # bzip2's own writer fills each block: 300 MB of one byte makes blocks
        # of 45 MB. The archive is made in a process of its own, as a child
        # starts with its parent's memory counted as its own.
        size, archive = 300 << 20, self.path("runs.pa")
        subprocess.run([sys.executable, "-c", "import sys; sys.path.insert(0, sys.argv[1]); import archiveformat as f\n"
                        "open(sys.argv[2], 'wb').write(f.write_v2([f.Member('flash.img', b'\\xff' * %d, 0o644, 0)],"
                        " 1, 9))" % size, os.path.dirname(os.path.abspath(__file__)), archive], check=True)
        process = subprocess.Popen([PACKARCHIVE, "extract", archive, self.path("out")], stderr=subprocess.PIPE)
        _, status, usage = os.wait4(process.pid, 0)
        self.assertEqual(os.waitstatus_to_exitcode(status), 0, process.stderr.read())
        process.stderr.close()
        # A sanitized build's shadow memory says nothing of ours.
        if not {"ASAN_OPTIONS", "TSAN_OPTIONS"} & os.environ.keys():
            self.assertLess(usage.ru_maxrss, 64 << 10)
        with open(self.path("out/flash.img"), "rb") as f:
            self.assertEqual(sum(chunk.count(b"\xff") for chunk in iter(lambda: f.read(1 << 20), b"")), size)

    def test_tables_too_large_for_the_installer_are_refused(self):
        # Refused before they take the memory, however few bytes they are compressed into.
        named = struct.pack("<HIIIi", 0xFFFF, 0, 0, 0o100644, 0) + b"a" * 0xFFFF
        for label, count, record, kind in (("20 million empty records, bzip2", 20_000_000, bytes(18), 1),
                                           ("20 million empty records, zlib", 20_000_000, bytes(18), 0),
                                           ("2,000 names of 64 KiB, bzip2", 2000, named, 1)):
            with self.subTest(label):
                with open(self.path("table.pa"), "wb") as f:
                    f.write(write_repeated(count, record, kind))
                # /usr/bin/time forks packarchive from a small process of its
                # own; a minute of processor time ends a run that hangs.
                result = subprocess.run(["/usr/bin/time", "-f", "%M %e", "-o", self.path("time"), PACKARCHIVE,
                                         "verify", self.path("table.pa")], capture_output=True, text=True,
                                        preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_CPU, (60, 60)))
                self.assertEqual((result.returncode, result.stderr), (1, "error: bad table of contents\n"))
                with open(self.path("time")) as f:
                    peak, seconds = f.read().split()[-2:]
                self.assertLess(float(seconds), 5)
                if not {"ASAN_OPTIONS", "TSAN_OPTIONS"} & os.environ.keys():
                    self.assertLess(int(peak), 64 << 10)


if __name__ == "__main__":
    if len(sys.argv) == 3 and sys.argv[1] == "make-data":
        make_data(sys.argv[2])
    elif len(sys.argv) == 3 and sys.argv[1] == "test":
        PACKARCHIVE = sys.argv[2]
        unittest.main(argv=sys.argv[:1], verbosity=1)
    else:
        sys.exit(__doc__)
