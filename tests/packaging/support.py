"""What the tests of the installation share: where things are, and programs run to their end."""

import os
import pathlib
import shutil
import subprocess

SOURCE = pathlib.Path(os.environ["SOURCE_FOLDER"])
BUILD = pathlib.Path(os.environ["BUILD_FOLDER"])
STAGING = pathlib.Path(os.environ["STAGING_FOLDER"])
VERSION = os.environ["VERSION"]

# A whole installation with the prefix /usr, and the package that has been made.
ROOT = STAGING / "root"
PACKAGES = STAGING / "packages"

BUNDLE = "Library/Application Support/Velto/TesselCore.app"
PROGRAM = BUNDLE + "/Contents/MacOS/TesselCore"
UNIT = "usr/lib/systemd/user/tesselcore.service"
DRIVER_UNIT = "usr/lib/systemd/user/styluspaddriver.service"


def package():
    (found,) = PACKAGES.glob("*.deb")
    return found


def run(*command, **options):
    """Standard output of COMMAND; a failure shows everything that it printed."""
    done = subprocess.run(
        [str(word) for word in command],
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
        text=True,
        check=False,
        **options,
    )
    if done.returncode != 0:
        raise AssertionError(f"{command} ended with {done.returncode}:\n{done.stdout}{done.stderr}")
    return done.stdout


def install(root):
    environment = {**os.environ, "DESTDIR": str(root)}
    return run(os.environ["CMAKE"], "--install", BUILD, "--prefix", "/usr", env=environment)


def tree(root):
    """Everything below ROOT, folders left out: paths, with the target where it is a link."""
    found = {}
    for folder, folders, files in os.walk(root):
        for name in files + [name for name in folders if os.path.islink(os.path.join(folder, name))]:
            path = os.path.join(folder, name)
            found[os.path.relpath(path, root)] = os.readlink(path) if os.path.islink(path) else None
    return found


def has(*programs):
    return all(shutil.which(program) for program in programs)

