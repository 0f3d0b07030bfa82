"""End-to-end tests of packarchive against the independent format module.

Usage: test_packarchive.py PATH-TO-packarchive
"""
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

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import archiveformat as fmt  # noqa: E402

PACKARCHIVE = None


def run(*args, check=True):
    result = subprocess.run([PACKARCHIVE, *args], capture_output=True, text=True)
    if check and result.returncode != 0:
        raise AssertionError("packarchive %s failed: %s" % (" ".join(args), result.stderr))
    return result


def make_tree(root, seed=7):
    """A small tree with binaries, text, empty files, modes and old times."""
    rng = random.Random(seed)
    files = {}
    specs = [
        ("bin/tool", 0o755, bytes(rng.getrandbits(8) for _ in range(70000))),
        ("bin/empty", 0o644, b""),
        ("include/a/b/header.h", 0o444, b"#pragma once\n" * 300),
        ("doc/readme.txt", 0o600, b"read me\n"),
        ("top", 0o664, b"top-level"),
    ]
    for index, (name, mode, data) in enumerate(specs):
        path = os.path.join(root, name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "wb") as f:
            f.write(data)
        os.chmod(path, mode)
        mtime = 1_400_000_000 + index * 86_401
        os.utime(path, (mtime, mtime))
        files[name] = (data, mode, mtime)
    return files


class FromOurWriter(unittest.TestCase):
    """Archives written by packarchive decompress to exactly the described layout."""

    def check(self, version, kind, level, append):
        with tempfile.TemporaryDirectory() as tmp:
            tree = os.path.join(tmp, "tree")
            files = make_tree(tree)
            archive = os.path.join(tmp, "out.pa")
            prefix = b"#!/bin/sh\nexit 0\n" * 10
            args = ["create", "-v%d" % version, "--bzip2" if kind else "--zlib", "-%d" % level]
            if append:
                with open(archive, "wb") as f:
                    f.write(prefix)
                args.append("--append")
            result = run(*args, archive, tree)
            offset = int(result.stdout) if append else 0
            self.assertEqual(offset, len(prefix) if append else 0)
            with open(archive, "rb") as f:
                blob = f.read()
            if append:
                self.assertEqual(blob[:offset], prefix)
            parsed = fmt.parse(blob, offset)
            self.assertEqual((parsed.version, parsed.kind), (version, kind))
            self.assertEqual([e.name for e in parsed.members], sorted(files))
            for entry in parsed.members:
                data, mode, mtime = files[entry.name]
                self.assertEqual(entry.data, data, entry.name)
                self.assertEqual(entry.mtime, mtime, entry.name)
                if version == 2:
                    self.assertEqual(entry.mode, stat.S_IFREG | mode, entry.name)
                else:
                    self.assertEqual(entry.readonly, 0 if mode & 0o222 else 1, entry.name)
            # And our reader agrees with it.
            listing = run("list", "--offset", str(offset), archive).stdout.splitlines()
            self.assertEqual(len(listing), len(files))

    def test_versions_kinds_offsets(self):
        for version, kind in ((2, 0), (2, 1), (1, 0)):
            for append in (False, True):
                for level in (1, 9):
                    with self.subTest(version=version, kind=kind, append=append, level=level):
                        self.check(version, kind, level, append)

    def test_zero_members(self):
        with tempfile.TemporaryDirectory() as tmp:
            os.mkdir(os.path.join(tmp, "empty"))
            for version in (1, 2):
                archive = os.path.join(tmp, "v%d.pa" % version)
                run("create", "-v%d" % version, archive, os.path.join(tmp, "empty"))
                with open(archive, "rb") as f:
                    parsed = fmt.parse(f.read())
                self.assertEqual(parsed.members, [])
                self.assertEqual(run("list", archive).stdout, "")


class FromIndependentWriter(unittest.TestCase):
    """Archives written by the Python module read, list and extract exactly."""

    def extract_and_compare(self, blob, offset, members, version):
        with tempfile.TemporaryDirectory() as tmp:
            archive = os.path.join(tmp, "in.bin")
            with open(archive, "wb") as f:
                f.write(blob)
            out = os.path.join(tmp, "out")
            run("extract", "--offset", str(offset), archive, out)
            listing = run("list", "--offset", str(offset), archive).stdout.splitlines()
            self.assertEqual(len(listing), len(members))
            for line, member in zip(listing, members):
                mode = member.mode if version == 2 else (0o666 if member.mode & 0o222 else 0o444)
                expected_time = time.strftime("%Y-%m-%d %H:%M:%S", time.gmtime(member.mtime))
                self.assertEqual(line.split(None, 4),
                                 ["%06o" % mode, str(len(member.data))] + expected_time.split() + [member.name])
                path = os.path.join(out, member.name)
                with open(path, "rb") as f:
                    self.assertEqual(f.read(), member.data, member.name)
                status = os.stat(path)
                self.assertEqual(stat.S_IMODE(status.st_mode), mode & 0o777, member.name)
                self.assertEqual(int(status.st_mtime), member.mtime, member.name)

    def test_all_forms(self):
        members = fmt.sample_members()
        forms = {
            "v2 zlib": (fmt.write_v2(members, kind=0), 2),
            "v2 bzip2": (fmt.write_v2(members, kind=1), 2),
            "v1": (fmt.write_v1(members), 1),
        }
        for label, (blob, version) in forms.items():
            for prefix in (b"", b"\0" * 4097):
                with self.subTest(form=label, offset=len(prefix)):
                    self.extract_and_compare(prefix + blob, len(prefix), members, version)

    def test_extract_named_members_and_overwrite(self):
        with tempfile.TemporaryDirectory() as tmp:
            archive = os.path.join(tmp, "a.pa")
            with open(archive, "wb") as f:
                f.write(fmt.write_v2(fmt.sample_members()))
            out = os.path.join(tmp, "out")
            run("extract", archive, out, "readme.txt", "empty")
            self.assertEqual(sorted(os.listdir(out)), ["empty", "readme.txt"])
            failed = run("extract", archive, out, "readme.txt", check=False)
            self.assertEqual(failed.returncode, 1)
            self.assertEqual(failed.stderr, "error: cannot overwrite file %s/readme.txt\n" % out)
            run("extract", "--overwrite", archive, out, "readme.txt")
            missing = run("extract", archive, out, "nothing", check=False)
            self.assertEqual((missing.returncode, missing.stderr), (1, "error: no member nothing\n"))


class Failures(unittest.TestCase):
    def test_messages(self):
        data = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "data", "archives")
        cases = [
            (["list", "/nonexistent/a.pa"], "error: /nonexistent/a.pa does not exist\n"),
            (["verify", os.path.join(data, "corrupt-zlib.pa")], "error: error reading from compressed stream\n"),
            (["verify", os.path.join(data, "short-member-zlib.pa")], "error: big: error reading stream\n"),
            (["create", "-v1", "--bzip2", "x", "y"], "error: version 1 archives are always zlib\n"),
            (["create", "--bzip2", "-0", "/tmp/none.pa", data], "error: cannot initialise deflate\n"),
            (["list", "--bogus", "a"], "error: unknown option --bogus\n"),
            (["frobnicate"], "error: unknown command frobnicate\n"),
            ([], "error: no command given (see packarchive --help)\n"),
        ]
        for args, expected in cases:
            with self.subTest(args=args):
                result = run(*args, check=False)
                self.assertEqual((result.returncode, result.stderr), (1, expected))

    def test_help(self):
        result = run("--help")
        self.assertIn("Usage: packarchive", result.stdout)
        self.assertEqual(result.returncode, 0)

    def test_verify_reports_ok(self):
        data = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "data", "archives")
        result = run("verify", "--offset", "1000", os.path.join(data, "embedded-at-1000.bin"))
        self.assertEqual(result.stdout, "ok: 4 members, 15258 bytes\n")


class BoundedMemory(unittest.TestCase):
    """Extraction stays within its memory bound whatever the body holds."""

    def peak_memory_kb(self, *args):
        process = subprocess.Popen([PACKARCHIVE, *args], stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
        _, status, usage = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
        self.assertEqual(process.returncode, 0, process.stderr.read())
        process.stderr.close()
        return usage.ru_maxrss

    def test_blocks_of_long_runs(self):
        # bzip2's own writer fills each block: 300 MB of one byte makes
        # blocks of 45 MB each, far more than a few of them may take. The
        # archive is made in a process of its own: a child starts with the
        # memory of its parent, which is counted as its own.
        size = 300 << 20
        with tempfile.TemporaryDirectory() as tmp:
            archive = os.path.join(tmp, "runs.pa")
            subprocess.run([sys.executable, "-c",
                            "import sys; sys.path.insert(0, sys.argv[1]); import archiveformat as fmt\n"
                            "member = fmt.Member('bin/flash.img', b'\\xff' * int(sys.argv[3]), 0o644, 1500000000)\n"
                            "open(sys.argv[2], 'wb').write(fmt.write_v2([member], 1, 9))",
                            os.path.dirname(os.path.abspath(__file__)), archive, str(size)], check=True)
            out = os.path.join(tmp, "out")
            peak = self.peak_memory_kb("extract", archive, out)
            # A sanitized build's shadow memory and quarantine say nothing of ours.
            if "ASAN_OPTIONS" not in os.environ:
                self.assertLess(peak, 64 << 10)
            self.assertEqual(os.path.getsize(os.path.join(out, "bin", "flash.img")), size)
            with open(os.path.join(out, "bin", "flash.img"), "rb") as f:
                for chunk in iter(lambda: f.read(1 << 20), b""):
                    self.assertEqual(chunk.count(b"\xff"), len(chunk))

    def test_tables_refused(self):
        # A table that would take more memory than the installer may is
        # refused before it does, however few bytes it is compressed into.
        named = struct.pack("<HIIIi", 0xFFFF, 0, 0, 0o100644, 0) + b"a" * 0xFFFF
        rows = [
            ("20 million empty records, bzip2", 20_000_000, bytes(18), 1),
            ("20 million empty records, zlib", 20_000_000, bytes(18), 0),
            ("2,000 names of 64 KiB, bzip2", 2000, named, 1),
        ]
        with tempfile.TemporaryDirectory() as tmp:
            archive = os.path.join(tmp, "table.pa")
            report = os.path.join(tmp, "time")
            for label, count, record, kind in rows:
                with self.subTest(label):
                    with open(archive, "wb") as f:
                        f.write(fmt.write_repeated(count, record, kind))
                    # /usr/bin/time forks packarchive from a small process of
                    # its own; a minute of processor time ends a run that hangs.
                    result = subprocess.run(["/usr/bin/time", "-f", "%M %e", "-o", report,
                                             PACKARCHIVE, "verify", archive], capture_output=True, text=True,
                                            preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_CPU, (60, 60)))
                    self.assertEqual((result.returncode, result.stderr), (1, "error: bad table of contents\n"))
                    with open(report) as f:
                        peak, seconds = f.read().split()[-2:]
                    self.assertLess(float(seconds), 5)
                    if "ASAN_OPTIONS" not in os.environ:
                        self.assertLess(int(peak), 64 << 10)


if __name__ == "__main__":
    PACKARCHIVE = sys.argv.pop(1)
    unittest.main(verbosity=1)
