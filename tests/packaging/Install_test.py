"""cmake --install: what lies where, and that it works from there."""

import os
import plistlib
import stat
import subprocess
import tempfile
import unittest

from support import BUILD, BUNDLE, DRIVER_UNIT, PROGRAM, ROOT, SOURCE, UNIT, VERSION, has, install, run, tree

DRIVER = "Library/Application Support/Tablet/StylusPadDriver.app"
DRIVER_PROGRAM = DRIVER + "/Contents/MacOS/StylusPadDriver"
LINKS = {
    "usr/bin/StylusPadDriver": "/" + DRIVER_PROGRAM,
    "usr/bin/TesselCore": "/" + PROGRAM,
    "usr/bin/ditto": "/usr/libexec/tesselcore/ditto",
    "usr/sbin/installer": "/usr/libexec/tesselcore/installer",
}
PROGRAMS = {
    PROGRAM,
    BUNDLE + "/Contents/Resources/end-successor",
    DRIVER_PROGRAM,
    "usr/bin/tesselctl",
    "usr/libexec/tesselcore/ditto",
    "usr/libexec/tesselcore/installer",
}
DOCUMENTS = {"usr/share/doc/tesselcore/" + name for name in ("README.md", "NEWS.md")} | {
    "usr/share/doc/tesselcore/docs/" + page.name for page in (SOURCE / "docs").glob("*.md")
}
DATA = DOCUMENTS | {
    BUNDLE + "/Contents/Info.plist",
    DRIVER + "/Contents/Info.plist",
    UNIT,
    DRIVER_UNIT,
    "usr/libexec/tesselcore/unpacking.sh",
    "usr/share/bash-completion/completions/tesselctl",
    "usr/share/man/man1/StylusPadDriver.1",
    "usr/share/man/man1/TesselCore.1",
    "usr/share/man/man1/tesselctl.1",
}


def plist(path):
    """A property list as plistutil understands it."""
    with tempfile.NamedTemporaryFile() as converted:
        run("plistutil", "-i", path, "-f", "bin", "-o", converted.name)
        return plistlib.load(converted, fmt=plistlib.FMT_BINARY)


class Machine:
    """A sandbox in which the staged files lie where they belong; programs run there as the user 1000."""

    def __init__(self):
        self.home = tempfile.TemporaryDirectory()
        os.chmod(self.home.name, 0o777)
        staged = []
        for top in ("Library", "Users/Shared"):
            staged += ["--ro-bind", ROOT / top, "/" + top]
        for top in ("bin", "sbin", "lib", "lib64", "lib32", "libx32"):
            if os.path.islink("/" + top):
                staged += ["--symlink", os.readlink("/" + top), "/" + top]
        self.command = [
            str(word)
            for word in (
                ["bwrap", "--die-with-parent", "--unshare-all", "--uid", "1000", "--gid", "1000"]
                + ["--ro-bind", "/usr", "/usr", "--proc", "/proc", "--dev", "/dev", "--tmpfs", "/tmp"]
                + staged
                + ["--ro-bind", ROOT / "usr/bin", "/staged", "--bind", self.home.name, "/home"]
                + ["--clearenv", "--setenv", "HOME", "/home", "--setenv", "PATH", "/staged:/usr/bin:/bin"]
            )
        ]

    def __enter__(self):
        return self

    def __exit__(self, *_):
        run("find", self.home.name, "-mindepth", "1", "-delete")
        self.home.cleanup()

    def start(self, *words, **options):
        return subprocess.Popen(self.command + list(words), text=True, **options)


class Install(unittest.TestCase):
    def test_PutsEverythingInItsPlace(self):
        expected = dict.fromkeys(PROGRAMS | DATA) | LINKS
        self.assertEqual(tree(ROOT), expected)

    def test_LetsEverybodyReadAndOnlyProgramsRun(self):
        for path in PROGRAMS | DATA:
            mode = stat.S_IMODE(os.stat(ROOT / path).st_mode)
            self.assertEqual(oct(mode), oct(0o755 if path in PROGRAMS else 0o644), path)

    def test_MakesTheSharedFolderOfAllUsers(self):
        self.assertEqual(oct(stat.S_IMODE(os.stat(ROOT / "Users/Shared").st_mode)), oct(0o1777))

    def test_ASecondTime_ChangesNothing(self):
        with tempfile.TemporaryDirectory() as root:
            install(root)
            once = tree(root)
            os.chmod(os.path.join(root, "Users/Shared"), 0o755)
            install(root)
            self.assertEqual(tree(root), once)
            mode = stat.S_IMODE(os.stat(os.path.join(root, "Users/Shared")).st_mode)
            self.assertEqual(oct(mode), oct(0o755), "a folder that is there keeps its mode")

    def test_LeavesToolsOfTheSameNameAlone(self):
        with tempfile.TemporaryDirectory() as root:
            for path in ("usr/bin/ditto", "usr/sbin/installer"):
                os.makedirs(os.path.join(root, os.path.dirname(path)))
                with open(os.path.join(root, path), "w", encoding="utf-8") as tool:
                    tool.write("the system's own")
            output = install(root)
            for path in ("usr/bin/ditto", "usr/sbin/installer"):
                with open(os.path.join(root, path), encoding="utf-8") as tool:
                    self.assertEqual(tool.read(), "the system's own")
                self.assertIn("Left alone: " + os.path.basename(path), output)

    @unittest.skipUnless(has("bwrap"), "bubblewrap is missing")
    def test_TheInstalledService_RunsAndAnswersTheInstalledClient(self):
        with Machine() as machine:
            script = f'"/{PROGRAM}" & service=$!; ' + (
                "tries=200; until tesselctl platform; do tries=$((tries - 1)); [ $tries -gt 0 ] || exit 9; sleep 0.1; done; "
                "tesselctl getCoreVersion; kill -TERM $service; wait $service; echo ended $?"
            )
            asked = machine.start("/bin/sh", "-c", script, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
            output, errors = asked.communicate(timeout=60)
            self.assertEqual(asked.returncode, 0, output + errors)
            self.assertIn("MACOSX\n", output, errors)
            self.assertIn(f"CoreVersion={VERSION}\n", output)
            self.assertTrue(output.endswith("ended 1\n"), output)

    @unittest.skipUnless(has("bwrap"), "bubblewrap is missing")
    def test_TheClientsVersion_IsTheProjects(self):
        with Machine() as machine:
            asked = machine.start("tesselctl", "--version", stdout=subprocess.PIPE)
            self.assertIn(VERSION, asked.communicate(timeout=60)[0])

    @unittest.skipUnless(has("bwrap"), "bubblewrap is missing")
    def test_TheInstalledDriver_IsFoundByItsName_AndGoesByIt(self):
        with Machine() as machine:
            script = (
                "StylusPadDriver --list; StylusPadDriver --screen 1x1 2>/dev/null & "
                "tries=200; until grep -x StylusPadDriver /proc/$!/comm; do "
                "tries=$((tries - 1)); [ $tries -gt 0 ] || exit 9; sleep 0.05; done; kill $!"
            )
            asked = machine.start("/bin/sh", "-c", script, stdout=subprocess.PIPE)
            self.assertEqual(asked.communicate(timeout=60)[0], "There is no tablet.\nStylusPadDriver\n")

    @unittest.skipUnless(has("plistutil"), "plistutil is missing")
    def test_TheBundlesPropertyList_NamesItsProgramAndVersion(self):
        information = plist(ROOT / BUNDLE / "Contents/Info.plist")
        self.assertEqual(information["CFBundleExecutable"], os.path.basename(PROGRAM))
        self.assertEqual(information["CFBundleShortVersionString"], VERSION)
        self.assertEqual(information["CFBundleVersion"], VERSION)
        self.assertEqual(information["CFBundlePackageType"], "APPL")
        self.assertIs(information["LSBackgroundOnly"], True)

    @unittest.skipUnless(has("plistutil"), "plistutil is missing")
    def test_TheLaunchAgent_StartsTheBundlesProgramUnderTheBundlesIdentifier(self):
        identifier = plist(ROOT / BUNDLE / "Contents/Info.plist")["CFBundleIdentifier"]
        agent = plist(BUILD / "packaging" / (identifier + ".plist"))
        self.assertEqual(agent["Label"], identifier)
        self.assertEqual(agent["ProgramArguments"], ["/" + PROGRAM])
        self.assertIs(agent["RunAtLoad"], True)
        self.assertEqual(agent["KeepAlive"], {"SuccessfulExit": False})
        self.assertIs(agent["AbandonProcessGroup"], True)

    @unittest.skipUnless(has("shellcheck"), "shellcheck is missing")
    def test_TheShellScripts_PassShellcheck(self):
        scripts = [SOURCE / "packaging/linux/end-successor", SOURCE / ".ci/run"]
        scripts += [BUILD / "packaging/deb" / name for name in ("postinst", "prerm")]
        for path in sorted((SOURCE / "scripts").iterdir()):
            if path.is_file() and path.suffix in ("", ".sh"):
                with open(path, encoding="utf-8") as script:
                    first = script.readline()
                if first.startswith("#!/bin/") or path.suffix == ".sh":
                    scripts.append(path)
        self.assertGreater(len(scripts), 6)
        run("shellcheck", "-x", "-P", SOURCE, *scripts)

    @unittest.skipUnless(has("man"), "man is missing")
    def test_TheManualPages_AreWellFormed(self):
        for page in ("TesselCore.1", "tesselctl.1"):
            environment = {**os.environ, "MANROFFSEQ": "", "MANWIDTH": "80", "LC_ALL": "C.UTF-8"}
            done = subprocess.run(
                ["man", "--warnings", "-E", "UTF-8", "-l", "-Tutf8", "-Z", ROOT / "usr/share/man/man1" / page],
                stdout=subprocess.DEVNULL,
                stderr=subprocess.PIPE,
                text=True,
                env=environment,
                check=False,
            )
            self.assertEqual((done.returncode, done.stderr), (0, ""), page)
