#!/usr/bin/env python3
"""Other users against root's runs: the real Setup runs as root (and as an
unprivileged user) while another user squats its lock or plants links, hard
links and FIFOs where root keeps its settings and hands folders back. Each
scenario checks the exit status, the messages and who owns what afterwards.
Runs as root in a private mount namespace with the system folders overlaid
and an empty /run, as the end-to-end installation tests do (whose fixture it
shares). Usage: attacks.py <Group>..."""

import hashlib
import os
import shutil
import stat
import subprocess
import sys
import tempfile
import time
import unittest
import xml.etree.ElementTree as ElementTree

sys.path.insert(0, os.path.join(os.environ.get("SETUP_SOURCE_DIR", ""), "tests", "e2e"))
import e2e  # noqa: E402
from e2e import NOBODY, PRODUCT, files_below, read  # noqa: E402

OTHER = 1234  # a second unprivileged user
LOCK = "setup-" + hashlib.sha1(b"Tamrin Tamrin Calvra for ARM 5.50a Setup").hexdigest()[:16]
BUSY = "error: another installer of this product is already running\n"
HOLD = ("import fcntl, os, sys\n"
        "fd = os.open(sys.argv[1], os.O_RDWR | os.O_CREAT, 0o600)\n"
        "fcntl.flock(fd, fcntl.LOCK_EX)\n"
        "print('held', flush=True)\n"
        "sys.stdin.read()\n")


def setUpModule():  # a demo medium made once for this module
    e2e.use_fixtures(tempfile.mkdtemp(prefix="setup-medium-"))
    e2e.prepare()


def tearDownModule():
    shutil.rmtree(e2e.FIXTURES, ignore_errors=True)


def as_user(uid):
    return ("setpriv", "--reuid=%d" % uid, "--regid=%d" % uid, "--clear-groups")


class AttackCase(e2e.Case):
    """Root's runs, another user's runs and what an attacker keeps running
    meanwhile. Whatever lies outside root's reach for the attacker is a
    victim file of root's in a folder of its own."""

    def setUp(self):
        super().setUp()
        self.outside = os.path.join(self.tmp, "outside")
        os.makedirs(self.outside)
        self.victim = os.path.join(self.outside, "victim")
        with open(self.victim, "wb") as f:
            f.write(b"root's own\n")
        os.chmod(self.victim, 0o600)

    def setup(self, args, uid=0, env=None, timeout=120, program=None):
        """Setup from the medium as root or as uid; status None when it did
        not end within timeout seconds (it is killed)."""
        prefix = as_user(uid) if uid else ()
        command = list(prefix) + [program or os.path.join(e2e.MEDIUM, "Setup")] + list(args)
        try:
            result = subprocess.run(command, cwd=self.tmp, env=self.environment(env), stdin=subprocess.DEVNULL,
                                    stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=timeout)
        except subprocess.TimeoutExpired as e:
            return None, (e.stdout or b"").decode(), (e.stderr or b"").decode()
        return result.returncode, result.stdout.decode(), result.stderr.decode()

    def hold_lock(self, path, uid):
        """A process of uid that makes path and holds the kernel's lock on it
        until the case ends."""
        holder = subprocess.Popen(as_user(uid) + (sys.executable, "-c", HOLD, path), stdin=subprocess.PIPE,
                                  stdout=subprocess.PIPE, text=True)
        self.addCleanup(holder.wait)
        self.addCleanup(holder.kill)
        self.assertEqual(holder.stdout.readline(), "held\n")
        return holder

    def fresh_home(self, uid):
        shutil.rmtree(self.home)
        os.makedirs(self.home)
        os.chown(self.home, uid, uid)

    def assertVictimUntouched(self):
        self.assertEqual(os.listdir(self.outside), ["victim"])
        status = os.lstat(self.victim)
        self.assertEqual((stat.S_IMODE(status.st_mode), status.st_uid, status.st_gid), (0o600, 0, 0))
        self.assertEqual(read(self.victim), b"root's own\n")


class Lock(AttackCase):
    def private_folder(self, path, uid):
        os.makedirs(path, 0o700)
        os.chown(path, uid, uid)
        return path

    def test_lock_of_another_user_is_not_obeyed(self):
        root_install = ["--silent", "--accept-license", "--destination", self.destination]
        user_install = ["--silent", "--accept-license", "--user-mode-install"]
        user_destination = os.path.join(self.home, ".local/share/tamrin_calvra_for_arm_5.50a")
        # (scenario, who installs, where the attacker holds a lock, the
        # attacker, installation arguments, environment, destination)
        scenarios = (
            ("root; the shared temporary folder", 0, lambda: os.path.join(self.tmpdir, LOCK + "-0.lock"), NOBODY,
             root_install, {}, self.destination),
            ("root; the attacker's runtime folder", 0,
             lambda: os.path.join(self.private_folder(os.path.join(self.tmp, "run-nobody"), NOBODY), LOCK + ".lock"),
             NOBODY, root_install, {"XDG_RUNTIME_DIR": os.path.join(self.tmp, "run-nobody")}, self.destination),
            ("user; a folder planted under its name", NOBODY,
             lambda: os.path.join(self.private_folder(os.path.join(self.tmpdir, "setup-%d" % NOBODY), OTHER),
                                  LOCK + ".lock"),
             OTHER, user_install, {}, user_destination),
        )
        for name, uid, lock, attacker, args, env, destination in scenarios:
            with self.subTest(name):
                shutil.rmtree(self.destination, ignore_errors=True)
                self.fresh_home(uid)
                holder = self.hold_lock(lock(), attacker)
                try:
                    code, out, err = self.setup(args, uid=uid, env=env)
                    self.assertEqual((code, err), (0, ""))
                    self.assertTrue(os.path.isfile(os.path.join(destination, "bin", "Quilmor")))
                    self.assertIsNone(holder.poll())
                finally:
                    holder.kill()
                    holder.wait()

    def test_overlapping_silent_runs(self):
        # The first waits at the agreement question, so it surely runs.
        first = subprocess.Popen([os.path.join(e2e.MEDIUM, "Setup"), "--silent", "--destination",
                                  self.destination], cwd=self.tmp, env=self.environment(), stdin=subprocess.PIPE,
                                 stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        try:
            seen = b""
            while not seen.endswith(b"[yes/no] "):
                chunk = first.stdout.read1(4096)
                self.assertTrue(chunk, "the first Setup ended early")
                seen += chunk
            started = time.monotonic()
            self.assertEqual(self.setup(["--silent", "--accept-license", "--destination", self.destination]),
                             (1, "", BUSY))
            self.assertLess(time.monotonic() - started, 5)
            self.assertFalse(os.path.exists(self.destination))
            out, err = first.communicate(b"yes\n", timeout=600)
            self.assertEqual((first.returncode, err), (0, b""))
            self.assertInstalled(self.destination, exact=False)
        finally:
            if first.poll() is None:
                first.kill()
                first.communicate()


class HandBack(AttackCase):
    SUDO = {"SUDO_UID": str(NOBODY), "SUDO_GID": str(NOBODY)}

    def plant(self, steps):
        """Makes what the owner of the home folder (or root) planted in it:
        ("dir", path, owner), ("link", path, target), ("hardlink", path,
        target) or ("fifo", path, owner), paths below the home folder."""
        for kind, name, arg in steps:
            path = os.path.join(self.home, name)
            os.makedirs(os.path.dirname(path), exist_ok=True)
            if kind == "dir":
                os.makedirs(path)
            elif kind == "link":
                os.symlink(arg, path)
            elif kind == "hardlink":
                os.link(arg, path)
            else:
                os.mkfifo(path)
            if kind in ("dir", "fifo"):
                # Everything on the way is the planter's.
                for depth in range(name.count("/") + 1):
                    os.chown(os.path.join(self.home, *name.split("/")[:depth + 1]), arg, arg)

    def test_nothing_of_roots_is_handed_over(self):
        config = os.path.join(self.home, ".config")
        product = os.path.join(config, "Tamrin", PRODUCT)
        settings = os.path.join(product, "Installer.conf")
        refused = "error: Cannot use the settings file %s: " % settings
        # (scenario, owner of the home folder, what stands there, status,
        # root's folders that must stay root's)
        scenarios = (
            ("HOME is root's own", 0, [("dir", ".config/Tamrin/" + PRODUCT, 0)], 0,
             [config, os.path.dirname(product), product]),
            ("link at the company folder", NOBODY,
             [("dir", ".config", NOBODY), ("link", ".config/Tamrin", self.outside)], 1, []),
            ("hard link at the product folder", NOBODY,
             [("dir", ".config/Tamrin", NOBODY), ("hardlink", ".config/Tamrin/" + PRODUCT, self.victim)], 1, []),
            ("FIFO at the settings file", NOBODY,
             [("dir", ".config/Tamrin/" + PRODUCT, NOBODY), ("fifo", ".config/Tamrin/%s/Installer.conf" % PRODUCT,
                                                             NOBODY)], 1, []),
        )
        for name, owner, steps, status, roots in scenarios:
            with self.subTest(name):
                shutil.rmtree(self.destination, ignore_errors=True)
                self.fresh_home(owner)
                self.plant(steps)
                started = time.monotonic()
                code, out, err = self.setup(["--silent", "--accept-license", "--destination", self.destination],
                                            env=self.SUDO, timeout=60)
                elapsed = time.monotonic() - started
                self.assertEqual(code, status, err)
                if status:
                    # Refused at once, before anything was installed.
                    self.assertLess(elapsed, 5)
                    self.assertTrue(err.startswith(refused) and err.count("\n") == 1, err)
                    self.assertFalse(os.path.exists(self.destination))
                self.assertVictimUntouched()
                for path in roots:
                    self.assertEqual(os.lstat(path).st_uid, 0, path)

SWAPPER = ("import ctypes, os, sys, time\n"
           "libc = ctypes.CDLL(None, use_errno=True)\n"
           "a, b = (os.fsencode(p) for p in sys.argv[1:3])\n"
           "print('swapping', flush=True)\n"
           "while True:\n"
           "    libc.renameat2(-100, a, -100, b, 2)\n"
           "    time.sleep(0.0005)\n")


class Record(AttackCase):
    """A record root did not write, or one edited to name files outside the
    destination, never makes root delete, copy or keep a setuid bit."""

    def installed(self, destination):
        code, out, err = self.setup(["--silent", "--accept-license", "--destination", destination])
        self.assertEqual((code, err), (0, ""))
        return os.path.join(destination, "bin", "IConf.xml")

    def test_crafted_record(self):
        public = os.path.join(self.tmp, "pub")
        squatted = os.path.join(public, "calvra")
        # (scenario, maintenance arguments, how the record is crafted, the
        # message expected on standard error)
        def outside_name(record):
            tree = ElementTree.parse(record)
            files = tree.getroot().find(".//files")
            ElementTree.SubElement(files, "file", name="../../outside/victim")
            tree.write(record)

        def squat(record, owner_of_file, owner_of_folder):
            # Another user made the destination, its bin folder and a record
            # naming root's file and its own tree as the medium.
            shutil.copytree(os.path.dirname(record), os.path.join(squatted, "bin"))
            forged = os.path.join(squatted, "bin", "IConf.xml")
            tree = ElementTree.parse(forged)
            tree.getroot().set("dest_dir", squatted)
            tree.getroot().set("src_dir", self.outside)
            tree.write(forged)
            for path, owner in ((public, NOBODY), (squatted, NOBODY), (os.path.dirname(forged), owner_of_folder),
                                (forged, owner_of_file)):
                os.chown(path, owner, owner)
            return forged

        untrusted = "error: Cannot trust the installation record %s: " % os.path.join(squatted, "bin", "IConf.xml")
        scenarios = (
            ("a name leading outside, removed", ["--remove"], outside_name, self.destination, None),
            ("a name leading outside, repaired", ["--repair"], outside_name, self.destination, None),
            ("another user's record", ["--accept-license"], lambda r: squat(r, NOBODY, NOBODY), squatted,
             untrusted + "it belongs to user %d, not root. its folder belongs to user %d, not root.\n"
             % (NOBODY, NOBODY)),
            ("root's record in another user's folder, repaired", ["--repair"], lambda r: squat(r, 0, NOBODY),
             squatted, untrusted + "its folder belongs to user %d, not root.\n" % NOBODY),
            ("another user's record, removed", ["--remove"], lambda r: squat(r, NOBODY, 0), squatted,
             untrusted + "it belongs to user %d, not root.\n" % NOBODY),
        )
        for name, args, craft, destination, message in scenarios:
            with self.subTest(name):
                shutil.rmtree(self.destination, ignore_errors=True)
                shutil.rmtree(public, ignore_errors=True)
                os.makedirs(public)
                craft(self.installed(self.destination))
                before = files_below(destination)
                code, out, err = self.setup(["--silent", "--destination", destination] + args)
                self.assertVictimUntouched()
                if message:
                    self.assertEqual((code, err), (1, message))
                    self.assertEqual(files_below(destination), before)

    def test_no_setuid_bit_from_a_folder_medium(self):
        medium = os.path.join(self.tmp, "medium")
        shutil.copytree(e2e.MEDIUM, medium, symlinks=True)
        program = os.path.join("bin", "Quilmor")
        os.chmod(os.path.join(medium, program), 0o6755)
        code, out, err = self.setup(["--silent", "--accept-license", "--destination", self.destination],
                                    program=os.path.join(medium, "Setup"))
        self.assertEqual((code, err), (0, ""))
        self.assertEqual(stat.S_IMODE(os.stat(os.path.join(self.destination, program)).st_mode), 0o755)


class Race(AttackCase):
    """The owner of the destination's parent swaps the destination for a link
    to root's tree as fast as it can while root installs and removes."""

    RUNS = 10  # of each kind

    def setUp(self):
        super().setUp()
        self.parent = os.path.join(self.tmp, "pub")
        os.makedirs(self.parent)
        os.chown(self.parent, NOBODY, NOBODY)
        self.destination = os.path.join(self.parent, "calvra")
        self.swap = os.path.join(self.parent, "swap")
        # Root's own tree, shaped like an installation so every name the
        # installer writes or deletes has a twin there.
        self.target = os.path.join(self.outside, "tree")
        code, out, err = self.setup(["--silent", "--accept-license", "--destination", self.target])
        self.assertEqual((code, err), (0, ""))
        self.tree = self.snapshot(self.target)

    def snapshot(self, folder):
        return {name: read(os.path.join(folder, name)) for name in files_below(folder)}

    def clear(self):
        for path in (self.destination, self.swap):
            if os.path.islink(path):
                os.unlink(path)
            else:
                shutil.rmtree(path, ignore_errors=True)

    def swapping(self):
        """Starts the attacker; the destination's name keeps changing places
        with a link of the attacker's to root's tree."""
        os.symlink(self.target, self.swap)
        os.lchown(self.swap, NOBODY, NOBODY)
        attacker = subprocess.Popen(as_user(NOBODY) + (sys.executable, "-c", SWAPPER, self.destination, self.swap),
                                    stdout=subprocess.PIPE, text=True)
        self.assertEqual(attacker.stdout.readline(), "swapping\n")
        return attacker

    def stop(self, attacker):
        attacker.kill()
        attacker.communicate()

    def assertOutcome(self, code, err):
        """Either the run got through or it stopped at the link with the
        usual failure; never anything written or deleted in root's tree."""
        self.assertIn(code, (0, 1), err)
        if code:
            self.assertRegex(err, r"(Cannot create folder|Cannot copy file|cannot be|error:)", err)
        self.assertEqual(self.snapshot(self.target), self.tree)
        self.assertEqual(os.listdir(self.outside), ["tree", "victim"] if os.path.exists(self.victim) else ["tree"])

    def test_swapped_during_install_and_removal(self):
        # (when the attacker starts, the run it races)
        scenarios = (("install", ["--accept-license"]), ("removal", ["--remove"]))
        outcomes = []
        for name, args in scenarios:
            for run in range(self.RUNS):
                self.clear()
                if name == "removal":
                    code, out, err = self.setup(["--silent", "--accept-license", "--destination", self.destination])
                    self.assertEqual((code, err), (0, ""))
                attacker = self.swapping()
                try:
                    code, out, err = self.setup(["--silent", "--destination", self.destination] + args)
                finally:
                    self.stop(attacker)
                outcomes.append((name, code))
                with self.subTest(name, run=run):
                    self.assertOutcome(code, err)
        print("swapped runs (kind, status): %s" % sorted((o, outcomes.count(o)) for o in set(outcomes)),
              file=sys.stderr)


def main():
    if os.geteuid() != 0 or not shutil.which("unshare") or not shutil.which("setpriv"):
        print("skipped: needs root, unshare and setpriv")
        return 77
    if os.environ.get("SETUP_E2E_PRIVATE") != "1" and subprocess.run(
            ["unshare", "--mount", "true"], stderr=subprocess.DEVNULL).returncode != 0:
        print("skipped: no private mount namespace")
        return 77
    e2e.enter_private_namespace()
    program = unittest.main(argv=[sys.argv[0], "-v"] + sys.argv[1:], exit=False)
    return 0 if program.result.wasSuccessful() else 1


if __name__ == "__main__":
    sys.exit(main())
