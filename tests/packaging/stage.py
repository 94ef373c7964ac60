"""Installs and packages what has been built, for the tests beside this file."""

import os
import shutil
import unittest

from support import BUILD, PACKAGES, ROOT, STAGING, install, run


class Stage(unittest.TestCase):
    def test_EverythingIsInstalledAndPackaged(self):
        shutil.rmtree(STAGING, ignore_errors=True)
        ROOT.mkdir(parents=True)
        install(ROOT)
        run(os.environ["CPACK"], "--config", BUILD / "CPackConfig.cmake", "-G", "DEB", "-B", PACKAGES)
        shutil.rmtree(PACKAGES / "_CPack_Packages")
