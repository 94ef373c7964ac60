"""The Debian package: what it holds and asks for, and that it leaves nothing behind."""

import re
import subprocess
import unittest

from scratch import on_a_scratch_system, scratch_is_possible
from support import PROGRAM, ROOT, SOURCE, VERSION, has, package, run, tree

# Found by dpkg-deb as "permissions owner/group size date time path [-> target]".
LINE = re.compile(r"(\S+) (\S+) +\d+ \S+ \S+ \./(.*)")


def field(name):
    return run("dpkg-deb", "-f", package(), name).strip()


def contents():
    found = {}
    for line in run("dpkg-deb", "-c", package()).splitlines():
        permissions, owner, path = LINE.fullmatch(line).groups()
        path, _, target = path.partition(" -> ")
        found[path] = (permissions, owner, target or None)
    return found


class Package(unittest.TestCase):
    def test_HoldsWhatIsInstalledButForTheLinksToTools(self):
        expected = tree(ROOT)
        del expected["usr/bin/ditto"], expected["usr/sbin/installer"]
        files = {path: target for path, (permissions, _, target) in contents().items() if permissions[0] != "d"}
        self.assertEqual(files, expected)

    def test_BelongsToRootAndCanBeWrittenByNobodyElse(self):
        for path, (permissions, owner, _) in contents().items():
            self.assertEqual(owner, "root/root", path)
            if path == "Users/Shared/":
                self.assertEqual(permissions, "drwxrwxrwt")
            elif permissions[0] != "l":
                self.assertEqual(permissions[5] + permissions[8], "--", path)

    def test_IsNamedForItsVersion(self):
        self.assertEqual(field("Package"), "tesselcore")
        self.assertEqual(field("Version"), VERSION)
        self.assertIn(VERSION, package().name)

    def test_DependsOnTheLibrariesThatItsProgramsAreLinkedWith(self):
        depends = re.split(r"[,|]\s*", field("Depends"))
        names = {entry.split()[0] for entry in depends}
        self.assertLessEqual({"libc6", "libuuid1", "libedit2", "libevdev2", "libudev1"}, names)

    def test_NamesThePackagesOfLibrariesThatAreLoadedWhenTheyAreNeeded(self):
        asked = field("Depends") + ", " + field("Recommends")
        names = {entry.split()[0] for entry in re.split(r"[,|]\s*", asked) if entry}
        libraries = set()
        for path in (SOURCE / "frameworks").rglob("*.cpp"):
            libraries |= set(re.findall(r'"(lib[a-z0-9.+-]+\.so\.\d+)"', path.read_text(encoding="utf-8")))
        self.assertGreater(len(libraries), 2)
        for library in libraries:
            known = subprocess.run(
                ["dpkg", "-S", "*/" + library], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True, check=False
            )
            owners = {line.split(":")[0] for line in known.stdout.splitlines()}
            if owners:
                self.assertTrue(owners & names, f"{library} is in {owners}, which the package does not ask for")

    @unittest.skipUnless(scratch_is_possible(), "needs root, and a file system over another")
    def test_InstalledAndRemoved_LeavesNothing(self):
        output = on_a_scratch_system(
            f"""
            inside dpkg --force-depends -i /tmp/package.deb >/dev/null 2>&1
            changed
            inside test -x '/{PROGRAM}'
            inside sh -c 'for name in ditto installer tesselctl TesselCore; do command -v $name; done'
            # As after an update.
            touch 'system/{PROGRAM}.bck'
            inside dpkg --purge tesselcore >/dev/null 2>&1
            echo == removed ==
            changed
            (cd upper && find Library Users usr/libexec/tesselcore usr/share/doc/tesselcore 2>/dev/null) || true
            """
        )
        installed, removed = output.split("== removed ==\n")
        self.assertIn("usr/bin/ditto -> /etc/alternatives/ditto\n", installed)
        self.assertIn("usr/sbin/installer -> /etc/alternatives/installer\n", installed)
        self.assertTrue(installed.endswith("/usr/bin/ditto\n/usr/sbin/installer\n/usr/bin/tesselctl\n/usr/bin/TesselCore\n"))
        self.assertEqual(removed, "")

    @unittest.skipUnless(scratch_is_possible(), "needs root, and a file system over another")
    def test_LeavesToolsOfTheSameNameAlone(self):
        output = on_a_scratch_system(
            """
            echo "the system's own" | tee system/usr/local/bin/ditto >system/usr/sbin/installer
            chmod 755 system/usr/local/bin/ditto system/usr/sbin/installer
            inside dpkg --force-depends -i /tmp/package.deb >/dev/null 2>&1
            inside sh -c 'command -v ditto; command -v installer'
            inside sh -c 'cat /usr/local/bin/ditto /usr/sbin/installer'
            inside dpkg --purge tesselcore >/dev/null 2>&1
            inside sh -c 'cat /usr/local/bin/ditto /usr/sbin/installer'
            """
        )
        own = "the system's own\n" * 2
        self.assertEqual(output, "/usr/local/bin/ditto\n/usr/sbin/installer\n" + own + own)

    @unittest.skipUnless(scratch_is_possible(), "needs root, and a file system over another")
    def test_IsRemovedAlsoWhenTheServiceHasRemovedItself(self):
        output = on_a_scratch_system(
            """
            inside dpkg --force-depends -i /tmp/package.deb >/dev/null 2>&1
            rm -rf 'system/Library/Application Support/Velto/'
            inside dpkg --purge tesselcore >/dev/null 2>&1
            changed
            """
        )
        self.assertEqual(output, "")

    @unittest.skipUnless(scratch_is_possible(), "needs root, and a file system over another")
    def test_ItsRemoval_StopsTheServicesOfTheUsersWhoAreThere(self):
        output = on_a_scratch_system(
            r"""
            export PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin
            inside dpkg --force-depends -i /tmp/package.deb >/dev/null 2>&1
            mkdir -p system/run/systemd/system
            cat >system/usr/local/bin/systemctl <<'END'
#!/bin/sh
case $* in
    list-units*) printf 'user@%s.service loaded active running Somebody\n' 1000 61234 ;;
    *--machine=1000@*) echo "$*" >>/tmp/asked && exit 1 ;;
    *--machine=*) echo "$*" >>/tmp/asked ;;
esac
END
            chmod 755 system/usr/local/bin/systemctl
            inside dpkg --purge tesselcore >/dev/null 2>&1
            cat system/tmp/asked
            inside dpkg -s tesselcore >/dev/null 2>&1 || echo removed
            """
        )
        units = "tesselcore.service styluspaddriver.service"
        asked = "".join(f"--user --machine={user}@.host stop {units}\n" for user in (1000, 61234))
        self.assertEqual(output, asked + "removed\n")

    @unittest.skipUnless(scratch_is_possible() and has("systemd-analyze"), "needs root, and systemd")
    def test_ItsUnits_AreUnderstoodBySystemd(self):
        output = on_a_scratch_system(
            """
            inside dpkg --force-depends -i /tmp/package.deb >/dev/null 2>&1
            inside env XDG_RUNTIME_DIR=/tmp systemd-analyze --user --man=no verify tesselcore.service styluspaddriver.service 2>&1
            """
        )
        self.assertEqual(output, "")
