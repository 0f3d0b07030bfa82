#!/usr/bin/env python3
"""Faults and hostile surroundings: the real Setup installs the demo medium
while the disk fills up, the process is killed or interrupted, files stand in
the way, the medium is damaged or crafted, and links are planted where root
writes. Each case checks the exit status, the messages and the disk
afterwards. Runs as root in a private mount namespace, with the system
folders overlaid, as the end-to-end installation tests do (whose fixture it
shares). Usage: faults.py <TestClass>..."""

import os
import shutil
import signal
import stat
import subprocess
import sys
import unittest

sys.path.insert(0, os.path.join(os.environ.get("SETUP_SOURCE_DIR", ""), "tests", "installer"))
sys.path.insert(0, os.path.join(os.environ.get("SETUP_SOURCE_DIR", ""), "tests", "media"))
import archiveformat  # noqa: E402
import e2e_install  # noqa: E402
from e2e_install import (DESKTOP_ENTRY, NOBODY, PRODUCT, PRODUCT_FOLDERS, UDEV_RULES,  # noqa: E402
                         PrivateSystemCase, as_nobody, files_below, read)

PACKARCHIVE = os.environ.get("PACKARCHIVE", "")
CANCELLED = "error: Installation has been cancelled by user.\n"
MIME_PACKAGE = "/usr/share/mime/packages/application-x-tamrin-qzproject.xml"
MIME_ICON = "/usr/share/icons/hicolor/48x48/mimetypes/application-x-tamrin-qzproject.png"


def setUpModule():
    e2e_install.setUpModule()


def tearDownModule():
    e2e_install.tearDownModule()


def medium():
    return e2e_install.MEDIUM


def copied_files():
    """Each file an installation copies, relative to the destination, with
    its source."""
    files = {"bin/uninstall": os.path.join(medium(), "Setup")}
    files.update(("bin/" + name, os.path.join(medium(), name))
                 for name in os.listdir(medium()) if name.startswith("libQt6"))
    for folder in PRODUCT_FOLDERS:
        files.update((folder + "/" + name, os.path.join(medium(), folder, name))
                     for name in files_below(os.path.join(medium(), folder)))
    return files


def installed_files():
    """What a complete installation holds, relative to the destination."""
    return set(copied_files()) | {"bin/IConf.xml"}


class FaultCase(PrivateSystemCase):
    def setUp(self):
        super().setUp()
        # Whatever lies outside the destination and may not change: a victim
        # file that planted links point at, in a folder of its own.
        self.outside = os.path.join(self.tmp, "outside")
        os.makedirs(self.outside)
        self.victim = os.path.join(self.outside, "victim")
        with open(self.victim, "wb") as f:
            f.write(b"not the installer's\n")
        os.chmod(self.victim, 0o600)
        # Older than every file of the medium: the overwrite rule's silent
        # answer would replace it.
        os.utime(self.victim, (1000000000, 1000000000))

    def assertVictimUntouched(self):
        self.assertEqual(os.listdir(self.outside), ["victim"])
        self.assertEqual(read(self.victim), b"not the installer's\n")
        status = os.lstat(self.victim)
        self.assertEqual((stat.S_IMODE(status.st_mode), status.st_uid), (0o600, 0))

    def assertCompleteInstallation(self):
        self.assertProductInstalled(self.destination)
        # No half-written or temporary file is left anywhere.
        self.assertEqual(files_below(self.destination), installed_files())

    def assertPartialFilesComplete(self):
        """Every product file that is there is whole: nothing half-written
        stands under a real name."""
        present = files_below(self.destination)
        self.assertLessEqual(present, installed_files())
        sources = copied_files()
        for name in present & set(sources):
            with self.subTest(file=name):
                self.assertEqual(read(os.path.join(self.destination, name)), read(sources[name]))
        return present

    def copy_medium(self):
        copy = os.path.join(self.tmp, "medium")
        shutil.copytree(medium(), copy, symlinks=True)
        return copy

    def install_args(self):
        return ["--silent", "--accept-license", "--destination", self.destination]


class DiskFull(FaultCase):
    def test_full_destination_fails_then_repair_completes(self):
        # A destination that holds a part of the product only.
        parent = os.path.join(self.tmp, "small")
        os.makedirs(parent)
        subprocess.run(["mount", "-t", "tmpfs", "-o", "size=2m", "tmpfs", parent], check=True)
        self.mounted.append(parent)
        self.destination = os.path.join(parent, "dest")

        code, out, err = self.install()
        self.assertEqual(code, 1, err)
        self.assertIn("Installation Failed\n", out)
        self.assertRegex(err, r"has failed\. Cannot copy file %s/\S+ to %s/" % (medium(), self.destination))
        self.assertTrue(err.endswith(CANCELLED), err[-300:])
        self.assertPartialFilesComplete()

        # Space again: a repair run finds the record and completes the product.
        subprocess.run(["mount", "-o", "remount,size=512m", parent], check=True)
        result = self.run_setup(["--silent", "--repair", "--destination", self.destination])
        self.assertSucceeds(result, "Repair Complete", "has now been installed.")
        self.assertCompleteInstallation()


def strace_signal(signal_name, nth_write):
    """A prefix that delivers the signal to Setup at its nth write: the same
    point of the installation on every run."""
    return ("strace", "-qq", "-o", "/dev/null", "-e", "trace=write",
            "-e", "inject=write:signal=%s:when=%d" % (signal_name, nth_write))


def traced_environment():
    # The leak checker of a sanitized build cannot run under a tracer.
    options = os.environ.get("ASAN_OPTIONS")
    return {"ASAN_OPTIONS": options + ":detect_leaks=0"} if options else {}


@unittest.skipUnless(shutil.which("strace"), "needs strace")
class Killed(FaultCase):
    # Writes of an installation of the demo medium (about 440 in all): at the
    # first library, inside the large libraries, at their end, among the
    # product's folders, at the icons and at the end of the run.
    POINTS = (2, 150, 376, 397, 430)

    def test_killed_installation_completes_on_the_next_run(self):
        for point in self.POINTS:
            with self.subTest(write=point):
                shutil.rmtree(self.destination, ignore_errors=True)
                code, out, err = self.run_setup(self.install_args(), env=traced_environment(),
                                                prefix=strace_signal("KILL", point))
                self.assertEqual(code, -signal.SIGKILL, err)
                self.assertPartialFilesComplete()
                self.assertSucceeds(self.install(), "Install Complete", "has now been installed.")
                self.assertCompleteInstallation()

    def test_killed_repair_completes_on_the_next_repair(self):
        self.assertSucceeds(self.install(), "Install Complete", "has now been installed.")
        repair = ["--silent", "--repair", "--destination", self.destination]
        for point in self.POINTS:
            with self.subTest(write=point):
                code, out, err = self.run_setup(repair, env=traced_environment(),
                                                prefix=strace_signal("KILL", point))
                self.assertEqual(code, -signal.SIGKILL, err)
                self.assertPartialFilesComplete()
                self.assertSucceeds(self.run_setup(repair), "Repair Complete", "has now been installed.")
                self.assertCompleteInstallation()


@unittest.skipUnless(shutil.which("strace"), "needs strace")
class Interrupted(FaultCase):
    def test_signal_stops_at_a_file_boundary_with_the_record_written(self):
        for name in ("INT", "TERM"):
            with self.subTest(signal=name):
                shutil.rmtree(self.destination, ignore_errors=True)
                code, out, err = self.run_setup(self.install_args(), env=traced_environment(),
                                                prefix=strace_signal(name, 40))
                self.assertEqual(code, 1, err)
                self.assertIn("Installation Failed\n", out)
                self.assertTrue(err.endswith(CANCELLED), err[-300:])
                present = self.assertPartialFilesComplete()
                # It stopped: the product is not all there.
                self.assertLess(len(present), len(installed_files()))
                record = self.record(self.destination)
                self.assertEqual(record.get("dest_dir"), self.destination)
                # The record lets a repair finish the work.
                result = self.run_setup(["--silent", "--repair", "--destination", self.destination])
                self.assertSucceeds(result, "Repair Complete", "has now been installed.")
                self.assertCompleteInstallation()


def touch(path, content=b"the user's own\n", mode=0o644, mtime=None):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "wb") as f:
        f.write(content)
    os.chmod(path, mode)
    if mtime is not None:
        os.utime(path, (mtime, mtime))


class Permissions(FaultCase):
    OLD = 1000000000  # older than every file of the medium
    NEW = 2000000000  # newer

    def quilmor(self):
        return os.path.join(self.destination, "bin", "Quilmor")

    def test_read_only_file_is_kept_by_the_silent_answer(self):
        touch(self.quilmor(), mode=0o444, mtime=self.OLD)
        code, out, err = self.install()
        path = self.quilmor()
        self.assertIn("question: Older version of Quilmor already exists: Do you want to overwrite \"%s\" with "
                      "newer file? -- answered Yes (default)\n" % path, err)
        self.assertIn("question: %s is a read only file: Do you want to overwrite read only file \"Quilmor\"? "
                      "-- answered No (default)\n" % path, err)
        self.assertEqual(code, 0, err)
        self.assertEqual(read(path), b"the user's own\n")
        self.assertEqual(stat.S_IMODE(os.stat(path).st_mode), 0o444)

    def test_newer_file_of_another_user_is_kept(self):
        touch(self.quilmor(), mtime=self.NEW)
        os.chown(self.quilmor(), NOBODY, NOBODY)
        code, out, err = self.install()
        self.assertIn("question: Newer version of Quilmor already exists: Do you want to overwrite \"%s\" with "
                      "older file? -- answered No (default)\n" % self.quilmor(), err)
        self.assertEqual(code, 0, err)
        self.assertEqual(read(self.quilmor()), b"the user's own\n")
        self.assertEqual(os.stat(self.quilmor()).st_uid, NOBODY)

    def test_file_of_root_in_a_users_installation_is_not_replaced(self):
        # The user may write the folder but not the file: the read-only rule
        # decides, and the silent answer keeps it.
        os.chown(self.home, NOBODY, NOBODY)
        destination = os.path.join(self.home, ".local/share/tamrin_calvra_for_arm_5.50a")
        path = os.path.join(destination, "bin", "Quilmor")
        touch(path, mtime=self.OLD)
        for folder in (self.home + "/.local", self.home + "/.local/share", destination, destination + "/bin"):
            os.chown(folder, NOBODY, NOBODY)
        code, out, err = self.run_setup(["--silent", "--accept-license", "--user-mode-install"],
                                        prefix=as_nobody())
        self.assertIn("question: %s is a read only file" % path, err)
        self.assertEqual(code, 0, err)
        self.assertEqual(read(path), b"the user's own\n")
        self.assertEqual(os.stat(path).st_uid, 0)

    def test_directory_where_a_file_belongs(self):
        touch(os.path.join(self.quilmor(), "inside"))
        os.utime(self.quilmor(), (self.OLD, self.OLD))
        code, out, err = self.install()
        self.assertEqual(code, 1, err)
        self.assertIn("question: Older version of Quilmor already exists", err)
        self.assertIn("Cannot copy file %s/bin/Quilmor to %s" % (medium(), self.quilmor()), err)
        self.assertTrue(err.endswith(CANCELLED), err[-300:])
        self.assertEqual(os.listdir(self.quilmor()), ["inside"])

    def test_read_only_destination(self):
        os.makedirs(self.destination)
        subprocess.run(["mount", "--bind", self.destination, self.destination], check=True)
        self.mounted.append(self.destination)
        subprocess.run(["mount", "-o", "remount,bind,ro", self.destination], check=True)
        code, out, err = self.install()
        self.assertEqual(code, 1, err)
        self.assertIn("Installation Failed\n", out)
        self.assertIn("Cannot create folder %s/" % self.destination, err)
        self.assertEqual(os.listdir(self.destination), [])


class DamagedMedium(FaultCase):
    def assertNothingOutside(self):
        # The system folders' overlays took no file.
        for number in range(len(e2e_install.SYSTEM_FOLDERS)):
            upper = os.path.join(self.tmp, "scratch%d" % number, "upper")
            self.assertEqual(files_below(upper) - {"udev/rules.d"}, set(), upper)
        self.assertVictimUntouched()

    def test_missing_medium_folder(self):
        copy = self.copy_medium()
        shutil.rmtree(os.path.join(copy, "samples"))
        code, out, err = self.install(program=os.path.join(copy, "Setup"))
        self.assertEqual(code, 1, err)
        self.assertIn("Cannot find folder %s/samples" % copy, err)
        self.assertTrue(err.endswith(CANCELLED), err[-300:])
        self.assertFalse(os.path.exists(os.path.join(self.destination, "samples")))

    def test_unreadable_member(self):
        # Root reads everything; the user's installation does not.
        copy = self.copy_medium()
        os.chmod(copy, 0o755)
        secret = os.path.join(copy, "lib", "libcalvra.a")
        os.chmod(secret, 0o000)
        os.chown(self.home, NOBODY, NOBODY)
        code, out, err = self.run_setup(["--silent", "--accept-license", "--user-mode-install"],
                                        program=os.path.join(copy, "Setup"), prefix=as_nobody())
        destination = os.path.join(self.home, ".local/share/tamrin_calvra_for_arm_5.50a")
        self.assertEqual(code, 1, err)
        self.assertIn("Cannot copy file %s to %s/lib/libcalvra.a" % (secret, destination), err)
        self.assertTrue(err.endswith(CANCELLED), err[-300:])
        self.assertFalse(os.path.exists(os.path.join(destination, "lib", "libcalvra.a")))

    @unittest.skipUnless(PACKARCHIVE, "needs the packarchive tool")
    def test_truncated_data_file(self):
        product = os.path.join(self.tmp, "product")
        for folder in PRODUCT_FOLDERS:
            shutil.copytree(os.path.join(medium(), folder), os.path.join(product, folder))
        whole = os.path.join(self.tmp, "whole.data")
        subprocess.run([PACKARCHIVE, "create", whole, product], check=True, stdout=subprocess.DEVNULL)
        data = read(whole)
        installer = os.path.join(self.tmp, "installer")
        os.makedirs(installer)
        for name in os.listdir(medium()):
            if name == "Setup" or name.startswith("libQt6"):
                shutil.copy2(os.path.join(medium(), name), installer)
        truncated = os.path.join(self.tmp, "truncated.data")
        # Header, table and body, at fixed fractions of the file.
        offsets = sorted({0, 1, 4, 7, 8, 12, 16, 64, 256} | {len(data) * k // 23 for k in range(1, 23)})
        for offset in offsets:
            with self.subTest(offset=offset):
                shutil.rmtree(self.destination, ignore_errors=True)
                with open(truncated, "wb") as f:
                    f.write(data[:offset])
                code, out, err = self.install("--data-file", truncated, program=os.path.join(installer, "Setup"))
                self.assertEqual(code, 1, err)
                self.assertRegex(err, r"error: .*\S\n$")
                self.assertNothingOutside()
                if os.path.isdir(self.destination):
                    self.assertPartialFilesComplete()


def hostile_archive(path, names):
    """The whole product with the planted members behind the others, so that
    every item before them runs as in a real installation."""
    members = []
    for folder in PRODUCT_FOLDERS:
        for name in sorted(files_below(os.path.join(medium(), folder))):
            source = os.path.join(medium(), folder, name)
            members.append(archiveformat.Member(folder + "/" + name, read(source),
                                                stat.S_IMODE(os.stat(source).st_mode), 1622833200))
    members += [archiveformat.Member(name, b"planted\n", 0o644, 1622833200) for name in names]
    with open(path, "wb") as f:
        f.write(archiveformat.write_v2(members))


class HostileMedium(FaultCase):
    def setUp(self):
        super().setUp()
        self.installer = os.path.join(self.tmp, "installer")
        os.makedirs(self.installer)
        for name in os.listdir(medium()):
            if name == "Setup" or name.startswith("libQt6"):
                shutil.copy2(os.path.join(medium(), name), self.installer)

    def climbing_names(self):
        climb = os.path.relpath(self.victim, os.path.join(self.destination, "lib"))
        return ("lib/" + climb, "lib/sub/../../../outside/victim", "lib/" + self.victim)

    def test_climbing_members_are_refused_by_an_installation(self):
        archive = os.path.join(self.tmp, "hostile.pa")
        for name in self.climbing_names():
            with self.subTest(member=name):
                shutil.rmtree(self.destination, ignore_errors=True)
                hostile_archive(archive, [name])
                code, out, err = self.install("--data-file", archive, program=os.path.join(self.installer, "Setup"))
                self.assertEqual(code, 1, err)
                self.assertVictimUntouched()

    def test_climbing_members_are_refused_by_copy_files(self):
        archive = os.path.join(self.tmp, "hostile.pa")
        for name in self.climbing_names() + ("/" + self.victim.lstrip("/"),):
            with self.subTest(member=name):
                shutil.rmtree(self.destination, ignore_errors=True)
                hostile_archive(archive, [name])
                code, out, err = self.run_setup(["--copy-files-to", self.destination, "--data-file", archive],
                                                program=os.path.join(self.installer, "Setup"))
                self.assertEqual(code, 1, err)
                self.assertTrue(err.startswith("error: "), err)
                self.assertVictimUntouched()

    def test_link_below_a_destination_folder_is_not_followed_by_an_archive(self):
        archive = os.path.join(self.tmp, "hostile.pa")
        hostile_archive(archive, ["lib/sub/victim"])
        os.makedirs(os.path.join(self.destination, "lib"))
        os.symlink(self.outside, os.path.join(self.destination, "lib", "sub"))
        code, out, err = self.install("--data-file", archive, program=os.path.join(self.installer, "Setup"))
        self.assertEqual(code, 1, err)
        self.assertVictimUntouched()

    def test_link_in_place_of_a_destination_folder_is_not_followed_by_an_archive(self):
        archive = os.path.join(self.tmp, "hostile.pa")
        hostile_archive(archive, ["lib/victim"])
        os.makedirs(self.destination)
        os.symlink(self.outside, os.path.join(self.destination, "lib"))
        code, out, err = self.install("--data-file", archive, program=os.path.join(self.installer, "Setup"))
        self.assertVictimUntouched()
        self.assertEqual(code, 1, err)


class PlantedLinks(FaultCase):
    def test_link_to_a_folder_outside_is_refused(self):
        os.makedirs(self.destination)
        os.symlink(self.outside, os.path.join(self.destination, "samples"))
        code, out, err = self.install()
        self.assertEqual(code, 1, err)
        self.assertIn("Cannot copy file %s/samples/" % medium(), err)
        self.assertVictimUntouched()

    def test_links_in_place_of_written_files_are_replaced_not_followed(self):
        # Every file the installer writes by name, each a link to the victim.
        settings = os.path.join(self.home, ".config", "Tamrin", PRODUCT, "Installer.conf")
        planted = [os.path.join(self.destination, "bin", "Quilmor"),
                   os.path.join(self.destination, "bin", "IConf.xml"),
                   os.path.join(self.destination, "bin", "uninstall"),
                   settings, DESKTOP_ENTRY, MIME_PACKAGE, MIME_ICON]
        for path in planted:
            os.makedirs(os.path.dirname(path), exist_ok=True)
            os.symlink(self.victim, path)
            # Older than the medium, so the overwrite rule lets the copy go ahead.
            os.utime(path, (1000000000, 1000000000), follow_symlinks=False)
        os.symlink(self.victim, UDEV_RULES)
        code, out, err = self.install(env={"SUDO_UID": "1234", "SUDO_GID": "4321"})
        self.assertEqual(code, 0, err)
        self.assertVictimUntouched()
        for path in planted:
            with self.subTest(path=path):
                self.assertTrue(stat.S_ISREG(os.lstat(path).st_mode))
        self.assertEqual(read(planted[0]), read(os.path.join(medium(), "bin", "Quilmor")))
        self.assertEqual(self.record(self.destination).get("dest_dir"), self.destination)
        with open(settings) as f:
            self.assertIn("DestDir=" + self.destination + "\n", f.read())
        # With something at the rules file's place the rules item is not
        # chosen: the link stays and nothing reached through it.
        self.assertTrue(os.path.islink(UDEV_RULES))


class Paths(FaultCase):
    def test_destination_with_shell_characters(self):
        # Were the name ever read by a shell, "pwned" files would appear.
        self.destination = os.path.join(self.tmp, "a dir 'single' \"double\" $(NotAMacro) $(touch pwned) "
                                        "`touch pwned2` $HOME; touch pwned3")
        self.assertSucceeds(self.install(), "Install Complete", "has now been installed.")
        self.assertCompleteInstallation()
        with open(DESKTOP_ENTRY) as f:
            entry = f.read()
        self.assertIn("Exec=" + os.path.join(self.destination, "bin", "Quilmor").replace(" ", "\\ ") + "\n", entry)
        result = self.run_setup(["--silent"], program=os.path.join(self.destination, "bin", "uninstall"))
        self.assertSucceeds(result, "Uninstall Complete", "had now been uninstalled.")
        self.assertFalse(os.path.exists(self.destination))
        for name in ("pwned", "pwned2", "pwned3"):
            self.assertFalse(os.path.exists(os.path.join(self.tmp, name)))
            self.assertFalse(os.path.exists(os.path.join(self.home, name)))


def main():
    if os.geteuid() != 0:
        print("skipped: needs root for a private mount namespace")
        return 77
    e2e_install.enter_private_namespace()
    program = unittest.main(argv=[sys.argv[0], "-v"] + sys.argv[1:], exit=False)
    return 0 if program.result.wasSuccessful() else 1


if __name__ == "__main__":
    sys.exit(main())
