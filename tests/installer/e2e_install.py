#!/usr/bin/env python3
"""End-to-end installations: the real Setup installs the demo medium, upgrades
it, and the installed "uninstall" removes it. Runs as root in a private mount
namespace: the desktop's folders and /etc are overlaid, so whatever Setup and
the desktop's update commands write lands in a scratch folder and the real
system is never touched. Usage: e2e_install.py <TestClass>..."""

import os
import shutil
import stat
import subprocess
import sys
import tempfile
import unittest
import xml.etree.ElementTree as ElementTree

SETUP = os.environ.get("SETUP_EXE", "")
MAKE_MEDIUM = os.environ.get("MAKE_DEMO_MEDIUM", "")
PACKARCHIVE = os.environ.get("PACKARCHIVE", "")

PRODUCT = "Tamrin Calvra for ARM"
PRODUCT_FOLDERS = ("bin", "gcc", "html", "include", "lib", "llvm", "samples", "tamrin-rtl", "source", "targets")
SYSTEM_FOLDERS = ("/usr/share/applications", "/usr/share/mime", "/usr/share/icons", "/etc")
MIME_TYPES = ("qzproject", "qzpackage", "qzarchive")
DESKTOP_ENTRY = "/usr/share/applications/tamrin-tamrin-calvra-5.50a.desktop"
UDEV_RULES = "/etc/udev/rules.d/99-vantor.rules"
NOBODY = 65534

MEDIUM = None  # made once: (folder, its files relative to it)


def setUpModule():
    global MEDIUM
    work = tempfile.mkdtemp(prefix="setup-medium-")
    os.chmod(work, 0o755)
    folder = os.path.join(work, "medium")
    subprocess.run([MAKE_MEDIUM, folder, SETUP], check=True, stdout=subprocess.DEVNULL)
    MEDIUM = folder


def tearDownModule():
    shutil.rmtree(os.path.dirname(MEDIUM), ignore_errors=True)


def files_below(folder):
    found = set()
    for parent, _, names in os.walk(folder):
        for name in names:
            found.add(os.path.relpath(os.path.join(parent, name), folder))
    return found


def read(path):
    with open(path, "rb") as f:
        return f.read()


class PrivateSystemCase(unittest.TestCase):
    """Each case gets its own overlays over the system folders, its own HOME
    and TMPDIR, and a destination in a fresh temporary folder."""

    def setUp(self):
        self.tmp = tempfile.mkdtemp(prefix="setup-e2e-")
        os.chmod(self.tmp, 0o755)
        self.home = os.path.join(self.tmp, "home")
        self.tmpdir = os.path.join(self.tmp, "tmp")
        os.makedirs(self.home)
        os.makedirs(self.tmpdir)
        os.chmod(self.tmpdir, 0o1777)
        self.destination = os.path.join(self.tmp, "dest")
        self.mounted = []
        for number, folder in enumerate(SYSTEM_FOLDERS):
            scratch = os.path.join(self.tmp, "scratch%d" % number)
            os.makedirs(os.path.join(scratch, "upper"))
            os.makedirs(os.path.join(scratch, "work"))
            subprocess.run(["mount", "-t", "overlay", "overlay", "-o",
                            "lowerdir=%s,upperdir=%s/upper,workdir=%s/work" % (folder, scratch, scratch), folder],
                           check=True)
            self.mounted.append(folder)
        os.makedirs(os.path.dirname(UDEV_RULES), exist_ok=True)

    def tearDown(self):
        for folder in reversed(self.mounted):
            subprocess.run(["umount", "-l", folder], check=False)
        shutil.rmtree(self.tmp, ignore_errors=True)

    def environment(self, extra=None):
        env = {k: v for k, v in os.environ.items()
               if k not in ("TMP", "TEMP", "SUDO_UID", "SUDO_GID", "DISPLAY", "WAYLAND_DISPLAY", "XDG_RUNTIME_DIR")}
        env.update(HOME=self.home, TMPDIR=self.tmpdir, QT_QPA_PLATFORM="offscreen")
        env.update(extra or {})
        return env

    def run_setup(self, args, program=None, env=None, prefix=(), stdin=b""):
        result = subprocess.run(list(prefix) + [program or os.path.join(MEDIUM, "Setup")] + list(args),
                                input=stdin, cwd=self.tmp, env=self.environment(env),
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=600)
        return result.returncode, result.stdout.decode(), result.stderr.decode()

    def install(self, *extra, **kwargs):
        return self.run_setup(["--silent", "--accept-license", "--destination", self.destination] + list(extra),
                              **kwargs)

    def assertSucceeds(self, result, title, outcome):
        code, out, err = result
        self.assertEqual(err, "")
        self.assertTrue(out.endswith("%s\n%s 5.50a %s\n" % (title, PRODUCT, outcome)), out[-300:])
        self.assertEqual(code, 0)

    def assertProductInstalled(self, destination):
        for folder in PRODUCT_FOLDERS:
            for name in files_below(os.path.join(MEDIUM, folder)):
                source = os.path.join(MEDIUM, folder, name)
                copy = os.path.join(destination, folder, name)
                with self.subTest(file=copy):
                    self.assertEqual(read(copy), read(source))
                    self.assertEqual(stat.S_IMODE(os.stat(copy).st_mode),
                                     stat.S_IMODE(os.stat(source).st_mode) & ~0o022)
                    self.assertEqual(os.stat(copy).st_mtime_ns, os.stat(source).st_mtime_ns)
        installer_folder = os.path.join(destination, "bin")
        self.assertEqual(read(os.path.join(installer_folder, "uninstall")), read(os.path.join(MEDIUM, "Setup")))
        self.assertTrue(os.access(os.path.join(installer_folder, "uninstall"), os.X_OK))
        libraries = [name for name in os.listdir(MEDIUM) if name.startswith("libQt6")]
        self.assertIn("libQt6Core.so.6", libraries)
        for name in libraries:
            self.assertEqual(read(os.path.join(installer_folder, name)), read(os.path.join(MEDIUM, name)))

    def record(self, destination):
        return ElementTree.parse(os.path.join(destination, "bin", "IConf.xml")).getroot()


class Install(PrivateSystemCase):
    def test_install_upgrade_remove(self):
        # A rules file the product did not write: removal leaves it.
        with open(UDEV_RULES, "w") as f:
            f.write("# the administrator's own\n")

        self.assertSucceeds(self.install(), "Install Complete", "has now been installed.")
        self.assertProductInstalled(self.destination)
        record = self.record(self.destination)
        self.assertEqual(record.tag, "configuration")
        self.assertEqual(record.get("dest_dir"), self.destination)
        self.assertEqual(record.get("src_dir"), MEDIUM)
        with open(os.path.join(self.home, ".config", "Tamrin", PRODUCT, "Installer.conf")) as f:
            settings = f.read()
        self.assertIn("DestDir=" + self.destination + "\n", settings)
        self.assertIn("SrcDir=" + MEDIUM + "\n", settings)
        with open(DESKTOP_ENTRY) as f:
            self.assertIn("Exec=" + self.destination + "/bin/Quilmor\n", f.read())
        for kind in MIME_TYPES:
            self.assertTrue(os.path.isfile("/usr/share/mime/packages/application-x-tamrin-%s.xml" % kind))
            self.assertTrue(os.path.isfile("/usr/share/icons/hicolor/48x48/mimetypes/application-x-tamrin-%s.png"
                                           % kind))
        with open("/usr/share/mime/globs2") as f:
            self.assertIn("application/x-tamrin-qzproject:*.qzproject", f.read())

        # The second run finds the record and upgrades; the user's file stays.
        user_folder = os.path.join(self.destination, "lib", "mine")
        os.makedirs(user_folder)
        with open(os.path.join(user_folder, "notes.txt"), "w") as f:
            f.write("mine\n")
        self.assertSucceeds(self.install(), "Upgrade Complete", "has now been upgraded.")
        self.assertProductInstalled(self.destination)
        self.assertEqual(read(os.path.join(user_folder, "notes.txt")), b"mine\n")

        # The copy left behind removes the installation, from anywhere.
        result = self.run_setup(["--silent"], program=os.path.join(self.destination, "bin", "uninstall"))
        self.assertSucceeds(result, "Uninstall Complete", "had now been uninstalled.")
        self.assertEqual(files_below(self.destination), {"lib/mine/notes.txt"})
        self.assertFalse(os.path.exists(DESKTOP_ENTRY))
        for kind in MIME_TYPES:
            self.assertTrue(os.path.isfile("/usr/share/mime/packages/application-x-tamrin-%s.xml" % kind))
            self.assertTrue(os.path.isfile("/usr/share/icons/hicolor/48x48/mimetypes/application-x-tamrin-%s.png"
                                           % kind))
        self.assertEqual(read(UDEV_RULES), b"# the administrator's own\n")

        # Nothing is left to remove; that is no failure.
        result = self.run_setup(["--silent", "--remove", "--destination", self.destination])
        self.assertSucceeds(result, "Uninstall Complete", "had now been uninstalled.")
        self.assertEqual(files_below(self.destination), {"lib/mine/notes.txt"})

    def test_repair_restores_a_deleted_file(self):
        self.assertSucceeds(self.install(), "Install Complete", "has now been installed.")
        quilmor = os.path.join(self.destination, "bin", "Quilmor")
        os.remove(quilmor)
        result = self.run_setup(["--silent", "--repair"], program=os.path.join(self.destination, "bin", "uninstall"))
        self.assertSucceeds(result, "Repair Complete", "has now been installed.")
        self.assertProductInstalled(self.destination)

    def test_silent_licence_prompt(self):
        # Without "--accept-license" the agreement is asked on the console.
        code, out, err = self.run_setup(["--silent", "--destination", self.destination], stdin=b"no\n")
        self.assertEqual((code, err), (1, "error: License agreement not accepted\n"))
        self.assertIn("Do you accept the agreement? [yes/no] ", out)
        self.assertFalse(os.path.exists(self.destination))
        code, out, err = self.run_setup(["--silent", "--destination", self.destination], stdin=b"yes\n")
        self.assertEqual(code, 0, err)
        self.assertIn("License agreement accepted\n", out)
        self.assertProductInstalled(self.destination)


class Failure(PrivateSystemCase):
    def test_maintenance_without_destination(self):
        code, out, err = self.run_setup(["--silent", "--remove", "--destination", ""])
        self.assertEqual(code, 1)
        self.assertTrue(err.startswith("error: Cannot find the %s installation" % PRODUCT), err)
        self.assertIn("--destination", err)

    def test_missing_installer_file_fails_with_status_1(self):
        medium = os.path.join(self.tmp, "partial")
        shutil.copytree(MEDIUM, medium, symlinks=True)
        os.remove(os.path.join(medium, "libQt6Core.so.6"))
        code, out, err = self.install(program=os.path.join(medium, "Setup"))
        self.assertEqual(code, 1)
        self.assertIn("Installation Failed\n", out)
        # The log says why, on the line of the question answered by rule.
        self.assertIn("question: Installer Installation Failed: The installation of the Installer component has "
                      "failed. Cannot find file '%s/libQt6Core.so.6'." % medium, err)
        self.assertIn("-- answered Yes (default)\n", err)
        self.assertTrue(err.endswith("error: Installation has been cancelled by user.\n"), err)


def as_nobody():
    return ("setpriv", "--reuid=%d" % NOBODY, "--regid=%d" % NOBODY, "--clear-groups")


class Users(PrivateSystemCase):
    def test_not_root(self):
        code, out, err = self.install(prefix=as_nobody())
        self.assertEqual((code, err), (1, "error: The installer must be run as root\n"))

    def test_user_mode_installs_into_the_users_folders(self):
        os.chown(self.home, NOBODY, NOBODY)
        code, out, err = self.run_setup(["--silent", "--accept-license", "--user-mode-install"], prefix=as_nobody())
        self.assertEqual((code, err), (0, ""))
        destination = os.path.join(self.home, ".local/share/tamrin_calvra_for_arm_5.50a")
        self.assertProductInstalled(destination)
        self.assertEqual(os.stat(os.path.join(destination, "bin", "Quilmor")).st_uid, NOBODY)
        # The menu entry and file types are the user's own, not the system's.
        user_data = os.path.join(self.home, ".local/share")
        self.assertTrue(os.path.exists(os.path.join(user_data, "applications", os.path.basename(DESKTOP_ENTRY))))
        self.assertTrue(os.path.exists(os.path.join(user_data, "mime/packages/application-x-tamrin-qzproject.xml")))
        self.assertFalse(os.path.exists(DESKTOP_ENTRY))

    def test_sudo_user_gets_the_configuration_back(self):
        os.chown(self.home, 1234, 4321)
        result = self.install(env={"SUDO_UID": "1234", "SUDO_GID": "4321"})
        self.assertSucceeds(result, "Install Complete", "has now been installed.")
        config = os.path.join(self.home, ".config")
        for path in (config, os.path.join(config, "Tamrin"), os.path.join(config, "Tamrin", PRODUCT)):
            status = os.lstat(path)
            self.assertEqual((status.st_uid, status.st_gid), (1234, 4321), path)
        # The installation itself stays root's.
        self.assertEqual(os.stat(os.path.join(self.destination, "bin", "Quilmor")).st_uid, 0)


@unittest.skipUnless(PACKARCHIVE, "needs the packarchive tool")
class FromArchive(PrivateSystemCase):
    def test_archive_inside_data_file(self):
        # The product behind some bytes of another file, as a self-extracting
        # installer carries it.
        data_file = os.path.join(self.tmp, "Setup.data")
        with open(data_file, "wb") as f:
            f.write(b"\x7fELF-like prefix" * 1000)
        # The archive holds the product's folders only, as a shipped one does.
        product = os.path.join(self.tmp, "product")
        for folder in PRODUCT_FOLDERS:
            shutil.copytree(os.path.join(MEDIUM, folder), os.path.join(product, folder))
        packed = subprocess.run([PACKARCHIVE, "create", "--append", data_file, product], check=True,
                                stdout=subprocess.PIPE, text=True).stdout
        offset = int(packed.split()[-1], 0)
        self.assertEqual(offset, 16000)
        # The installer itself ships beside the data file: Setup and its libraries.
        installer = os.path.join(self.tmp, "installer")
        os.makedirs(installer)
        for name in os.listdir(MEDIUM):
            if name == "Setup" or name.startswith("libQt6"):
                shutil.copy2(os.path.join(MEDIUM, name), installer)
        archive = ["--data-file", data_file, "--data-offset", "%x" % offset]
        result = self.install(*archive, program=os.path.join(installer, "Setup"))
        self.assertSucceeds(result, "Install Complete", "has now been installed.")
        self.assertProductInstalled(self.destination)

        result = self.install(*archive, program=os.path.join(installer, "Setup"))
        self.assertSucceeds(result, "Upgrade Complete", "has now been upgraded.")
        self.assertProductInstalled(self.destination)

        # A repair needs the medium again; the record knows only the folder.
        uninstall = os.path.join(self.destination, "bin", "uninstall")
        os.remove(os.path.join(self.destination, "lib", "libcalvra.a"))
        result = self.run_setup(["--silent", "--repair"] + archive, program=uninstall)
        self.assertSucceeds(result, "Repair Complete", "has now been installed.")
        self.assertProductInstalled(self.destination)

        result = self.run_setup(["--silent"], program=uninstall)
        self.assertSucceeds(result, "Uninstall Complete", "had now been uninstalled.")
        self.assertFalse(os.path.exists(self.destination))


def enter_private_namespace():
    """Runs this script again in a mount namespace of its own, with an empty
    /run: root's Setup keeps its single-instance lock there, which must reach
    neither the real /run nor the runs of another test. Needs root."""
    if os.environ.get("SETUP_E2E_PRIVATE") != "1":
        env = dict(os.environ, SETUP_E2E_PRIVATE="1")
        os.execvpe("unshare", ["unshare", "--mount", "--propagation", "private", sys.executable] + sys.argv, env)
    subprocess.run(["mount", "-t", "tmpfs", "-o", "mode=0755", "tmpfs", "/run"], check=True)


def main():
    if os.geteuid() != 0:
        print("skipped: needs root for a private mount namespace")
        return 77
    enter_private_namespace()
    program = unittest.main(argv=[sys.argv[0], "-v"] + sys.argv[1:], exit=False)
    return 0 if program.result.wasSuccessful() else 1


if __name__ == "__main__":
    sys.exit(main())
