#!/usr/bin/env python3
"""End-to-end cases that run the real Setup executable and check its output,
exit status and the disk afterwards. Usage: e2e_setup.py <TestClass>..."""

import os
import resource
import shutil
import signal
import stat
import subprocess
import sys
import tempfile
import time
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "media"))
import archiveformat  # noqa: E402  (the independent archive writer)

SETUP = os.environ["SETUP_EXE"]
HOLDER = os.environ.get("INSTANCE_HOLDER", "")

HELP_PAGE = (
    "Options:\n"
    "  --accept-license      accept license agreement\n"
    "  --copy-files-to dir   copy all installation files to dir\n"
    "  --destination dir     set installation destination directory to dir\n"
    "  --help                display help page and exit\n"
    "  --no-upgrade          do a clean installation rather than an upgrade\n"
    "  --silent              carry out silent installation\n"
    "\n"
    "Macros:\n"
    "  $(Company)            product vendor name\n"
    "  $(DestDir)            default installation destination directory path\n"
    "  $(DestName)           default installation destination directory name\n"
    "  $(OSArch)             operating system architecture\n"
    "  $(OSAppDir)           operating system application directory\n"
    "  $(OSRootDir)          operating system root directory\n"
    "  $(Product)            product name\n"
    "  $(UserAppDir)         user application directory\n"
    "  $(Version)            product version number\n"
)

# Every case runs with no display: a run that is not silent stops at once.
NO_WINDOW = "error: Cannot open the installer window: no display could be opened. Run Setup with --silent"
QUESTION = "Do you accept the agreement? [yes/no] "


class SetupCase(unittest.TestCase):
    """A fresh temporary folder per case, used as HOME and TMPDIR so that
    lock files and settings never touch the real ones."""

    def setUp(self):
        self.tmp = tempfile.mkdtemp(prefix="setup-e2e-")
        os.chmod(self.tmp, 0o755)
        self.home = os.path.join(self.tmp, "home")
        self.tmpdir = os.path.join(self.tmp, "tmp")
        os.makedirs(self.home)
        os.makedirs(self.tmpdir)
        os.chmod(self.tmpdir, 0o1777)

    def tearDown(self):
        shutil.rmtree(self.tmp, ignore_errors=True)

    def environment(self, extra=None):
        env = {k: v for k, v in os.environ.items()
               if k not in ("TMP", "TEMP", "SUDO_UID", "SUDO_GID", "DISPLAY", "WAYLAND_DISPLAY", "XDG_RUNTIME_DIR")}
        env.update(HOME=self.home, TMPDIR=self.tmpdir, QT_QPA_PLATFORM="offscreen")
        env.update(extra or {})
        return env

    def run_setup(self, args, stdin=b"", cwd=None, env=None, program=SETUP, prefix=()):
        result = subprocess.run(list(prefix) + [program] + list(args), input=stdin, cwd=cwd or self.tmp,
                                env=self.environment(env), stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                timeout=120)
        return result.returncode, result.stdout.decode(), result.stderr.decode()

    def installer_folder(self, names=()):
        """A folder holding a copy of Setup and fake files with the given names."""
        folder = os.path.join(self.tmp, "src")
        os.makedirs(folder, exist_ok=True)
        shutil.copy2(SETUP, os.path.join(folder, "Setup"))
        for name in names:
            with open(os.path.join(folder, name), "wb") as f:
                f.write(name.encode() * 100)
            os.chmod(os.path.join(folder, name), 0o640)
        return folder

    def assertFails(self, result, message):
        code, out, err = result
        self.assertEqual(err, "error: " + message + "\n")
        self.assertEqual(code, 1)


class Help(SetupCase):
    def test_exact_page_status_1(self):
        for args in (["--help"], ["--help", "--bogus"], ["--bogus", "--help"], ["--silent", "--help"],
                     ["--copy-files-to", "/x", "--help"], ["--help", "--data-file"]):
            with self.subTest(args=args):
                code, out, err = self.run_setup(args)
                self.assertEqual(err, HELP_PAGE)
                self.assertEqual(out, "")
                self.assertEqual(code, 1)

    def test_value_named_help_is_no_help(self):
        # An option's value is taken as it stands, even "--help".
        code, out, err = self.run_setup(["--copy-files-to", "--help", "--accept-license"])
        self.assertEqual(err, "error: destination directory must be an absolute path\n")
        self.assertEqual(code, 1)
        code, out, err = self.run_setup(["--data-file", "--help"])
        self.assertTrue(err.startswith(NO_WINDOW), err)


class ArgumentExpected(SetupCase):
    def test_trailing_option_without_value(self):
        for args in (["--data-file"], ["--copy-files-to"], ["--data-offset"], ["--bogus", "--data-file"],
                     ["--copy-files-to", "/x", "--data-offset"]):
            with self.subTest(args=args):
                self.assertFails(self.run_setup(args), "argument expected")

    def test_second_pass_options_take_empty_values(self):
        # "--set" and "--destination" belong to the second pass, which takes a
        # missing value as empty: the run gets past the command line.
        for args in (["--set"], ["--destination"]):
            with self.subTest(args=args):
                code, out, err = self.run_setup(args)
                self.assertTrue(err.startswith(NO_WINDOW), err)
                self.assertEqual(code, 1)


class CopyFiles(SetupCase):
    def test_relative_destination(self):
        for destination in ("relative", "./x", "$(Unknown)/x", "$(Company)"):
            with self.subTest(destination=destination):
                self.assertFails(self.run_setup(["--copy-files-to", destination, "--accept-license"]),
                                 "destination directory must be an absolute path")
                self.assertFalse(os.path.exists(os.path.join(self.tmp, "relative")))

    def test_relative_destination_checked_before_licence(self):
        self.assertFails(self.run_setup(["--copy-files-to", "relative"], stdin=b"yes\n"),
                         "destination directory must be an absolute path")

    def test_macro_making_destination_absolute(self):
        folder = self.installer_folder()
        code, out, err = self.run_setup(["--copy-files-to", "$(TmpDir)/out", "--accept-license", "--verbose",
                                         "--silent"], cwd=folder)
        self.assertEqual(code, 0, err)
        self.assertEqual(out, os.path.join(self.tmpdir, "out/bin/Setup") + "\n")

    def test_licence_refused(self):
        destination = os.path.join(self.tmp, "out")
        for stdin in (b"no\n", b"NO\n", b"", b"y\nn\nnope\n", b"yes"):
            with self.subTest(stdin=stdin):
                code, out, err = self.run_setup(["--copy-files-to", destination], stdin=stdin)
                self.assertEqual(err, "error: License agreement not accepted\n")
                self.assertEqual(code, 1)
                self.assertNotIn("License agreement accepted", out)
                self.assertFalse(os.path.exists(destination))

    def test_cannot_mkdir(self):
        blocker = os.path.join(self.tmp, "file")
        open(blocker, "w").close()
        self.assertFails(self.run_setup(["--copy-files-to", blocker + "/out", "--accept-license"]),
                         "cannot mkdir " + blocker + "/out/bin")

    def test_cannot_copy(self):
        folder = self.installer_folder()
        destination = os.path.join(self.tmp, "out")
        # A directory in the way of the copy: Setup would go into bin/Setup/Setup, itself a directory.
        os.makedirs(os.path.join(destination, "bin/Setup/Setup"))
        code, out, err = self.run_setup(["--copy-files-to", destination, "--accept-license", "--silent"],
                                        cwd=folder)
        self.assertEqual(err, "error: cannot copy ./Setup to " + destination + "/bin/Setup\n")
        self.assertEqual(code, 1)

    def test_success_copies_own_files_in_order(self):
        names = ["VolUnInstall.exe", "libQt6Xml.so.6", "libQt6Core.so.6", "unrelated.so"]
        folder = self.installer_folder(names)
        destination = os.path.join(self.tmp, "out")
        code, out, err = self.run_setup(["--copy-files-to", destination, "--accept-license", "--verbose"],
                                        cwd=folder)
        self.assertEqual(code, 0, err)
        bin_folder = os.path.join(destination, "bin")
        self.assertEqual(out.splitlines(), [os.path.join(bin_folder, n) for n in
                                            ("Setup", "libQt6Core.so.6", "libQt6Xml.so.6", "VolUnInstall.exe")])
        self.assertEqual(sorted(os.listdir(bin_folder)),
                         sorted(["Setup", "libQt6Core.so.6", "libQt6Xml.so.6", "VolUnInstall.exe"]))
        for name in ("Setup", "libQt6Core.so.6", "VolUnInstall.exe"):
            source = os.stat(os.path.join(folder, name))
            copy = os.stat(os.path.join(bin_folder, name))
            self.assertEqual(stat.S_IMODE(copy.st_mode), stat.S_IMODE(source.st_mode) & ~0o022)
            self.assertEqual(copy.st_mtime_ns, source.st_mtime_ns)
            with open(os.path.join(folder, name), "rb") as a, open(os.path.join(bin_folder, name), "rb") as b:
                self.assertEqual(a.read(), b.read())
        self.assertIn("Copying files [", err)
        self.assertTrue(err.endswith("] 100%\n"), repr(err[-100:]))
        self.assertNotIn("error", err)

    def test_copied_installer_runs(self):
        folder = self.installer_folder()
        destination = os.path.join(self.tmp, "out")
        code, out, err = self.run_setup(["--copy-files-to", destination, "--accept-license", "--silent"],
                                        cwd=folder)
        self.assertEqual(code, 0, err)
        self.assertEqual(err, "")
        self.assertEqual(out, "")
        code, out, err = self.run_setup(["--help"], program=os.path.join(destination, "bin/Setup"))
        self.assertEqual((code, err), (1, HELP_PAGE))

    def test_existing_destination_and_no_files_found(self):
        destination = os.path.join(self.tmp, "out")
        os.makedirs(os.path.join(destination, "bin"))
        empty = os.path.join(self.tmp, "empty")
        os.makedirs(empty)
        code, out, err = self.run_setup(["--copy-files-to", destination, "--accept-license", "--verbose"],
                                        cwd=empty)
        self.assertEqual(code, 0, err)
        self.assertEqual(out, "")
        self.assertEqual(os.listdir(os.path.join(destination, "bin")), [])


class CopyFilesArchive(SetupCase):
    """Copy-files mode with "--data-file": the members follow the installer's own files."""

    MEMBERS = [
        archiveformat.Member("bin/Quilmor", b"#!/bin/sh\n", 0o755, 1_600_000_000),
        archiveformat.Member("html/index.html", b"<p>help</p>" * 500, 0o644, 1_500_000_000),
        archiveformat.Member("include/empty.h", b"", 0o444, 1_400_000_000),
    ]

    def data_file(self, offset, kind):
        path = os.path.join(self.tmp, "data.bin")
        with open(path, "wb") as f:
            f.write(b"\x7fELF" + b"\0" * (offset - 4) + archiveformat.write_v2(self.MEMBERS, kind=kind))
        return path

    def test_members_extracted_after_own_files(self):
        for offset, kind in ((0x1000, 0), (0x2a0, 1)):
            with self.subTest(offset=offset, kind=kind):
                folder = self.installer_folder()
                destination = os.path.join(self.tmp, "out-%d" % kind)
                code, out, err = self.run_setup(
                    ["--copy-files-to", destination, "--accept-license", "--verbose",
                     "--data-file", self.data_file(offset, kind), "--data-offset", "%x" % offset], cwd=folder)
                self.assertEqual(code, 0, err)
                bin_folder = os.path.join(destination, "bin")
                self.assertEqual(out.splitlines(), [os.path.join(bin_folder, "Setup")] +
                                 [os.path.join(bin_folder, m.name) for m in self.MEMBERS])
                for member in self.MEMBERS:
                    path = os.path.join(bin_folder, member.name)
                    with open(path, "rb") as f:
                        self.assertEqual(f.read(), member.data)
                    status = os.stat(path)
                    self.assertEqual(stat.S_IMODE(status.st_mode), member.mode)
                    self.assertEqual(int(status.st_mtime), member.mtime)

    def test_damaged_archive_fails_before_copying(self):
        folder = self.installer_folder()
        path = self.data_file(0x100, 0)
        with open(path, "r+b") as f:
            f.truncate(0x100 + 40)
        destination = os.path.join(self.tmp, "out")
        code, out, err = self.run_setup(["--copy-files-to", destination, "--accept-license", "--silent",
                                         "--data-file", path, "--data-offset", "100"], cwd=folder)
        self.assertEqual(code, 1)
        self.assertTrue(err.startswith("error: "), err)
        self.assertFalse(os.path.exists(destination))

    def test_missing_data_file(self):
        missing = os.path.join(self.tmp, "missing.bin")
        self.assertFails(self.run_setup(["--copy-files-to", os.path.join(self.tmp, "out"), "--accept-license",
                                         "--data-file", missing], cwd=self.installer_folder()),
                         missing + " does not exist")


class Licence(SetupCase):
    def agreement(self, stdin):
        destination = os.path.join(self.tmp, "out")
        return self.run_setup(["--copy-files-to", destination, "--silent"], stdin=stdin,
                              cwd=self.installer_folder())

    def test_accepted_through_pipe(self):
        code, out, err = self.agreement(b"y\nYes\n")
        self.assertEqual(code, 0, err)
        text, _, rest = out.partition(QUESTION)
        self.assertEqual(rest, QUESTION + "License agreement accepted\n")
        lines = text.split("\n")
        self.assertEqual(lines[0], "Tamrin Calvra for ARM")
        self.assertEqual(lines[-1], "")
        self.assertGreater(len(lines), 100)
        self.assertTrue(all(len(line) <= 80 for line in lines))
        self.assertNotIn("<Press a return to continue>", out)
        self.assertNotIn("<p>", out)
        self.assertIn("1. Grant of License", lines)

    def test_accept_licence_option_skips_prompt(self):
        code, out, err = self.run_setup(["--copy-files-to", os.path.join(self.tmp, "out"), "--accept-license"],
                                        stdin=b"no\n")
        self.assertEqual(code, 0, err)
        self.assertEqual(out, "")

    def test_long_reply_asks_again(self):
        code, out, err = self.agreement(b"x" * 100 + b"\nyes\n")
        self.assertEqual(code, 0, err)
        # 63 + 37 characters: two pieces, then the real answer.
        self.assertEqual(out.count(QUESTION), 3)


class UnknownOption(SetupCase):
    def test_unknown_option(self):
        for args, name in ((["--bogus"], "--bogus"), (["--verbose"], "--verbose"),
                           (["--silent", "--accept-license", "-x"], "-x"), (["--SILENT"], "--SILENT"),
                           (["--destination", "/d", "extra"], "extra"), (["--data-offset", "1", "--set=A"], "--set=A")):
            with self.subTest(args=args):
                self.assertFails(self.run_setup(args), "Unknown command line option: '" + name + "'")

    def test_first_pass_ignores_second_pass_options(self):
        # A copy run accepts options only the second pass knows: it never sees them.
        code, out, err = self.run_setup(["--modify", "--copy-files-to", os.path.join(self.tmp, "out"),
                                         "--accept-license", "--bogus"])
        self.assertEqual(code, 0, err)

    def test_known_options_reach_the_run(self):
        # The run gets as far as opening the data file.
        code, out, err = self.run_setup(["--silent", "--quiet", "-s", "--accept-license", "--no-upgrade",
                                         "--set", "A=b", "--destination", "/opt/x", "--modify", "--remove",
                                         "--repair", "--data-file", "/nonexistent", "--data-offset", "zz"])
        self.assertTrue(err.startswith("error: "), err)
        self.assertIn("/nonexistent", err)
        self.assertEqual(out, "")
        self.assertEqual(code, 1)
        self.assertFalse(os.path.exists("/opt/x"))

    def test_not_silent_without_display(self):
        # No window can open and nothing aborts: the message names the way out.
        for env in ({}, {"QT_QPA_PLATFORM": "xcb", "DISPLAY": ":99"}, {"QT_QPA_PLATFORM": ""}):
            with self.subTest(env=env):
                code, out, err = self.run_setup(["--accept-license"], env=env)
                self.assertTrue(err.startswith(NO_WINDOW), err)
                self.assertEqual(err.count("\n"), 1)
                self.assertEqual((code, out), (1, ""))


def as_nobody():
    return ("setpriv", "--reuid=65534", "--regid=65534", "--clear-groups")


@unittest.skipUnless(os.getuid() == 0, "needs root to switch to another user")
class Root(SetupCase):
    def test_not_root(self):
        self.assertFails(self.run_setup([], prefix=as_nobody()), "The installer must be run as root")

    def test_unknown_option_before_root_check(self):
        self.assertFails(self.run_setup(["--bogus"], prefix=as_nobody()), "Unknown command line option: '--bogus'")

    def test_user_mode_needs_no_root(self):
        code, out, err = self.run_setup(["--user-mode-install"], prefix=as_nobody())
        self.assertTrue(err.startswith(NO_WINDOW), err)
        self.assertEqual(code, 1)

    def test_copy_files_needs_no_root(self):
        destination = os.path.join(self.tmpdir, "out")
        code, out, err = self.run_setup(["--copy-files-to", destination, "--accept-license"], prefix=as_nobody())
        self.assertEqual(code, 0, err)
        self.assertTrue(os.path.isdir(os.path.join(destination, "bin")))


class SecondInstance(SetupCase):
    def test_silent_second_start_fails_and_leaves_the_first_alone(self):
        holder = subprocess.Popen([HOLDER], env=self.environment(), stdout=subprocess.PIPE, text=True)
        try:
            self.assertEqual(holder.stdout.readline(), "ready\n")
            code, out, err = self.run_setup(["--silent"])
            self.assertEqual((code, out, err), (1, "", "error: another installer of this product is already running\n"))
            self.assertIsNone(holder.poll())
        finally:
            holder.kill()
            holder.wait()

    def test_other_user_is_not_a_second_instance(self):
        if os.getuid() != 0:
            self.skipTest("needs root to switch to another user")
        holder = subprocess.Popen([HOLDER], env=self.environment(), stdout=subprocess.PIPE, text=True)
        try:
            self.assertEqual(holder.stdout.readline(), "ready\n")
            # It runs (and stops at the agreement, refused by the closed input).
            code, out, err = self.run_setup(["--silent", "--user-mode-install"], prefix=as_nobody())
            self.assertEqual((code, err), (1, "error: License agreement not accepted\n"))
        finally:
            holder.kill()
            holder.wait()

    def test_instance_ends_and_the_next_runs(self):
        for _ in range(2):
            code, out, err = self.run_setup(["--silent"])
            self.assertEqual((code, err), (1, "error: License agreement not accepted\n"))


@unittest.skipUnless(os.getuid() == 0, "changing owners needs root")
class HandBack(SetupCase):
    def setUp(self):
        super().setUp()
        # Only a home of the sudo user's own gets anything back.
        os.chown(self.home, 1234, 4321)

    def owner(self, path):
        status = os.lstat(path)
        return status.st_uid, status.st_gid

    def test_sudo_user_gets_config_back(self):
        config = os.path.join(self.home, ".config")
        product = os.path.join(config, "Tamrin", "Tamrin Calvra for ARM")
        os.makedirs(product)
        code, out, err = self.run_setup([], env={"SUDO_UID": "1234", "SUDO_GID": "4321"})
        self.assertEqual(code, 1)
        for path in (config, os.path.join(config, "Tamrin"), product):
            self.assertEqual(self.owner(path), (1234, 4321), path)

    def test_set_company_moves_the_folders(self):
        os.makedirs(os.path.join(self.home, ".config", "Other", "Tamrin Calvra for ARM"))
        os.makedirs(os.path.join(self.home, ".config", "Tamrin"))
        self.run_setup(["--set", "Company=Other"], env={"SUDO_UID": "1234", "SUDO_GID": "4321"})
        self.assertEqual(self.owner(os.path.join(self.home, ".config", "Other", "Tamrin Calvra for ARM")),
                         (1234, 4321))
        self.assertEqual(self.owner(os.path.join(self.home, ".config", "Tamrin")), (0, 0))

    def test_planted_link_not_followed(self):
        outside = os.path.join(self.tmp, "outside")
        os.makedirs(os.path.join(outside, "Tamrin Calvra for ARM"))
        os.makedirs(os.path.join(self.home, ".config"))
        os.symlink(outside, os.path.join(self.home, ".config", "Tamrin"))
        self.run_setup([], env={"SUDO_UID": "1234", "SUDO_GID": "4321"})
        self.assertEqual(self.owner(outside), (0, 0))
        self.assertEqual(self.owner(os.path.join(outside, "Tamrin Calvra for ARM")), (0, 0))

    def test_without_both_variables_nothing_changes(self):
        config = os.path.join(self.home, ".config")
        os.makedirs(config)
        for env in ({"SUDO_UID": "1234"}, {"SUDO_GID": "4321"}, {}):
            with self.subTest(env=env):
                self.run_setup([], env=env)
                self.assertEqual(self.owner(config), (0, 0))

    def test_copy_mode_hands_nothing_back(self):
        config = os.path.join(self.home, ".config")
        os.makedirs(config)
        code, out, err = self.run_setup(["--copy-files-to", os.path.join(self.tmp, "out"), "--accept-license"],
                                        env={"SUDO_UID": "1234", "SUDO_GID": "4321"})
        self.assertEqual(code, 0, err)
        self.assertEqual(self.owner(config), (0, 0))


class InstallerFiles(SetupCase):
    def test_every_linked_qt_library_is_copied(self):
        # Setup runs beside copies of the Qt libraries it links: every one of
        # them must be in the installer's own file list.
        ldd = subprocess.run(["ldd", SETUP], stdout=subprocess.PIPE, text=True, check=True).stdout
        linked = sorted({line.split()[0] for line in ldd.splitlines() if line.strip().startswith("libQt6")})
        self.assertIn("libQt6Core.so.6", linked)
        folder = self.installer_folder(linked)
        destination = os.path.join(self.tmp, "out")
        code, out, err = self.run_setup(["--copy-files-to", destination, "--accept-license", "--verbose",
                                         "--silent"], cwd=folder)
        self.assertEqual(code, 0, err)
        copied = [os.path.basename(line) for line in out.splitlines()]
        self.assertEqual(sorted(copied), sorted(["Setup"] + linked))
        self.assertEqual(copied[0], "Setup")

    def test_list_order_by_role(self):
        names = ["libQt6DBus.so.6", "libQt6Xml.so.6", "libQt6Network.so.6", "libQt6Widgets.so.6",
                 "libQt6Gui.so.6", "libQt6Core.so.6", "VolUnInstall.exe"]
        folder = self.installer_folder(names)
        code, out, err = self.run_setup(["--copy-files-to", os.path.join(self.tmp, "out"), "--accept-license",
                                         "--verbose", "--silent"], cwd=folder)
        self.assertEqual(code, 0, err)
        self.assertEqual([os.path.basename(line) for line in out.splitlines()],
                         ["Setup"] + list(reversed(names[:-1])) + ["VolUnInstall.exe"])


WINDOW_TITLE = "Tamrin Calvra for ARM 5.50a Setup"


@unittest.skipUnless(shutil.which("Xvfb") and shutil.which("xwininfo"), "needs Xvfb and xwininfo")
class Display(SetupCase):
    """A real X server: the interactive run opens its window and a second
    start hands over to it. Silent runs with a display: e2e_window.py."""

    def setUp(self):
        super().setUp()
        read_end, write_end = os.pipe()
        self.server = subprocess.Popen(["Xvfb", "-displayfd", str(write_end), "-screen", "0", "1024x768x24",
                                        "-nolisten", "tcp"], pass_fds=(write_end,),
                                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        os.close(write_end)
        with os.fdopen(read_end) as f:
            self.display = ":" + f.readline().strip()

    def tearDown(self):
        self.server.terminate()
        self.server.wait()
        super().tearDown()

    def x_environment(self):
        return {"DISPLAY": self.display, "QT_QPA_PLATFORM": "xcb"}

    def window_names(self):
        tree = subprocess.run(["xwininfo", "-display", self.display, "-root", "-tree"], stdout=subprocess.PIPE,
                              text=True, check=True).stdout
        return [line for line in tree.splitlines() if "Setup" in line]

    def wait_for_window(self, process):
        # Readiness, not speed: the deadline only keeps a broken run from hanging the suite.
        deadline = time.monotonic() + 120
        while not any('"%s"' % WINDOW_TITLE in line for line in self.window_names()):
            self.assertIsNone(process.poll(), "Setup ended without a window")
            self.assertLess(time.monotonic(), deadline, "no window appeared")
            time.sleep(0.2)

    def test_window_opens_and_second_start_hands_over(self):
        first = subprocess.Popen([SETUP, "--destination", os.path.join(self.tmp, "dest")], cwd=self.tmp,
                                 env=self.environment(self.x_environment()), stdout=subprocess.PIPE,
                                 stderr=subprocess.PIPE)
        try:
            self.wait_for_window(first)
            self.assertEqual(self.run_setup(["--destination", os.path.join(self.tmp, "dest")],
                                            env=self.x_environment()), (0, "", ""))
            self.assertIsNone(first.poll())
        finally:
            first.send_signal(signal.SIGTERM)
            first.communicate(timeout=60)
        self.assertFalse(os.path.exists(os.path.join(self.tmp, "dest")))


@unittest.skipIf("ASAN_OPTIONS" in os.environ, "the sanitizers need more address space than the limit")
class OutOfMemory(SetupCase):
    def test_error_line_instead_of_abort(self):
        # A macro that doubles on every pass grows until memory runs out,
        # soon under a limit on the address space.
        def limit():
            resource.setrlimit(resource.RLIMIT_AS, (1 << 28, 1 << 28))
        result = subprocess.run([SETUP, "--silent", "--accept-license", "--set", "X=$(X)$(X)", "--destination",
                                 "$(X)"], cwd=self.tmp, env=self.environment(), stdin=subprocess.DEVNULL,
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE, preexec_fn=limit, timeout=120)
        self.assertEqual((result.returncode, result.stderr), (1, b"error: out of memory\n"))


if __name__ == "__main__":
    if os.getuid() == 0:
        import e2e_install  # noqa: E402
        e2e_install.enter_private_namespace()
    unittest.main(argv=[sys.argv[0], "-v"] + sys.argv[1:])
