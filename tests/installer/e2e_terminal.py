#!/usr/bin/env python3
"""The licence prompt of the copy-files mode on a real terminal: Setup runs in
a tmux pane of 80x24 cells; keys go in with send-keys, the screen comes back
with capture-pane."""

import os
import shlex
import shutil
import subprocess
import sys
import tempfile
import time
import unittest

SETUP = os.environ["SETUP_EXE"]
PROMPT = "<Press a return to continue>"
QUESTION = "Do you accept the agreement? [yes/no]"
ROWS = 24


class Terminal(unittest.TestCase):
    def setUp(self):
        self.tmp = tempfile.mkdtemp(prefix="setup-tmux-")
        self.socket = os.path.join(self.tmp, "tmux.socket")
        self.src = os.path.join(self.tmp, "src")
        os.makedirs(self.src)
        shutil.copy2(SETUP, os.path.join(self.src, "Setup"))
        self.destination = os.path.join(self.tmp, "out")
        self.status = os.path.join(self.tmp, "status")
        self.env = {"HOME": self.tmp, "TMPDIR": self.tmp, "PATH": os.environ.get("PATH", "/usr/bin:/bin"),
                    "TERM": "xterm", "LANG": "C.UTF-8"}

    def tearDown(self):
        subprocess.run(["tmux", "-S", self.socket, "kill-server"], stderr=subprocess.DEVNULL)
        shutil.rmtree(self.tmp, ignore_errors=True)

    def tmux(self, *args):
        return subprocess.run(["tmux", "-S", self.socket] + list(args), env=self.env, check=True,
                              stdout=subprocess.PIPE, text=True).stdout

    def start(self, command):
        script = ("cd {src} && {command}; s=$?; stty -a > {tmp}/stty; "
                  "echo $s > {status}.tmp && mv {status}.tmp {status}; exec sleep 600").format(
            src=shlex.quote(self.src), command=command, status=shlex.quote(self.status),
            tmp=shlex.quote(self.tmp))
        self.tmux("new-session", "-d", "-x", "80", "-y", str(ROWS), "sh", "-c", script)

    def setup_command(self, *extra):
        return " ".join(["./Setup", "--copy-files-to", shlex.quote(self.destination), "--silent"] + list(extra))

    def screen(self):
        return self.tmux("capture-pane", "-p").rstrip("\n").split("\n")

    def history(self):
        return self.tmux("capture-pane", "-p", "-S", "-").rstrip("\n").split("\n")

    def wait_for(self, condition, what):
        # Waits for the program, not for a time limit under test: the limit
        # only stops a hung run.
        deadline = time.monotonic() + 60
        while time.monotonic() < deadline:
            screen = self.screen()
            if condition(screen):
                return screen
            time.sleep(0.05)
        self.fail("timed out waiting for " + what + ":\n" + "\n".join(self.screen()))

    def exit_status(self):
        deadline = time.monotonic() + 60
        while not os.path.exists(self.status):
            if time.monotonic() > deadline:
                self.fail("Setup did not end:\n" + "\n".join(self.screen()))
            time.sleep(0.05)
        with open(self.status) as f:
            return int(f.read())

    def agreement_lines(self):
        """The agreement as written to a pipe, where it comes in one go at 80 columns."""
        result = subprocess.run([os.path.join(self.src, "Setup"), "--copy-files-to", self.destination + "-pipe",
                                 "--silent"], input=b"no\n", stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                env=self.env, cwd=self.src)
        text = result.stdout.decode()
        self.assertIn(QUESTION, text)
        return text[:text.index(QUESTION)].rstrip("\n").split("\n")

    def page_through(self):
        """Presses a key at every screenful prompt until the question shows; returns the number of pages."""
        pages = 0
        while True:
            screen = self.wait_for(lambda s: s[-1] == PROMPT or s[-1].startswith(QUESTION), "prompt")
            if screen[-1].startswith(QUESTION):
                return pages
            pages += 1
            before = self.history()
            # Any key goes on; it is not echoed.
            self.tmux("send-keys", "x" if pages == 1 else "Enter")
            self.wait_for(lambda s: self.history() != before, "next page")

    def test_paged_and_accepted(self):
        lines = self.agreement_lines()
        self.start(self.setup_command())
        first = self.wait_for(lambda s: s[-1] == PROMPT, "first prompt")
        self.assertEqual(first[:ROWS - 1], lines[:ROWS - 1])
        pages = self.page_through()
        self.assertEqual(pages, len(lines) // (ROWS - 1))

        # Every prompt was erased: the history is the agreement, then the question.
        history = self.history()
        question_row = max(i for i, line in enumerate(history) if line.startswith(QUESTION))
        self.assertEqual(history[:question_row], lines)
        self.assertNotIn(PROMPT, "\n".join(history))
        self.assertNotIn("x", history[ROWS - 2][len(lines[ROWS - 2]):])

        self.tmux("send-keys", "y", "Enter")
        self.wait_for(lambda s: sum(line.startswith(QUESTION) for line in s) == 2, "question again")
        self.tmux("send-keys", "YES", "Enter")
        self.assertEqual(self.exit_status(), 0)
        screen = self.screen()
        self.assertIn("License agreement accepted", screen)
        self.assertTrue(os.path.isfile(os.path.join(self.destination, "bin", "Setup")))
        # The key reader put the terminal back as it was.
        with open(os.path.join(self.tmp, "stty")) as f:
            settings = f.read().split()
        self.assertIn("icanon", settings)
        self.assertIn("echo", settings)

    def test_refused(self):
        self.start(self.setup_command())
        self.page_through()
        self.tmux("send-keys", "no", "Enter")
        self.assertEqual(self.exit_status(), 1)
        self.assertIn("error: License agreement not accepted", self.screen())
        self.assertFalse(os.path.exists(self.destination))

    def test_end_of_input_refuses(self):
        self.start(self.setup_command())
        self.page_through()
        self.tmux("send-keys", "C-d")
        self.assertEqual(self.exit_status(), 1)
        self.assertIn("error: License agreement not accepted", "\n".join(self.screen()))

    def test_no_paging_when_output_is_no_terminal(self):
        self.start(self.setup_command() + " | cat")
        self.wait_for(lambda s: s[-1].startswith(QUESTION), "question")
        self.assertNotIn(PROMPT, "\n".join(self.history()))
        self.tmux("send-keys", "yes", "Enter")
        self.assertEqual(self.exit_status(), 0)

    def test_no_paging_when_input_is_no_terminal(self):
        self.start("echo yes | " + self.setup_command())
        self.assertEqual(self.exit_status(), 0)
        history = "\n".join(self.history())
        self.assertNotIn(PROMPT, history)
        self.assertIn("License agreement accepted", history)


if __name__ == "__main__":
    if shutil.which("tmux") is None:
        print("tmux is missing")
        sys.exit(1)
    unittest.main(argv=[sys.argv[0], "-v"] + sys.argv[1:])
