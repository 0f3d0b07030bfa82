#!/usr/bin/env python3
"""The real Setup end to end, one table of scenarios. Each CTest entry runs one
group of it: e2e.py GROUP. "prepare" makes the shared fixtures once per run
(the demo medium, and Setup with its libraries alone in a folder).

As root every group runs in a private mount namespace with an empty /run
(where root's Setup keeps its lock), and each case gets overlays over
/usr/share and /etc whose changes land on a tmpfs, so the machine is never
changed; the groups that install need root. "window" runs under xvfb-run and
saves a screenshot of every page it stops on into SCREENSHOT_DIR."""

import json
import os
import re
import resource
import shlex
import shutil
import signal
import stat
import subprocess
import sys
import tempfile
import time
import unittest
import xml.etree.ElementTree as ElementTree

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "archive"))
import archiveformat  # noqa: E402  (the independent archive writer)

SETUP = os.environ.get("SETUP_EXE", "")
FIXTURES = MEDIUM = INSTALLER = None  # INSTALLER: Setup and its libraries alone, beside a data file
PRODUCT = "Tamrin Calvra for ARM"
FOLDERS = ("bin", "gcc", "html", "include", "lib", "llvm", "samples", "tamrin-rtl", "source", "targets")
# The default destination lies below /usr/share too.
SYSTEM_FOLDERS = ("/usr/share", "/etc")
DESKTOP_ENTRY = "/usr/share/applications/tamrin-tamrin-calvra-5.50a.desktop"
MIME_PACKAGE = "/usr/share/mime/packages/application-x-tamrin-qzproject.xml"
MIME_ICON = "/usr/share/icons/hicolor/48x48/mimetypes/application-x-tamrin-qzproject.png"
UDEV_RULES = "/etc/udev/rules.d/99-vantor.rules"
NOBODY = 65534
AS_NOBODY = ("setpriv", "--reuid=65534", "--regid=65534", "--clear-groups")
SUDO = {"SUDO_UID": "1234", "SUDO_GID": "4321"}
BUSY = "error: another installer of this product is already running\n"
CANCELLED = "error: Installation has been cancelled by user.\n"
QUESTION = "Do you accept the agreement? [yes/no] "
WINDOW_TITLE = "Tamrin Calvra for ARM 5.50a Setup"
# An archive 1000 (0x3e8) bytes into its file.
EMBEDDED = os.path.join(archiveformat.DATA, "embedded-at-1000.bin")
NO_WINDOW = "error: Cannot open the installer window: no display could be opened. Run Setup with --silent"
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
    "  $(Version)            product version number\n")


def read(path):
    with open(path, "rb") as f:
        return f.read()


def write(path, data=b"the user's own\n", mode=0o644, mtime=None):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "wb") as f:
        f.write(data)
    os.chmod(path, mode)
    if mtime is not None:
        os.utime(path, (mtime, mtime))


def files_below(folder):
    return {os.path.relpath(os.path.join(parent, name), folder)
            for parent, _, names in os.walk(folder) for name in names}


def copied_files():
    """Each file an installation copies, relative to the destination, with its source."""
    files = {"bin/uninstall": os.path.join(MEDIUM, "Setup")}
    files.update(("bin/" + name, os.path.join(MEDIUM, name)) for name in os.listdir(MEDIUM)
                 if name.startswith("libQt6"))
    for folder in FOLDERS:
        files.update((folder + "/" + name, os.path.join(MEDIUM, folder, name))
                     for name in files_below(os.path.join(MEDIUM, folder)))
    return files


def use_fixtures(folder):
    global FIXTURES, MEDIUM, INSTALLER
    FIXTURES, MEDIUM, INSTALLER = folder, os.path.join(folder, "medium"), os.path.join(folder, "installer")


def prepare():
    shutil.rmtree(FIXTURES, ignore_errors=True)
    os.makedirs(INSTALLER)
    os.chmod(FIXTURES, 0o755)
    subprocess.run([os.environ["MAKE_DEMO_MEDIUM"], MEDIUM, SETUP], check=True, stdout=subprocess.DEVNULL)
    for name in os.listdir(MEDIUM):
        if name == "Setup" or name.startswith("libQt6"):
            shutil.copy2(os.path.join(MEDIUM, name), INSTALLER)


def strace_signal(name, nth_write):
    """Delivers the signal at Setup's nth write: the same point on every run."""
    return ("strace", "-qq", "-o", "/dev/null", "-e", "trace=write", "-e",
            "inject=write:signal=%s:when=%d" % (name, nth_write))


def enter_private_namespace():
    """Runs this script again in a mount namespace of its own with an empty
    /run, so that neither root's lock nor anything Setup writes reaches the
    machine or another test. Needs root."""
    if os.environ.get("SETUP_E2E_PRIVATE") != "1":
        env = dict(os.environ, SETUP_E2E_PRIVATE="1")
        os.execvpe("unshare", ["unshare", "--mount", "--propagation", "private", sys.executable] + sys.argv, env)
    subprocess.run(["mount", "-t", "tmpfs", "-o", "mode=0755", "tmpfs", "/run"], check=True)


class Case(unittest.TestCase):
    """A fresh folder per scenario, used as HOME and TMPDIR; as root also
    overlays of its own over the system folders. With victim, a file outside
    the destination that planted links point at, older than the medium."""
    needs_root = False
    plants_victim = False

    def setUp(self):
        self.tmp = tempfile.mkdtemp(prefix="setup-e2e-")
        os.chmod(self.tmp, 0o755)
        self.home, self.tmpdir = os.path.join(self.tmp, "home"), os.path.join(self.tmp, "tmp")
        os.makedirs(self.home)
        os.makedirs(self.tmpdir, mode=0o1777)
        os.chmod(self.tmpdir, 0o1777)
        self.destination = os.path.join(self.tmp, "dest")
        self.mounted = []
        if os.geteuid() == 0:
            os.makedirs(self.tmp + "/scratch")
            self.mount("-t", "tmpfs", "tmpfs", self.tmp + "/scratch")
            for number, folder in enumerate(SYSTEM_FOLDERS):
                scratch = os.path.join(self.tmp, "scratch", str(number))
                os.makedirs(scratch + "/upper")
                os.makedirs(scratch + "/work")
                self.mount("-t", "overlay", "overlay", "-o",
                           "lowerdir=%s,upperdir=%s/upper,workdir=%s/work" % (folder, scratch, scratch), folder)
            os.makedirs(os.path.dirname(UDEV_RULES), exist_ok=True)
        self.outside = os.path.join(self.tmp, "outside")
        if self.plants_victim:
            self.victim = os.path.join(self.outside, "victim")
            write(self.victim, b"not the installer's\n", 0o600, 1000000000)

    def tearDown(self):
        for folder in reversed(self.mounted):
            subprocess.run(["umount", "-l", folder], check=False)
        shutil.rmtree(self.tmp, ignore_errors=True)

    def mount(self, *args):
        subprocess.run(["mount"] + list(args), check=True)
        self.mounted.append(args[-1])

    def environment(self, extra=None):
        env = {k: v for k, v in os.environ.items()
               if k not in ("TMP", "TEMP", "SUDO_UID", "SUDO_GID", "DISPLAY", "WAYLAND_DISPLAY", "XDG_RUNTIME_DIR")}
        env.update(HOME=self.home, TMPDIR=self.tmpdir, QT_QPA_PLATFORM="offscreen")
        env.update(extra or {})
        return env

    def run_setup(self, args, program=None, env=None, prefix=(), stdin=b"", cwd=None, limit=None):
        result = subprocess.run(list(prefix) + [program or os.path.join(MEDIUM, "Setup")] + list(args),
                                input=stdin, cwd=cwd or self.tmp, env=self.environment(env),
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=600, preexec_fn=limit)
        return result.returncode, result.stdout.decode(), result.stderr.decode()

    def install(self, *extra, **kwargs):
        return self.run_setup(["--silent", "--accept-license", "--destination", self.destination] + list(extra),
                              **kwargs)

    def assertSucceeds(self, result, title, outcome="has now been installed."):
        code, out, err = result
        self.assertEqual(err, "")
        self.assertTrue(out.endswith("%s\n%s 5.50a %s\n" % (title, PRODUCT, outcome)), out[-300:])
        self.assertEqual(code, 0)

    def assertFails(self, result, *messages, cancelled=False):
        """Exit 1 with the messages; the last line is the cancellation only
        when the run was stopped, else the failure itself."""
        code, out, err = result
        self.assertEqual(code, 1, err)
        for message in messages:
            self.assertIn(message, err)
        last = err.splitlines(True)[-1]
        self.assertTrue(last.startswith("error: ") and (last == CANCELLED) == cancelled, err[-300:])

    def assertInstalled(self, destination=None, exact=True):
        """Every file is the medium's, with its mode and time; with exact,
        nothing else (no temporary file) is there."""
        destination = destination or self.destination
        for name, source in copied_files().items():
            with self.subTest(file=name):
                copy = os.path.join(destination, name)
                self.assertEqual(read(copy), read(source))
                self.assertEqual(stat.S_IMODE(os.stat(copy).st_mode), stat.S_IMODE(os.stat(source).st_mode) & ~0o022)
                if not name.startswith("bin/libQt6") and name != "bin/uninstall":
                    self.assertEqual(os.stat(copy).st_mtime_ns, os.stat(source).st_mtime_ns)
        if exact:
            self.assertEqual(files_below(destination), set(copied_files()) | {"bin/IConf.xml", "bin/manifest.sha256"})

    def assertWholeOrAbsent(self):
        """Whatever stands under a product file's name is whole."""
        present = files_below(self.destination) if os.path.isdir(self.destination) else set()
        self.assertLessEqual(present, set(copied_files()) | {"bin/IConf.xml", "bin/manifest.sha256"})
        for name in present - {"bin/IConf.xml", "bin/manifest.sha256"}:
            self.assertEqual(read(os.path.join(self.destination, name)), read(copied_files()[name]), name)
        return present

    def assertVictimUntouched(self):
        self.assertEqual(os.listdir(self.outside), ["victim"])
        self.assertEqual(read(self.victim), b"not the installer's\n")
        status = os.lstat(self.victim)
        self.assertEqual((stat.S_IMODE(status.st_mode), status.st_uid), (0o600, 0))

    def record(self, destination=None):
        return ElementTree.parse(os.path.join(destination or self.destination, "bin", "IConf.xml")).getroot()

    def data_file(self, extra_members=(), prefix=b"", contents=()):
        """The product (and extra members behind it, then members of the given
        contents) as an archive written by the independent writer, behind prefix."""
        members = []
        for name, source in sorted(copied_files().items()):
            if name.split("/")[0] in FOLDERS and not name.startswith("bin/libQt6") and name != "bin/uninstall":
                members.append(archiveformat.Member(name, read(source), stat.S_IMODE(os.stat(source).st_mode),
                                                    int(os.stat(source).st_mtime)))
        members += [archiveformat.Member(name, b"planted\n", 0o644, 1622833200) for name in extra_members]
        members += [archiveformat.Member(name, data, 0o644, 1622833200) for name, data in contents]
        path = os.path.join(self.tmp, "Setup.data")
        with open(path, "wb") as f:
            f.write(prefix + archiveformat.write_v2(members, kind=1))
        return path


class Cli(Case):
    # args, stdin, extra environment, run as nobody, status, standard error (exact, or its start with "...")
    ROWS = {
        "help": (["--help"], b"", {}, False, 1, HELP_PAGE),
        "help whatever surrounds it": (["--bogus", "--help", "--data-file"], b"", {}, False, 1, HELP_PAGE),
        "a value named --help is a value": (["--copy-files-to", "--help", "--accept-license"], b"", {}, False, 1,
                                            "error: destination directory must be an absolute path\n"),
        "argument expected": (["--copy-files-to", "/x", "--data-offset"], b"", {}, False, 1,
                              "error: argument expected\n"),
        "unknown option": (["--silent", "--accept-license", "-x"], b"", {}, False, 1,
                           "error: Unknown command line option: '-x'\n"),
        "unknown option after a value": (["--destination", "/d", "extra"], b"", {}, False, 1,
                                         "error: Unknown command line option: 'extra'\n"),
        "relative copy destination": (["--copy-files-to", "$(Unknown)/x", "--accept-license"], b"", {}, False, 1,
                                      "error: destination directory must be an absolute path\n"),
        "no display and not silent": (["--accept-license"], b"", {"QT_QPA_PLATFORM": "xcb", "DISPLAY": ":99"},
                                      False, 1, NO_WINDOW + "..."),
        "missing data file": (["--copy-files-to", "/tmp/x", "--accept-license", "--data-file", "/nonexistent"],
                              b"", {}, False, 1, "error: /nonexistent does not exist\n"),
        "wrong data offset": (["--copy-files-to", "/tmp/x", "--accept-license", "--data-file", EMBEDDED,
                               "--data-offset", "3e7"], b"", {}, False, 1,
                              "error: unsupported package file format in %s at offset 0x3e7\n" % EMBEDDED),
        "licence refused on the pipe": (["--copy-files-to", "/tmp/refused"], b"y\nnope\nNO\n", {}, False, 1,
                                        "error: License agreement not accepted\n"),
        "licence at the end of input": (["--silent", "--user-mode-install"], b"", {}, False, 1,
                                        "error: License agreement not accepted\n"),
        "not root": (["--silent"], b"", {}, True, 1, "error: The installer must be run as root\n"),
        "unknown option before the root check": (["--bogus"], b"", {}, True, 1,
                                                 "error: Unknown command line option: '--bogus'\n"),
        "unknown installation type": (["--silent", "--install-type", "huge"], b"", {}, True, 1,
                                      "error: Unknown installation type 'huge': use minimal, typical, full or custom\n"),
        "feature without its state": (["--feature", "Help Files"], b"", {}, True, 1,
                                      "error: --feature takes TITLE=on or TITLE=off, not 'Help Files'\n"),
    }

    def test_command_lines(self):
        for name, (args, stdin, env, nobody, code, err) in self.ROWS.items():
            with self.subTest(name):
                if nobody and os.getuid() != 0:
                    continue
                result = self.run_setup(args, program=SETUP, stdin=stdin, env=env, prefix=AS_NOBODY if nobody else ())
                self.assertEqual(result[2][:len(err) - 3] if err.endswith("...") else result[2], err.rstrip("."))
                self.assertEqual(result[0], code)
        self.assertFalse(os.path.exists("/tmp/refused"))

    def test_licence_on_a_pipe(self):
        # A reply that is not yes or no asks again; the agreement comes as plain text at 80 columns.
        code, out, err = self.run_setup(["--copy-files-to", os.path.join(self.tmp, "out"), "--silent"],
                                        program=os.path.join(INSTALLER, "Setup"), stdin=b"y\nYes\n")
        self.assertEqual((code, err), (0, ""))
        text, _, rest = out.partition(QUESTION)
        self.assertEqual(rest, QUESTION + "License agreement accepted\n")
        lines = text.split("\n")
        self.assertEqual(lines[0], PRODUCT)
        self.assertIn("1. Grant of License", lines)
        self.assertTrue(all(len(line) <= 80 for line in lines) and len(lines) > 100)
        self.assertNotIn("<p>", out)

    def test_copy_files_from_an_archive(self):
        # The installer's own files, then every member, with their modes and times.
        out_folder = os.path.join(self.tmp, "out")
        data = self.data_file(prefix=b"\x7fELF" + b"\0" * 0x2a0)
        code, out, err = self.run_setup(["--copy-files-to", out_folder, "--accept-license", "--verbose", "--data-file",
                                         data, "--data-offset", "2a4"], program=os.path.join(INSTALLER, "Setup"),
                                        cwd=INSTALLER)
        self.assertEqual(code, 0, err)
        # Setup and the Qt libraries it links (from beside it), then the members in table order.
        listed = [os.path.relpath(line, os.path.join(out_folder, "bin")) for line in out.splitlines()]
        own = [name for name in listed if "/" not in name]
        self.assertEqual(own[0], "Setup")
        self.assertLessEqual(set(own), set(os.listdir(INSTALLER)))
        ldd = subprocess.run(["ldd", SETUP], stdout=subprocess.PIPE, text=True, check=True).stdout
        self.assertLessEqual({line.split()[0] for line in ldd.splitlines() if "libQt6" in line}, set(own))
        members = {name: source for name, source in copied_files().items()
                   if name.split("/")[0] in FOLDERS and not name.startswith("bin/libQt6") and name != "bin/uninstall"}
        self.assertEqual(listed, own + sorted(members))
        self.assertIn("Copying files [", err)
        for name, source in members.items():
            copy = os.path.join(out_folder, "bin", name)
            self.assertEqual(read(copy), read(source), name)
            self.assertEqual(int(os.stat(copy).st_mtime), int(os.stat(source).st_mtime), name)
        # A damaged archive fails before anything is copied.
        with open(data, "r+b") as f:
            f.truncate(0x2a4 + 40)
        result = self.run_setup(["--copy-files-to", out_folder + "2", "--accept-license", "--data-file", data,
                                 "--data-offset", "2a4"], program=os.path.join(INSTALLER, "Setup"))
        self.assertEqual(result[0], 1)
        self.assertTrue(result[2].startswith("error: "), result[2])
        self.assertFalse(os.path.exists(out_folder + "2"))

    def test_silent_second_start_fails_and_leaves_the_first_alone(self):
        holder = subprocess.Popen([os.environ["INSTANCE_HOLDER"]], env=self.environment(), stdout=subprocess.PIPE,
                                  text=True)
        try:
            self.assertEqual(holder.stdout.readline(), "ready\n")
            self.assertEqual(self.run_setup(["--silent", "--accept-license", "--destination", self.destination],
                                            program=SETUP), (1, "", BUSY))
            self.assertIsNone(holder.poll())
            self.assertFalse(os.path.exists(self.destination))
        finally:
            holder.kill()
            holder.wait()
        # A killed holder's lock never blocks the next start.
        self.assertEqual(self.run_setup(["--silent"], program=SETUP)[2], "error: License agreement not accepted\n")

    @unittest.skipIf("ASAN_OPTIONS" in os.environ, "the sanitizers need more address space than the limit")
    def test_out_of_memory_is_an_error_line(self):
        # A record near the largest size read, one long attribute, outgrows a limit on the address space.
        os.makedirs(os.path.join(self.destination, "bin"))
        with open(os.path.join(self.destination, "bin", "IConf.xml"), "w") as record:
            record.write('<!DOCTYPE Install>\n<configuration dest_dir="/x" a="' + "x" * 16000000 + '"/>')
        result = self.run_setup(["--silent", "--remove", "--destination", self.destination], program=SETUP,
                                limit=lambda: resource.setrlimit(resource.RLIMIT_AS, (1 << 27, 1 << 27)))
        self.assertEqual(result[::2], (1, "error: out of memory\n"))

    @unittest.skipUnless(shutil.which("tmux"), "needs tmux")
    def test_licence_paged_on_a_terminal(self):
        """In tmux panes of two sizes, for the copy-files mode and a silent
        install: lines as wide as the pane (at most 80), a screenful at a time,
        any key goes on, each prompt is erased, and the terminal is put back."""
        for columns, rows, folder, options in ((80, 24, INSTALLER, ["--copy-files-to"]),
                                               (46, 13, MEDIUM, ["--user-mode-install", "--destination"])):
            with self.subTest(columns=columns, rows=rows):
                self.page_through(columns, rows, folder, options, os.path.join(self.tmp, "%dx%d" % (columns, rows)))

    def page_through(self, columns, rows, folder, options, destination):
        socket, status = destination + ".socket", destination + ".status"
        env = {"HOME": self.tmp, "TMPDIR": self.tmp, "PATH": os.environ.get("PATH", "/bin"), "TERM": "xterm"}

        def tmux(*args):
            return subprocess.run(["tmux", "-S", socket] + list(args), env=env, check=True, stdout=subprocess.PIPE,
                                  text=True).stdout

        def screen(history=False):  # -J: a line the pane wrapped is one line again
            captured = tmux("capture-pane", "-pJ", *(["-S", "-"] if history else [])).rstrip("\n")
            return [line.rstrip() for line in captured.split("\n")]

        def wait_for(condition):
            deadline = time.monotonic() + 60  # only stops a hung run
            while not condition():
                self.assertLess(time.monotonic(), deadline, "\n".join(screen()))
                time.sleep(0.05)

        asked = QUESTION.rstrip()  # a pane's lines lose their trailing blanks
        agreement = self.run_setup(["--copy-files-to", destination + "-pipe", "--silent"], stdin=b"no\n",
                                   program=os.path.join(INSTALLER, "Setup"))[1].partition(QUESTION)[0]
        lines = agreement.rstrip("\n").split("\n")
        command = "cd %s && ./Setup %s %s --silent; s=$?; stty -a > %s/stty; echo $s > %s; exec sleep 600"
        tmux("new-session", "-d", "-x", str(columns), "-y", str(rows), "sh", "-c",
             command % (folder, " ".join(options), shlex.quote(destination), self.tmp, status))
        try:
            pages = 0
            while True:
                wait_for(lambda: screen()[-1] == "<Press a return to continue>" or screen()[-1].startswith(asked))
                if screen()[-1].startswith(asked):
                    break
                pages += 1
                before = screen(True)
                tmux("send-keys", "x" if pages == 1 else "Enter")
                wait_for(lambda: screen(True) != before)
            history = screen(True)
            shown = history[:max(i for i, line in enumerate(history) if line.startswith(asked))]
            self.assertLessEqual(max(map(len, shown)), columns)
            self.assertEqual(" ".join(" ".join(shown).split()), " ".join(" ".join(lines).split()))
            self.assertEqual(pages, len(shown) // (rows - 1))
            if columns == 80:
                self.assertEqual(shown, lines)
            tmux("send-keys", "YES", "Enter")
            wait_for(lambda: os.path.exists(status))
            self.assertEqual(read(status), b"0\n")
            written = "IConf.xml" if "--destination" in options else "Setup"  # the record, or the copied installer
            self.assertTrue(os.path.isfile(os.path.join(destination, "bin", written)))
            self.assertTrue({"icanon", "echo"} <= set(read(os.path.join(self.tmp, "stty")).decode().split()))
        finally:  # tearDown takes the socket away before any cleanup
            subprocess.run(["tmux", "-S", socket, "kill-server"], stderr=subprocess.DEVNULL)


class Install(Case):
    needs_root = True

    def test_install_upgrade_remove_from_the_folder(self):
        write(UDEV_RULES, b"# the administrator's own\n")
        self.assertSucceeds(self.install(), "Install Complete")
        self.assertInstalled()
        self.assertEqual((self.record().get("dest_dir"), self.record().get("src_dir")), (self.destination, MEDIUM))
        settings = read(os.path.join(self.home, ".config/Tamrin", PRODUCT, "Installer.conf")).decode()
        self.assertIn("DestDir=%s\n" % self.destination, settings)
        self.assertIn("SrcDir=%s\n" % MEDIUM, settings)
        self.assertIn(b"Exec=%s/bin/Quilmor\n" % self.destination.encode(), read(DESKTOP_ENTRY))
        self.assertTrue(os.path.isfile(MIME_ICON))
        self.assertIn(b"application/x-tamrin-qzproject:*.qzproject", read("/usr/share/mime/globs2"))
        # The second run finds the record and upgrades; the user's file stays.
        write(os.path.join(self.destination, "lib/mine/notes.txt"))
        self.assertSucceeds(self.install(), "Upgrade Complete", "has now been upgraded.")
        self.assertInstalled(exact=False)
        # A silent modify installs again what is installed: a lost file is back.
        os.remove(os.path.join(self.destination, sorted(copied_files())[-1]))
        code, out, err = self.run_setup(["--silent", "--modify", "--destination", self.destination])
        self.assertEqual((code, err, out.splitlines()[-2:]),
                         (0, "", ["Modify Complete", "The %s 5.50a installation has now been modified." % PRODUCT]))
        self.assertInstalled(exact=False)
        # The copy left behind removes the installation; shared files stay.
        result = self.run_setup(["--silent"], program=os.path.join(self.destination, "bin", "uninstall"))
        self.assertSucceeds(result, "Uninstall Complete", "had now been uninstalled.")
        self.assertEqual(files_below(self.destination), {"lib/mine/notes.txt"})
        self.assertFalse(os.path.exists(DESKTOP_ENTRY))
        self.assertTrue(os.path.isfile(MIME_PACKAGE) and os.path.isfile(MIME_ICON))
        self.assertEqual(read(UDEV_RULES), b"# the administrator's own\n")
        # Nothing is left to remove: saying it was removed would be a lie.
        code, out, err = self.run_setup(["--silent", "--remove", "--destination", self.destination])
        self.assertEqual((code, err), (1, "error: Cannot find the %s installation: no record at %s/bin/IConf.xml; "
                                          "name its folder with --destination\n" % (PRODUCT, self.destination)))

    def test_from_an_archive_inside_a_data_file(self):
        data = self.data_file(prefix=b"\x7fELF-like prefix" * 1000)
        archive = ["--data-file", data, "--data-offset", "%x" % 16000]
        program = os.path.join(INSTALLER, "Setup")
        self.assertSucceeds(self.install(*archive, program=program), "Install Complete")
        self.assertInstalled()
        self.assertSucceeds(self.install(*archive, program=program), "Upgrade Complete", "has now been upgraded.")
        # A repair needs the medium again; the record knows only the folder.
        os.remove(os.path.join(self.destination, "lib", "libcalvra.a"))
        uninstall = os.path.join(self.destination, "bin", "uninstall")
        self.assertSucceeds(self.run_setup(["--silent", "--repair"] + archive, program=uninstall), "Repair Complete")
        self.assertInstalled()
        result = self.run_setup(["--silent"], program=uninstall)
        self.assertSucceeds(result, "Uninstall Complete", "had now been uninstalled.")
        self.assertFalse(os.path.exists(self.destination))

    def test_user_mode_as_nobody_installs_and_removes_its_own(self):
        os.chown(self.home, NOBODY, NOBODY)
        code, out, err = self.run_setup(["--silent", "--accept-license", "--user-mode-install"], prefix=AS_NOBODY)
        self.assertEqual((code, err), (0, ""))
        destination = os.path.join(self.home, ".local/share/tamrin_calvra_for_arm_5.50a")
        self.assertInstalled(destination)
        self.assertEqual(os.stat(os.path.join(destination, "bin", "Quilmor")).st_uid, NOBODY)
        # The menu entry and file types are the user's own, not the system's.
        entry = self.home + "/.local/share/applications/" + os.path.basename(DESKTOP_ENTRY)
        self.assertTrue(os.path.exists(entry))
        self.assertTrue(os.path.exists(self.home + "/.local/share/mime/packages/" + os.path.basename(MIME_PACKAGE)))
        self.assertFalse(os.path.exists(DESKTOP_ENTRY))
        # Its own uninstall, started by the user without the option, removes it in user mode.
        result = self.run_setup(["--silent"], program=os.path.join(destination, "bin", "uninstall"), prefix=AS_NOBODY)
        self.assertSucceeds(result, "Uninstall Complete", "had now been uninstalled.")
        self.assertFalse(os.path.exists(entry) or os.path.exists(destination))

    def test_sudo_user_gets_the_configuration_back(self):
        # Only into a home of the user's own; links and other users' homes are the adversarial suite's.
        os.chown(self.home, 1234, 4321)
        self.assertSucceeds(self.install(env=SUDO), "Install Complete")
        config = os.path.join(self.home, ".config")
        for path in (config, config + "/Tamrin", config + "/Tamrin/" + PRODUCT):
            self.assertEqual((os.lstat(path).st_uid, os.lstat(path).st_gid), (1234, 4321), path)
        self.assertEqual(os.stat(os.path.join(self.destination, "bin", "Quilmor")).st_uid, 0)

    def test_missing_installer_file_and_unknown_destination(self):
        medium = os.path.join(self.tmp, "partial")
        shutil.copytree(MEDIUM, medium, symlinks=True)
        os.remove(os.path.join(medium, "libQt6Core.so.6"))
        result = self.install(program=os.path.join(medium, "Setup"))
        # The log says why, on the line of the question answered by rule.
        self.assertFails(result, "question: Cannot find the file named %s/libQt6Core.so.6 -- not located "
                                  "(no one to ask)\nquestion: Installer Installation Failed: The installation of the "
                                  "Installer component has failed. Cannot find file '%s/libQt6Core.so.6'. Do you "
                                  "want to terminate" % (medium, medium),
                         "-- answered Yes (default)\nerror: Cannot find file '%s/libQt6Core.so.6'\n" % medium)
        self.assertIn("Installation Failed\n", result[1])


class Faults(Case):
    needs_root = True
    OLD, NEW = 1000000000, 2000000000  # older and newer than every file of the medium

    @unittest.skipUnless(shutil.which("strace"), "needs strace")
    def test_full_disk_fails_then_repair_completes(self):
        # The disk fills after the space check (someone else writes): a write inside the first library finds no room.
        nospace = ("strace", "-qq", "-o", "/dev/null", "-e", "trace=write", "-e", "inject=write:error=ENOSPC:when=150")
        result = self.run_setup(self.install_args(), prefix=nospace, env=self.untraced())
        self.assertFails(result)
        self.assertRegex(result[2], r"has failed\. Cannot copy file %s/\S+ to %s/" % (MEDIUM, self.destination))
        self.assertIn("Installation Failed\n", result[1])
        self.assertWholeOrAbsent()
        self.assertSucceeds(self.run_setup(["--silent", "--repair", "--destination", self.destination]),
                            "Repair Complete")
        self.assertInstalled()

    @unittest.skipUnless(shutil.which("strace"), "needs strace")
    def test_killed_then_completed(self):
        # Of about 440 writes: at the first library, inside the large ones, among the folders, at the end.
        repair = ["--silent", "--repair", "--destination", self.destination]
        for first, then, points in ((self.install_args(), self.install_args(), (2, 150, 430)),
                                    (repair, repair, (150, 397))):
            for point in points:
                with self.subTest(run=first[1], write=point):
                    if first is not repair:
                        shutil.rmtree(self.destination, ignore_errors=True)
                    else:  # without a manifest a repair writes every file again
                        os.remove(os.path.join(self.destination, "bin", "manifest.sha256"))
                    code, out, err = self.run_setup(first, prefix=strace_signal("KILL", point), env=self.untraced())
                    self.assertEqual(code, -signal.SIGKILL, err)
                    self.assertWholeOrAbsent()
                    self.assertEqual(self.run_setup(then)[0], 0)
                    self.assertInstalled()

    def test_killed_inside_a_file_made_at_its_name(self):
        # A file made where nothing stood has its name while it is written, so
        # the run lists it as in progress first; the next install replaces it
        # without asking, though the cut file is newer than the medium's.
        size = 256 << 20
        data = self.data_file(contents=[("lib/large.bin", bytes(size))])
        large = os.path.join(self.destination, "lib", "large.bin")
        process = subprocess.Popen([os.path.join(INSTALLER, "Setup")] + self.install_args() + ["--data-file", data],
                                   cwd=self.tmp, env=self.environment(self.untraced()),
                                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        while process.poll() is None:
            if 0 < (os.stat(large).st_size if os.path.exists(large) else 0) < size:
                process.kill()
            time.sleep(0.0005)
        self.assertEqual(process.returncode, -signal.SIGKILL)
        self.assertLess(os.stat(large).st_size, size)
        folder = os.stat(os.path.dirname(large))
        listed = read(os.path.join(self.destination, "bin", "files-in-progress")).decode().splitlines()
        self.assertIn("%d %d large.bin" % (folder.st_dev, folder.st_ino), listed)
        result = self.install("--data-file", data, program=os.path.join(INSTALLER, "Setup"))
        self.assertSucceeds(result, "Install Complete")
        self.assertInstalled(exact=False)
        self.assertEqual(read(large), bytes(size))
        self.assertFalse(os.path.exists(os.path.join(self.destination, "bin", "files-in-progress")))

    @unittest.skipUnless(shutil.which("strace"), "needs strace")
    def test_interrupted_at_a_file_boundary(self):
        for name, last in (("INT", CANCELLED), ("TERM", "error: Setup has been stopped by a termination signal.\n")):
            with self.subTest(signal=name):
                shutil.rmtree(self.destination, ignore_errors=True)
                code, _, err = self.run_setup(self.install_args(), prefix=strace_signal(name, 40), env=self.untraced())
                self.assertEqual((code, err.splitlines(True)[-1]), (1, last), err)
                self.assertLess(len(self.assertWholeOrAbsent()), len(copied_files()))
                self.assertEqual(self.record().get("dest_dir"), self.destination)
                self.assertSucceeds(self.run_setup(["--silent", "--repair", "--destination", self.destination]),
                                    "Repair Complete")
                self.assertInstalled()

    def test_files_in_the_way(self):
        quilmor = os.path.join(self.destination, "bin", "Quilmor")
        for case in ("older read-only", "newer of another user", "a folder"):
            with self.subTest(case):
                shutil.rmtree(self.destination, ignore_errors=True)
                if case == "a folder":
                    write(quilmor + "/inside")
                    os.utime(quilmor, (self.OLD, self.OLD))
                else:
                    write(quilmor, mode=0o444 if "read-only" in case else 0o644,
                          mtime=self.OLD if "older" in case else self.NEW)
                    os.chown(quilmor, NOBODY if "another" in case else 0, 0)
                code, out, err = self.install()
                answered = {
                    "older read-only": ["question: Older version of Quilmor already exists: Do you want to overwrite "
                                        "\"%s\" with newer file? -- answered Yes (default)\n" % quilmor,
                                        "question: %s is a read only file: Do you want to overwrite read only file "
                                        "\"Quilmor\"? -- answered No (default)\n" % quilmor],
                    "newer of another user": ["question: Newer version of Quilmor already exists: Do you want to "
                                              "overwrite \"%s\" with older file? -- answered No (default)\n" % quilmor],
                    "a folder": ["question: Older version of Quilmor already exists",
                                 "error: Cannot copy file %s/bin/Quilmor to %s\n" % (MEDIUM, quilmor)]}[case]
                for line in answered:
                    self.assertIn(line, err)
                self.assertEqual(code, 1 if case == "a folder" else 0, err)
                if case == "a folder":
                    self.assertEqual(os.listdir(quilmor), ["inside"])
                else:
                    self.assertEqual(read(quilmor), b"the user's own\n")
        # A read-only destination.
        shutil.rmtree(self.destination)
        os.makedirs(self.destination)
        self.mount("--bind", self.destination, self.destination)
        subprocess.run(["mount", "-o", "remount,bind,ro", self.destination], check=True)
        self.assertFails(self.install(), "Cannot create folder %s/" % self.destination)

    def install_args(self):
        return ["--silent", "--accept-license", "--destination", self.destination]

    def untraced(self):
        # The leak checker of a sanitized build cannot run under a tracer.
        options = os.environ.get("ASAN_OPTIONS")
        return {"ASAN_OPTIONS": options + ":detect_leaks=0"} if options else {}


class Hostile(Case):
    needs_root = True
    plants_victim = True

    def assertNothingOutside(self):
        for number in range(len(SYSTEM_FOLDERS)):
            upper = os.path.join(self.tmp, "scratch", str(number), "upper")
            self.assertEqual(files_below(upper) - {"udev/rules.d"}, set(), upper)
        self.assertVictimUntouched()

    def test_damaged_medium(self):
        copy = os.path.join(self.tmp, "medium")
        shutil.copytree(MEDIUM, copy, symlinks=True)
        shutil.rmtree(os.path.join(copy, "samples"))
        self.assertFails(self.install(program=os.path.join(copy, "Setup")),
                                  "Cannot find folder %s/samples" % copy)
        self.assertFalse(os.path.exists(os.path.join(self.destination, "samples")))
        # A member the installing user cannot read.
        shutil.copytree(MEDIUM + "/samples", copy + "/samples")
        os.chmod(copy + "/lib/libcalvra.a", 0)
        os.chown(self.home, NOBODY, NOBODY)
        result = self.run_setup(["--silent", "--accept-license", "--user-mode-install"],
                                program=os.path.join(copy, "Setup"), prefix=AS_NOBODY)
        destination = os.path.join(self.home, ".local/share/tamrin_calvra_for_arm_5.50a")
        self.assertFails(result, "Cannot copy file %s/lib/libcalvra.a to %s/lib/libcalvra.a" % (copy,
                                                                                                      destination))
        self.assertFalse(os.path.exists(destination + "/lib/libcalvra.a"))

    def test_truncated_data_file(self):
        data = read(self.data_file())
        truncated = os.path.join(self.tmp, "truncated.data")
        # Header, table and body, at fixed fractions of the file.
        for offset in sorted({0, 4, 8, 12, 64} | {len(data) * k // 11 for k in range(1, 11)}):
            with self.subTest(offset=offset):
                shutil.rmtree(self.destination, ignore_errors=True)
                with open(truncated, "wb") as f:
                    f.write(data[:offset])
                code, out, err = self.install("--data-file", truncated, program=os.path.join(INSTALLER, "Setup"))
                self.assertEqual(code, 1, err)
                self.assertRegex(err, r"error: .*\S\n$")
                self.assertNothingOutside()
                self.assertWholeOrAbsent()

    def test_members_that_climb_out(self):
        climb = os.path.relpath(self.victim, os.path.join(self.destination, "lib"))
        for name in ("lib/" + climb, "lib/sub/../../../outside/victim", "lib/" + self.victim, "/" + self.victim[1:]):
            # An absolute name lies below no item's folder: only the copy takes every member.
            for mode in ("install", "copy files") if name.startswith("lib/") else ("copy files",):
                with self.subTest(member=name, mode=mode):
                    shutil.rmtree(self.destination, ignore_errors=True)
                    data = ["--data-file", self.data_file([name])]
                    code, out, err = (self.install(*data, program=os.path.join(INSTALLER, "Setup"))
                                      if mode == "install" else
                                      self.run_setup(["--copy-files-to", self.destination] + data,
                                                     program=os.path.join(INSTALLER, "Setup")))
                    self.assertEqual(code, 1, err)
                    self.assertIn("error: ", err)
                    self.assertVictimUntouched()

    def test_links_among_the_destination_folders(self):
        for medium, planted, member in (("archive", "lib/sub", "lib/sub/victim"), ("archive", "lib", "lib/victim"),
                                        ("folder", "samples", None)):
            with self.subTest(medium=medium, planted=planted):
                shutil.rmtree(self.destination, ignore_errors=True)
                os.makedirs(os.path.dirname(os.path.join(self.destination, planted)), exist_ok=True)
                os.symlink(self.outside, os.path.join(self.destination, planted))
                result = (self.install("--data-file", self.data_file([member]), program=os.path.join(INSTALLER, "Setup"))
                          if member else self.install())
                self.assertEqual(result[0], 1, result[2])
                self.assertVictimUntouched()
        self.assertIn("Cannot copy file %s/samples/" % MEDIUM, result[2])

    def test_links_in_place_of_written_files_are_replaced(self):
        settings = os.path.join(self.home, ".config", "Tamrin", PRODUCT, "Installer.conf")
        planted = [os.path.join(self.destination, "bin", name) for name in ("Quilmor", "IConf.xml", "uninstall")]
        planted += [settings, DESKTOP_ENTRY, MIME_PACKAGE, MIME_ICON]
        for path in planted:
            os.makedirs(os.path.dirname(path), exist_ok=True)
            os.symlink(self.victim, path)
            # Older than the medium: the overwrite rule lets the copy go ahead.
            os.utime(path, (1000000000, 1000000000), follow_symlinks=False)
        os.symlink(self.victim, UDEV_RULES)
        code, out, err = self.install(env=SUDO)
        self.assertEqual(code, 0, err)
        self.assertVictimUntouched()
        for path in planted:
            self.assertTrue(stat.S_ISREG(os.lstat(path).st_mode), path)
        self.assertInstalled()
        self.assertIn("DestDir=%s\n" % self.destination, read(settings).decode())
        # With something at the rules file's place the rules item is not chosen.
        self.assertTrue(os.path.islink(UDEV_RULES))

    def test_destination_with_shell_characters(self):
        # Were the name ever read by a shell, "pwned" files would appear.
        self.destination = os.path.join(self.tmp, "a dir 'single' \"double\" $(NotAMacro) $(touch pwned) "
                                        "`touch pwned2` $HOME; touch pwned3")
        self.assertSucceeds(self.install(), "Install Complete")
        self.assertInstalled()
        # The menu entry reads back, as the desktop entry format says, to the program's path.
        entry = dict(line.split("=", 1) for line in read(DESKTOP_ENTRY).decode().splitlines()[1:])
        value = re.sub(r"\\([\\snt])", lambda m: {"s": " ", "n": "\n", "t": "\t"}.get(m[1], m[1]), entry["Exec"])
        self.assertRegex(value, r'^"([^"\\]|\\.)*"$')
        program = os.path.join(self.destination, "bin", "Quilmor")
        self.assertEqual(re.sub(r'\\(["`$\\])', r"\1", value[1:-1]).replace("%%", "%"), program)
        self.assertEqual(re.sub(r"\\\\", r"\\", entry["TryExec"]), program)
        result = self.run_setup(["--silent"], program=os.path.join(self.destination, "bin", "uninstall"))
        self.assertSucceeds(result, "Uninstall Complete", "had now been uninstalled.")
        self.assertFalse(os.path.exists(self.destination))
        for folder in (self.tmp, self.home):
            self.assertFalse({"pwned", "pwned2", "pwned3"} & set(os.listdir(folder)))


@unittest.skipUnless(os.environ.get("DISPLAY") and shutil.which("xdotool") and shutil.which("xwd"),
                     "needs an X server (xvfb-run), xdotool and xwd")
class Window(Case):
    """The real window on an X server, driven by synthetic key presses; a
    user-mode installation below the scenario's folder."""

    def start(self, *args):
        env = self.environment({"DISPLAY": os.environ["DISPLAY"], "QT_QPA_PLATFORM": "xcb",
                                "XDG_DATA_HOME": self.home + "/.local/share"})
        self.process = subprocess.Popen([os.path.join(MEDIUM, "Setup"), "--user-mode-install", "--destination",
                                         self.destination] + list(args), cwd=self.tmp, env=env,
                                        stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.addCleanup(lambda: self.process.poll() is None and self.process.kill())
        deadline = time.monotonic() + 120  # readiness, not speed: only keeps a broken run from hanging
        while True:
            found = subprocess.run(["xdotool", "search", "--onlyvisible", "--name", "^%s$" % WINDOW_TITLE],
                                   stdout=subprocess.PIPE, text=True).stdout.split()
            if found:
                break
            if self.process.poll() is not None:
                self.fail("Setup ended without a window, status %d: %s"
                          % (self.process.returncode, self.process.stderr.read().decode(errors="replace")))
            self.assertLess(time.monotonic(), deadline, "no window appeared")
            time.sleep(0.2)
        self.window = found[0]
        # No window manager: the keyboard goes where the pointer and the focus are.
        subprocess.run(["xdotool", "mousemove", "--window", self.window, "5", "5"], check=True)
        subprocess.run(["xdotool", "windowfocus", "--sync", self.window], check=True)
        self.last = set()
        self.settle()

    def settle(self, changed=True):
        """Waits until the screen shows something new, then keeps showing it
        for a second and a half; a blinking cursor's two images count as one."""
        deadline, seen = time.monotonic() + 120, []
        while True:
            self.image = subprocess.run(["xwd", "-silent", "-root"], stdout=subprocess.PIPE).stdout
            seen = (seen + [self.image])[-6:]
            shown = set(seen)
            if len(seen) == 6 and len(shown) <= 2 and all(shown) and (not changed or not shown & self.last):
                self.last = shown
                return
            self.assertLess(time.monotonic(), deadline, "the window did not change")
            time.sleep(0.25)

    def key(self, name, screenshot=None):
        subprocess.run(["xdotool", "key", "--clearmodifiers", name], check=True)
        self.settle()
        if screenshot and os.environ.get("SCREENSHOT_DIR"):
            os.makedirs(os.environ["SCREENSHOT_DIR"], exist_ok=True)
            xwd = os.path.join(self.tmp, "screen.xwd")
            with open(xwd, "wb") as f:
                f.write(self.image)
            subprocess.run(["convert", "xwd:" + xwd, os.path.join(os.environ["SCREENSHOT_DIR"], screenshot + ".png")],
                           check=True)

    def finish(self):
        out, err = self.process.communicate(timeout=600)
        return self.process.returncode, out.decode(), err.decode()

    def test_typical_installation_by_keyboard(self):
        self.start()
        # A second start hands over to this window and ends at once.
        self.assertEqual(self.run_setup(["--user-mode-install"], env={"DISPLAY": os.environ["DISPLAY"],
                                                                      "QT_QPA_PLATFORM": "xcb"}), (0, "", ""))
        self.assertIsNone(self.process.poll())
        for key, page in (("alt+n", "20-licence"), ("alt+a", "20-licence-accepted"), ("alt+n", "03-destination"),
                          ("alt+n", "08-configuration"), ("alt+n", "07-optional"), ("alt+n", "11-start-installation")):
            self.key(key, page)
        subprocess.run(["xdotool", "key", "alt+i"], check=True)
        deadline = time.monotonic() + 600
        while not os.path.exists(os.path.join(self.destination, "bin", "IConf.xml")):
            self.assertIsNone(self.process.poll(), "Setup ended early")
            self.assertLess(time.monotonic(), deadline)
            time.sleep(0.2)
        self.settle(changed=False)
        self.key("alt+f")
        self.assertEqual(self.finish()[::2], (0, ""))
        self.assertInstalled(exact=False)
        self.assertTrue(os.path.exists(self.home + "/.local/share/applications/" + os.path.basename(DESKTOP_ENTRY)))

    @unittest.skipUnless(os.geteuid() == 0, "needs root to mount a small file system")
    def test_install_refused_for_space_goes_back_to_the_start_page(self):
        small = os.path.join(self.tmp, "small")
        os.makedirs(small)
        self.mount("-t", "tmpfs", "-o", "size=1m", "tmpfs", small)
        self.destination = small + "/dest"
        self.start()
        for key in ("alt+n", "alt+a", "alt+n", "alt+n", "alt+n", "alt+n"):
            self.key(key)
        start_page = self.last
        self.key("alt+i")  # the question box: not enough space
        self.key("Return")
        self.assertTrue(self.last & start_page)
        self.key("Escape")
        subprocess.run(["xdotool", "key", "Return"], check=True)
        self.assertEqual((self.finish()[0], os.listdir(small)), (1, []))

    def test_silent_run_reads_the_licence_in_the_window(self):
        for key, code, err in (("alt+d", 1, "error: License agreement not accepted\n"), ("alt+a", 0, "")):
            with self.subTest(key):
                self.start("--silent")
                self.key(key, "silent-licence")
                subprocess.run(["xdotool", "key", "alt+n"], check=True)
                self.assertEqual(self.finish()[::2], (code, err))
                self.assertEqual(os.path.exists(os.path.join(self.destination, "bin", "IConf.xml")), code == 0)


class Truth(Case):
    """What a run reports is what happened, and paths are never taken as given."""
    needs_root = True
    plants_victim = True

    def test_maintenance_needs_a_readable_record(self):
        record = os.path.join(self.destination, "bin", "IConf.xml")
        missing = "error: Cannot find the %s installation: no record at %s; name its folder with --destination\n"
        damaged = "error: Cannot use the installation record %s: " % record
        # (scenario, how the record is spoiled after an install (None: nothing
        # installed), maintenance option, standard error)
        scenarios = (
            ("nothing installed, repaired", None, "--repair", missing % (PRODUCT, record)),
            ("nothing installed, modified", None, "--modify", missing % (PRODUCT, record)),
            ("empty record", lambda: write(record, b""), "--remove", damaged + "it is damaged\n"),
            ("truncated record", lambda: write(record, read(record)[:200]), "--repair", damaged + "it is damaged\n"),
            ("relative destination in it", lambda: write(record, read(record).replace(
                b'dest_dir="/', b'dest_dir="')), "--remove", damaged + "it is damaged\n"),
            ("a folder in its place", lambda: (os.remove(record), os.makedirs(record)), "--modify",
             damaged + "it is not a file\n"),
        )
        for name, spoil, option, message in scenarios:
            with self.subTest(name):
                shutil.rmtree(self.destination, ignore_errors=True)
                if spoil:
                    self.assertEqual(self.install()[0], 0)
                    spoil()
                before = files_below(self.destination) if spoil else None
                code, out, err = self.run_setup(["--silent", "--destination", self.destination, option])
                self.assertEqual((code, err), (1, message))
                self.assertEqual(files_below(self.destination) if spoil else os.path.exists(self.destination),
                                 before if spoil else False)

    def test_verify_repair_and_log(self):
        manifest = os.path.join(self.destination, "bin", "manifest.sha256")
        log = os.path.join(self.tmp, "setup.log")
        write(log, b"kept\n", 0o600)
        verify = ["--verify", "--destination", self.destination, "--log", log]
        self.assertEqual(self.install("--log", log)[0], 0)
        self.assertEqual(subprocess.run(["sha256sum", "-c", "--quiet", manifest], cwd=self.destination).returncode, 0)
        # (file, tampering, the line verify prints for it)
        tampered = (("bin/Quilmor", lambda path: write(path, read(path)[::-1], 0o755, 1600000000), "..5"),
                    ("lib/libcalvra.a", lambda path: os.chmod(path, 0o600), ".M."),
                    ("include/calvra/core.h", os.remove, "missing"))
        for name, spoil, _ in tampered:
            spoil(os.path.join(self.destination, name))
        untouched = {name: os.stat(os.path.join(self.destination, name)).st_ino
                     for name in set(copied_files()) - {name for name, _, _ in tampered}}
        code, out, err = self.run_setup(verify)
        self.assertEqual((code, err, sorted(out.splitlines()[:-1])), (2, "", sorted(
            "%-9s%s/%s" % (line, self.destination, name) for name, _, line in tampered)))
        self.assertRegex(out.splitlines()[-1], r"^\d+ files checked, 3 differ: 1 missing, 0 changed size, "
                                               r"1 changed mode, 1 changed content$")
        code, out, err = self.run_setup(["--silent", "--repair", "--destination", self.destination, "--log", log])
        self.assertEqual((code, err, out.splitlines()[-3:-1]), (0, "", ["3 files repaired", "Repair Complete"]))
        self.assertInstalled()
        self.assertEqual(untouched, {name: os.stat(os.path.join(self.destination, name)).st_ino for name in untouched})
        uninstall = os.path.join(self.destination, "bin", "uninstall")
        self.assertEqual(self.run_setup(["--verify"], program=uninstall, prefix=AS_NOBODY, cwd="/")[0], 0)
        lines = read(log).decode().splitlines()
        self.assertEqual(lines[0], "kept")
        # Installed and repaired, installed only, and the verify and repair lines.
        for line, count in (("written %s/bin/Quilmor" % self.destination, 2), ("3 files repaired", 1),
                            ("written %s/bin/qzbuild" % self.destination, 1), ("Repair Complete", 1),
                            ("missing  %s/include/calvra/core.h" % self.destination, 1)):
            self.assertEqual(len([entry for entry in lines if re.fullmatch(r"[-\d]+T[:.\d]+Z " + re.escape(line),
                                                                           entry)]), count, line)
        # A manifest that is not the installation's own, or a log through a link, stops the run.
        os.symlink(log, log + ".link")
        for content, owner, args, message in (
                (b"# 0644 1\n" + b"0" * 64 + b"  ../../etc/passwd\n", 0, verify,
                 "error: Cannot verify the installation: the manifest %s: it is damaged: line 2\n" % manifest),
                (read(manifest), NOBODY, verify, "error: Cannot trust the installation manifest %s: it belongs to "
                                                 "user %d, not root.\n" % (manifest, NOBODY)),
                (read(manifest), 0, verify[:-1] + [log + ".link"],
                 "error: Cannot use the log file %s.link: it is a symbolic link\n" % log)):
            write(manifest, content)
            os.chown(manifest, owner, 0)
            self.assertEqual(self.run_setup(verify[:-2] + args[-2:]), (1, "", message))
        # The installer's own diagnostics, once asked for, reach the log too.
        self.run_setup(["--silent", "--repair", "--destination", self.destination, "--log", log],
                       env={"QT_LOGGING_RULES": "setup.*=true"})
        self.assertIn("Z setup.installer: Read the installation record", read(log).decode())

    def test_destinations_are_absolute_and_removal_stops_there(self):
        nested = os.path.join(self.tmp, "p", "a", "b")
        os.makedirs(nested)
        self.assertEqual(self.run_setup(["--silent", "--accept-license", "--destination", "b/../b/dest"],
                                        cwd=os.path.dirname(nested))[:2][0], 0)
        destination = os.path.join(nested, "dest")
        self.assertEqual(self.record(destination).get("dest_dir"), destination)
        self.assertIn(b"Exec=%s/bin/Quilmor\n" % destination.encode(), read(DESKTOP_ENTRY))
        # Its own uninstall, started from elsewhere, removes it and nothing above it.
        result = self.run_setup(["--silent"], program=os.path.join(destination, "bin", "uninstall"), cwd="/")
        self.assertSucceeds(result, "Uninstall Complete", "had now been uninstalled.")
        self.assertEqual(os.listdir(nested), [])
        for args in (["--destination", ""], ["--destination", " "]):
            self.assertEqual(self.run_setup(["--silent", "--accept-license"] + args),
                             (1, "", "error: The destination given with --destination is empty\n"))
        self.assertEqual(self.run_setup(["--copy-files-to", "", "--accept-license"], program=SETUP),
                         (1, "", "error: destination directory must not be empty\n"))

    def test_links_in_a_folder_medium_and_the_destination(self):
        medium = os.path.join(self.tmp, "medium")
        shutil.copytree(MEDIUM, medium, symlinks=True)
        os.makedirs(os.path.join(medium, "llvm", "bin"), exist_ok=True)
        write(os.path.join(medium, "llvm", "bin", "clang"), b"the compiler\n", 0o755)
        os.symlink("clang", os.path.join(medium, "llvm", "bin", "clang++"))
        os.symlink("../llvm", os.path.join(medium, "gcc", "llvm"))
        self.assertSucceeds(self.install(program=os.path.join(medium, "Setup")), "Install Complete")
        for name in ("llvm/bin/clang++", "gcc/llvm/bin/clang++"):
            path = os.path.join(self.destination, name)
            self.assertFalse(os.path.islink(path))
            self.assertEqual(read(path), b"the compiler\n")
        # A dangling link where a product file belongs is replaced on repair.
        product_file = os.path.join(self.destination, "llvm", "bin", "clang")
        os.remove(product_file)
        os.symlink(os.path.join(self.outside, "nothing"), product_file)
        self.assertSucceeds(self.run_setup(["--silent", "--repair", "--destination", self.destination],
                                           program=os.path.join(medium, "Setup")), "Repair Complete")
        self.assertEqual(read(product_file), b"the compiler\n")
        self.assertVictimUntouched()
        # A link to nothing in the medium is a missing file, not a file left out.
        os.remove(os.path.join(medium, "llvm", "bin", "clang"))
        code, out, err = self.install(program=os.path.join(medium, "Setup"))
        self.assertEqual(code, 1)
        self.assertRegex(err, r"\nerror: Cannot copy file %s/(gcc/)?llvm/bin/clang" % medium)


class Deploy(Case):
    """Features chosen without a window, space checked first, and a dry run that is what the run then does."""
    needs_root = True
    UDEV = ("--feature", "VANTOR udev rules file=on")

    def plan(self, *args, run=None):
        code, out, err = (run or self.install)("--dry-run=json", *args)
        self.assertEqual((code, err), (0, ""))
        plan = json.loads(out)
        return plan, {path for item in plan["items"] for path in item["write"] + item["delete"]}

    def present(self):
        return {os.path.join(self.destination, name) for name in files_below(self.destination)}

    def test_features_chosen_silently(self):
        # (options, rules file installed, help installed)
        for args, rules, help_files in ((("--install-type", "minimal"), False, True),
                                        (("--install-type", "full"), False, True), (self.UDEV, True, True),
                                        (("--install-type", "Custom", "--feature", "help files=off") + self.UDEV,
                                         True, False)):
            with self.subTest(args=args):
                shutil.rmtree(self.destination, ignore_errors=True)
                if os.path.exists(UDEV_RULES):
                    os.remove(UDEV_RULES)
                plan, planned = self.plan(*args)
                self.assertSucceeds(self.install(*args), "Install Complete")
                self.assertEqual((os.path.isfile(UDEV_RULES), os.path.isdir(self.destination + "/html")),
                                 (rules, help_files))
                self.assertEqual({path for path in planned if path.startswith(self.destination + "/")},
                                 self.present() - {self.destination + "/bin/IConf.xml",
                                                   self.destination + "/bin/manifest.sha256"})
                self.assertEqual(UDEV_RULES in planned, rules)

    def test_refused_before_anything_is_written(self):
        small = os.path.join(self.tmp, "small")
        os.makedirs(small)
        self.mount("-t", "tmpfs", "-o", "size=1m", "tmpfs", small)
        no_space = r"error: not enough space on %s: \d+ MB needed, 1 MB free\n" % small
        rows = (([], "--feature", "Quux=on", 1, "error: Unknown feature 'Quux'; the features are 'Tamrin Calvra for "
                  "ARM 5.50a', 'Binary Files', 'GCC Files', 'Help Files', "),
                ([], "--feature", "tamrin calvra for arm 5.50a=off", 1, "error: The feature 'Tamrin Calvra for ARM "
                 "5.50a' cannot be switched off; the features that can are 'Binary Files', "),
                ([], "--destination", small + "/dest", 3, no_space),
                (["--dry-run"], "--destination", small + "/dest", 3, no_space),
                (["--dry-run", "--remove"], "--destination", self.destination, 1, "error: Cannot find the "))
        for before, option, value, code, err in rows:
            with self.subTest(value):
                result = self.install(*before, *self.UDEV, option, value)
                self.assertEqual(result[0], code)
                self.assertRegex(result[2], "^" + re.escape(err) if code == 1 else no_space)
                self.assertEqual((os.listdir(small), os.path.exists(self.destination), os.path.exists(UDEV_RULES)),
                                 ([], False, False))

    def test_dry_run_is_what_upgrade_modify_and_removal_do(self):
        self.assertEqual(self.install()[0], 0)
        mine = os.path.join(self.destination, "lib/mine/notes.txt")
        write(mine)
        before = self.present()
        plan, planned = self.plan()
        self.assertEqual((plan["mode"], plan["kept"], plan["removed"]), ("upgrade", [mine], []))
        self.assertLessEqual(set(plan["replaced"]) - {DESKTOP_ENTRY}, before)
        self.assertSucceeds(self.install(), "Upgrade Complete", "has now been upgraded.")
        self.assertEqual(self.present(), before)
        # Modify without a window: the features switched are added and removed.
        modify = ["--silent", "--modify", "--destination", self.destination, "--feature", "Help Files=off", *self.UDEV]
        self.assertEqual(self.run_setup(modify)[::2], (0, ""))
        self.assertEqual((os.path.exists(self.destination + "/html"), os.path.isfile(UDEV_RULES)), (False, True))
        before = self.present()
        plan, planned = self.plan(run=lambda *args: self.run_setup(["--remove", "--destination", self.destination] +
                                                                  list(args)))
        self.assertEqual((plan["mode"], plan["kept"]), ("remove", [mine]))
        self.assertEqual(self.run_setup(["--silent", "--remove", "--destination", self.destination])[0], 0)
        self.assertEqual(before - self.present(), {path for path in planned if path.startswith(self.destination)})
        self.assertEqual(self.present(), {mine})


GROUPS = {"cli": Cli, "install": Install, "faults": Faults, "hostile": Hostile, "window": Window, "truth": Truth,
          "deploy": Deploy}


def main():
    use_fixtures(os.environ["E2E_FIXTURES"])
    if sys.argv[1] == "prepare":
        prepare()
        return 0
    group = GROUPS[sys.argv[1]]
    if group.needs_root and os.geteuid() != 0:
        print("skipped: needs root for a private mount namespace")
        return 77
    if os.geteuid() == 0:
        enter_private_namespace()
    suite = unittest.defaultTestLoader.loadTestsFromTestCase(group)
    if len(sys.argv) > 2:
        suite = unittest.TestSuite(t for t in suite if t.id().split(".")[-1] in sys.argv[2:])
    return 0 if unittest.TextTestRunner(verbosity=2).run(suite).wasSuccessful() else 1


if __name__ == "__main__":
    sys.exit(main())
