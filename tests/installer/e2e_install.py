"""The end-to-end fixtures (tests/e2e/e2e.py) under the name the adversarial
suite imports them by: a demo medium made once for the importing module, the
private namespace, and a case with the system folders overlaid."""

import os
import shutil
import sys
import tempfile

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "e2e"))
import e2e  # noqa: E402
from e2e import NOBODY, PRODUCT, enter_private_namespace, files_below, read  # noqa: E402,F401

MEDIUM = None


def setUpModule():
    global MEDIUM
    e2e.use_fixtures(tempfile.mkdtemp(prefix="setup-medium-"))
    e2e.prepare()
    MEDIUM = e2e.MEDIUM


def tearDownModule():
    shutil.rmtree(e2e.FIXTURES, ignore_errors=True)


class PrivateSystemCase(e2e.Case):
    def assertProductInstalled(self, destination):
        self.assertInstalled(destination, exact=False)
