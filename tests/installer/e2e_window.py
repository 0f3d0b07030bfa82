#!/usr/bin/env python3
"""The real Setup in a real window on an X server (run under xvfb-run), driven
by synthetic key presses (xdotool, through the XTEST extension) as a user's
keyboard would. A user-mode installation of the demo medium: the destination,
HOME and every data folder live in a temporary folder.

Every page the walk stops on is saved as a PNG into SCREENSHOT_DIR.
Usage: e2e_window.py <TestClass>..."""

import os
import shutil
import subprocess
import sys
import tempfile
import time
import unittest

SETUP = os.environ.get("SETUP_EXE", "")
MAKE_MEDIUM = os.environ.get("MAKE_DEMO_MEDIUM", "")
SCREENSHOT_DIR = os.environ.get("SCREENSHOT_DIR", "")
WINDOW_TITLE = "Tamrin Calvra for ARM 5.50a Setup"
PRODUCT = "Tamrin Calvra for ARM"

MEDIUM = None


def setUpModule():
    global MEDIUM
    work = tempfile.mkdtemp(prefix="setup-window-")
    MEDIUM = os.path.join(work, "medium")
    subprocess.run([MAKE_MEDIUM, MEDIUM, SETUP], check=True, stdout=subprocess.DEVNULL)


def tearDownModule():
    shutil.rmtree(os.path.dirname(MEDIUM), ignore_errors=True)


def files_below(folder):
    found = set()
    for parent, _, names in os.walk(folder):
        for name in names:
            found.add(os.path.relpath(os.path.join(parent, name), folder))
    return found


@unittest.skipUnless(os.environ.get("DISPLAY") and shutil.which("xdotool") and shutil.which("xwd"),
                     "needs an X server (xvfb-run), xdotool and xwd")
class WindowCase(unittest.TestCase):
    def setUp(self):
        self.tmp = tempfile.mkdtemp(prefix="setup-window-case-")
        self.home = os.path.join(self.tmp, "home")
        os.makedirs(self.home)
        self.destination = os.path.join(self.tmp, "Calvra Home")
        self.process = None

    def tearDown(self):
        if self.process and self.process.poll() is None:
            self.process.kill()
            self.process.communicate()
        shutil.rmtree(self.tmp, ignore_errors=True)

    def environment(self, **extra):
        env = {k: v for k, v in os.environ.items() if k not in ("SUDO_UID", "SUDO_GID", "WAYLAND_DISPLAY")}
        env.update(HOME=self.home, TMPDIR=self.tmp, XDG_DATA_HOME=os.path.join(self.home, ".local/share"),
                   XDG_CONFIG_HOME=os.path.join(self.home, ".config"), QT_QPA_PLATFORM="xcb")
        env.update(extra)
        return env

    def start(self, *args):
        self.process = subprocess.Popen(
            [os.path.join(MEDIUM, "Setup"), "--user-mode-install", "--destination", self.destination] + list(args),
            cwd=self.tmp, env=self.environment(), stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
            stderr=subprocess.PIPE)
        self.window = self.wait_for_window()
        # No window manager: the keyboard goes where the pointer and the focus are.
        subprocess.run(["xdotool", "mousemove", "--window", self.window, "5", "5"], check=True)
        subprocess.run(["xdotool", "windowfocus", "--sync", self.window], check=True)
        geometry = dict(line.split("=") for line in subprocess.run(
            ["xdotool", "getwindowgeometry", "--shell", self.window], stdout=subprocess.PIPE, text=True,
            check=True).stdout.split())
        self.crop = "%sx%s+%s+%s" % (geometry["WIDTH"], geometry["HEIGHT"], geometry["X"], geometry["Y"])
        self.last = set()
        self.settle()

    def wait_for_window(self):
        # Readiness, not speed: the deadline only keeps a broken run from hanging the suite.
        deadline = time.monotonic() + 120
        while True:
            found = subprocess.run(["xdotool", "search", "--onlyvisible", "--name", "^%s$" % WINDOW_TITLE],
                                   stdout=subprocess.PIPE, text=True).stdout.split()
            if found:
                return found[0]
            if self.process.poll() is not None:
                self.fail("Setup ended without a window: %r" % (self.process.communicate(),))
            self.assertLess(time.monotonic(), deadline, "no window appeared")
            time.sleep(0.2)

    def capture(self):
        # The whole screen: question boxes are windows of their own.
        return subprocess.run(["xwd", "-silent", "-root"], stdout=subprocess.PIPE,
                              stderr=subprocess.DEVNULL).stdout

    def settle(self, changed=True):
        """Waits until the screen shows something new (unless changed is
        False) and then keeps showing it for a second and a half. A text
        cursor blinks: two images taking turns count as one."""
        deadline = time.monotonic() + 120
        seen = []
        while True:
            image = self.capture()
            seen = (seen + [image])[-6:]
            shown = set(seen)
            if len(seen) == 6 and len(shown) <= 2 and all(shown) and (not changed or not shown & self.last):
                self.last = shown
                self.image = image
                return
            self.assertLess(time.monotonic(), deadline, "the window did not change")
            time.sleep(0.25)

    def wait_for_file(self, path):
        # The record is written last: the run is over once it is there.
        deadline = time.monotonic() + 600
        while not os.path.exists(path):
            self.assertIsNone(self.process.poll(), "Setup ended early")
            self.assertLess(time.monotonic(), deadline, "%s never appeared" % path)
            time.sleep(0.2)

    def click(self, x, y):
        subprocess.run(["xdotool", "mousemove", "--window", self.window, str(x), str(y), "click", "1"], check=True)
        return self.settle()

    def key(self, *keys):
        subprocess.run(["xdotool", "key", "--clearmodifiers"] + list(keys), check=True)
        return self.settle()

    def screenshot(self, name):
        if not SCREENSHOT_DIR:
            return
        os.makedirs(SCREENSHOT_DIR, exist_ok=True)
        path = os.path.join(SCREENSHOT_DIR, name + ".png")
        xwd = os.path.join(self.tmp, "window.xwd")
        with open(xwd, "wb") as f:
            f.write(self.image)
        subprocess.run(["convert", "xwd:" + xwd, "-crop", self.crop, "+repage", path], check=True)
        # A question box is a window of its own, which the screen's image may
        # not show: it is saved on its own.
        boxes = subprocess.run(["xdotool", "search", "--onlyvisible", "--name", "^%s$" % WINDOW_TITLE],
                               stdout=subprocess.PIPE, text=True).stdout.split()
        for number, box in enumerate(b for b in boxes if b != self.window):
            image = subprocess.run(["xwd", "-silent", "-id", box], stdout=subprocess.PIPE, check=True).stdout
            with open(xwd, "wb") as f:
                f.write(image)
            subprocess.run(["convert", "xwd:" + xwd, os.path.join(SCREENSHOT_DIR, "%s-box%d.png" % (name, number))],
                           check=True)

    def finish(self):
        out, err = self.process.communicate(timeout=600)
        return self.process.returncode, out.decode(), err.decode()


class Walk(WindowCase):
    def test_typical_installation_by_keyboard(self):
        self.start()
        self.screenshot("01-welcome")
        self.key("alt+n")
        self.screenshot("20-licence")
        self.key("alt+a")
        self.screenshot("20-licence-accepted")
        self.key("alt+n")
        self.screenshot("03-destination")
        self.key("alt+n")
        self.screenshot("08-configuration")
        self.key("alt+n")
        self.screenshot("07-optional")
        self.key("alt+n")
        self.screenshot("11-start-installation")
        subprocess.run(["xdotool", "key", "alt+i"], check=True)
        self.wait_for_file(os.path.join(self.destination, "bin", "IConf.xml"))
        self.settle(changed=False)
        self.screenshot("17-complete")
        subprocess.run(["xdotool", "key", "alt+f"], check=True)
        code, out, err = self.finish()
        self.assertEqual((code, err), (0, ""))
        installed = files_below(self.destination)
        for folder in ("bin", "gcc", "html", "include", "lib", "llvm", "samples", "source", "targets"):
            self.assertTrue(files_below(os.path.join(MEDIUM, folder)) <= files_below(os.path.join(self.destination, folder)),
                            folder)
        self.assertIn("bin/IConf.xml", installed)
        self.assertTrue(os.path.exists(os.path.join(self.home,
                                                    ".local/share/applications/tamrin-tamrin-calvra-5.50a.desktop")))

    def test_custom_setup_page(self):
        self.start()
        self.key("alt+n")
        self.key("alt+a")
        self.key("alt+n")
        self.key("alt+n")
        # The configuration choices have no mnemonics: the pointer chooses.
        self.click(45, 213)
        self.screenshot("08-configuration-custom")
        self.key("alt+n")
        self.screenshot("09-custom-setup")
        self.key("Escape")
        self.screenshot("cancel-question")
        self.key("alt+y")
        code, out, err = self.finish()
        self.assertEqual(code, 1)
        self.assertFalse(os.path.exists(self.destination))


class SilentLicence(WindowCase):
    """A silent run whose agreement was not accepted on the command line reads
    it in a window when a display answers; the run itself stays silent."""

    def test_accepted_in_the_window(self):
        self.start("--silent")
        self.screenshot("silent-licence")
        self.key("alt+a")
        subprocess.run(["xdotool", "key", "alt+n"], check=True)
        code, out, err = self.finish()
        self.assertEqual((code, err), (0, ""))
        self.assertTrue(out.endswith("Install Complete\n%s 5.50a has now been installed.\n" % PRODUCT), out[-300:])
        self.assertIn("bin/IConf.xml", files_below(self.destination))

    def test_refused_in_the_window(self):
        self.start("--silent")
        self.key("alt+d")
        subprocess.run(["xdotool", "key", "alt+n"], check=True)
        code, out, err = self.finish()
        self.assertEqual((code, out, err), (1, "", "error: License agreement not accepted\n"))
        self.assertFalse(os.path.exists(self.destination))

    def test_no_display_and_no_terminal(self):
        env = self.environment()
        del env["DISPLAY"]
        env.pop("QT_QPA_PLATFORM")
        result = subprocess.run([os.path.join(MEDIUM, "Setup"), "--silent", "--user-mode-install",
                                 "--destination", self.destination], cwd=self.tmp, env=env,
                                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                timeout=600)
        self.assertEqual((result.returncode, result.stderr), (1, b"error: License agreement not accepted\n"))
        self.assertFalse(os.path.exists(self.destination))


if __name__ == "__main__":
    if os.getuid() == 0:
        import e2e_install  # noqa: E402
        e2e_install.enter_private_namespace()
    unittest.main(argv=[sys.argv[0], "-v"] + sys.argv[1:])
