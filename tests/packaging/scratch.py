"""A scratch system: this very one with an empty layer over it, which takes all that is changed and goes with the test."""

import functools
import os
import pathlib
import tempfile

from support import has, package, run

# Mounts are of a name space of their own, so that nothing of it stays. In a script `inside` runs a command on the scratch
# system, and `changed` lists the files that are new or changed there, without what dpkg keeps for itself.
PRELUDE = """
    set -e
    mount -t tmpfs tmpfs "$1"
    cd "$1"
    mkdir upper work system
    mount -t overlay overlay -o lowerdir=/,upperdir=upper,workdir=work system
    mount -t proc proc system/proc
    mount -t tmpfs -o mode=1777 tmpfs system/tmp
    cp "$2" system/tmp/package.deb
    changed() {
        (cd upper && find . ! -type d ! -path './var/lib/dpkg/*' ! -path './var/log/*' ! -path './var/cache/*' \\
            ! -path ./dev/null -printf '%P -> %l\\n')
    }
    inside() { chroot system "$@"; }
"""

# The scratch system as the whole one, with a user whose services are managed by systemd. As that user runs the rest of a
# script, in which `sc` is systemctl, `main` tells the service's process and `until_true` waits for a command's success.
USER = "tesselcore-tester"
MANAGER = f"""
    uid=61234
    echo '{USER}:x:61234:61234::/home/{USER}:/bin/sh' >>system/etc/passwd
    echo 'admin:x:80:{USER}' >>system/etc/group
    inside dpkg --force-depends -i /tmp/package.deb >/dev/null 2>&1
    [ "$4" = root ] || chown -R $uid:80 'system/Library/Application Support/Velto'
    mount -t tmpfs tmpfs system/run
    mkdir -p system/home/{USER} system/run/systemd/system system/run/user/$uid
    chmod 700 system/run/user/$uid
    mkdir -p 'system/Applications/Tessel Dock/Tessel Dock.app'
    chown $uid:$uid system/home/{USER} system/run/user/$uid 'system/Applications/Tessel Dock'
    mount --rbind /dev system/dev
    touch console
    chown $uid console
    mount --bind console system/dev/console
    mount -t sysfs sysfs system/sys
    mount -t tmpfs tmpfs system/sys/fs/cgroup
    if [ "$3" = hybrid ]; then
        mkdir system/sys/fs/cgroup/systemd system/sys/fs/cgroup/unified
        mount -t cgroup -o none,name=systemd cgroup system/sys/fs/cgroup/systemd
        mount -t cgroup2 cgroup2 system/sys/fs/cgroup/unified
        chown -R $uid system/sys/fs/cgroup/systemd system/sys/fs/cgroup/unified
    else
        mount -t cgroup2 cgroup2 system/sys/fs/cgroup
        chown -R $uid system/sys/fs/cgroup
    fi
    ip link set lo up
    # As on a machine that keeps core dumps.
    ulimit -c unlimited
    cat >system/tmp/script
    mkdir system/tmp/old
    cd system
    pivot_root . tmp/old
    umount -l /tmp/old
    exec env -i PATH=/usr/bin:/bin HOME=/home/{USER} XDG_RUNTIME_DIR=/run/user/$uid \\
        setpriv --reuid $uid --regid $uid --init-groups sh -eu /tmp/script
"""
FIRST_OF_SCRIPT = """
    cd
    /lib/systemd/systemd --user >/dev/null 2>&1 &
    sc() { systemctl --user --no-pager "$@"; }
    main() { sc show -P MainPID tesselcore; }
    state() { sc show -P ActiveState tesselcore; }
    until_true() {
        tries=300
        until "$@"; do
            tries=$((tries - 1))
            [ $tries -gt 0 ] || { echo "in vain: $*" >&2; sc status tesselcore >&2; exit 9; }
            sleep 0.1
        done
    }
    manages() { sc list-units >/dev/null 2>&1; }
    answers() { tesselctl platform >/dev/null 2>&1; }
    until_true manages
"""


def on_a_scratch_system(script):
    with tempfile.TemporaryDirectory() as folder:
        return run("unshare", "--mount", "sh", "-c", PRELUDE + script, "sh", folder, package())


@functools.lru_cache
def scratch_is_possible():
    if os.geteuid() != 0 or not has("unshare", "dpkg", "chroot"):
        return False
    try:
        on_a_scratch_system("inside true")
    except AssertionError:
        return False
    return True


def control_groups():
    """Where the control groups are that systemd works with: one folder, or two where there is the old kind beside it."""
    with open("/proc/mounts", encoding="utf-8") as mounts:
        fields = [line.split() for line in mounts]
    new = [pathlib.Path(place) for _, place, kind, *_ in fields if kind == "cgroup2"]
    old = [pathlib.Path(place) for _, place, kind, options, *_ in fields if kind == "cgroup" and "name=systemd" in options]
    return old + new


def with_a_user_manager(script, owner="user"):
    """Runs SCRIPT as a user of a scratch system with a manager of services; its standard output.

    The service's bundle belongs to the user and the group admin, or to OWNER "root".
    """
    groups = [place / f"tesselcore-test-{os.getpid()}" for place in control_groups()]
    try:
        for group in groups:
            group.mkdir()
        enter = "".join(f"echo $$ >'{group}/cgroup.procs'\n" for group in groups)
        with tempfile.TemporaryDirectory() as folder:
            return run(
                "sh",
                "-ec",
                enter + 'exec unshare --mount --pid --net --cgroup --fork --kill-child sh -c "$@"',
                "sh",
                PRELUDE + MANAGER,
                "sh",
                folder,
                package(),
                "hybrid" if len(groups) == 2 else "unified",
                owner,
                input=FIRST_OF_SCRIPT + script,
            )
    finally:
        for group in groups:
            for folder, _, _ in os.walk(group, topdown=False):
                os.rmdir(folder)


@functools.lru_cache
def user_manager_is_possible():
    if not scratch_is_possible() or not os.path.exists("/lib/systemd/systemd") or not has("setpriv", "ip", "systemctl"):
        return False
    try:
        with_a_user_manager("manages")
    except (AssertionError, OSError):
        return False
    return True
