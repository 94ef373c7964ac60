"""The unit, under a real manager of a user's services."""

import unittest

from scratch import user_manager_is_possible, with_a_user_manager
from support import PROGRAM

# Starts an application through the service; it writes down its process in ~/application.
START_APPLICATION = """
    printf '#!/bin/sh\\necho $$ >~/application\\nexec sleep 1000\\n' >application.sh
    chmod +x application.sh
    mv application.sh application-program
    tesselctl startProcess "$HOME/application-program"
    until_true test -s application
"""
START = "sc start tesselcore; until_true answers;"


@unittest.skipUnless(user_manager_is_possible(), "needs root, systemd, and control groups")
class Unit(unittest.TestCase):
    def test_StartsTheService_AndStopsItWithoutAFailure(self):
        output = with_a_user_manager(START + "sc stop tesselcore; state; sc show -P Result tesselcore")
        self.assertEqual(output, "inactive\nsuccess\n")

    def test_StartsTheServiceAnewWhenItHasComeToHarm(self):
        output = with_a_user_manager(
            START
            + """
            for signal in KILL SEGV TERM; do
                before=$(main)
                kill -$signal $before
                another() { [ "$(main)" != 0 ] && [ "$(main)" != $before ]; }
                until_true another
                until_true answers
                echo "up after $signal"
            done
            """
        )
        self.assertEqual(output, "up after KILL\nup after SEGV\nup after TERM\n")

    def test_LeavesWhatTheServiceHasStartedWhenItIsStartedAnew(self):
        output = with_a_user_manager(
            START
            + START_APPLICATION
            + """
            sc restart tesselcore
            until_true answers
            kill -0 $(cat application) && echo alive
            sc stop tesselcore
            kill -0 $(cat application) && echo alive
            """
        )
        self.assertEqual(output, "alive\nalive\n")

    def test_AfterAnUpdate_HasTheNewProgramAndNoOther(self):
        output = with_a_user_manager(
            START
            + START_APPLICATION
            + f"""
            program='/{PROGRAM}'
            mkdir update
            bzip2 -c "$program" >update/TesselCoreUpdate.zip
            before=$(main)
            tesselctl update "$HOME/update" || true
            until_true test -e "$program.bck"
            gone() {{ ! kill -0 $before 2>/dev/null; }}
            until_true gone
            another() {{ [ "$(main)" != 0 ] && [ "$(main)" != $before ] && answers; }}
            until_true another
            [ "$(readlink /proc/$(main)/exe)" = "$program" ] && echo new
            grep -l '[T]esselCore.app' /proc/[0-9]*/cmdline 2>/dev/null | wc -l
            kill -0 $(cat application) && echo alive
            state
            """
        )
        self.assertEqual(output, "new\n1\nalive\nactive\n")

    def test_AfterItsRemoval_IsNotStartedAgain(self):
        output = with_a_user_manager(
            START
            + f"""
            rmdir '/Applications/Tessel Dock/Tessel Dock.app'
            sc restart tesselcore || true
            gone() {{ [ ! -e '/{PROGRAM}' ]; }}
            until_true gone
            inactive() {{ [ "$(state)" = inactive ]; }}
            until_true inactive
            sc show -P Result tesselcore
            """
        )
        self.assertEqual(output, "success\n")

    def test_AfterADismissedDialog_StaysDownAndAsksNoMore(self):
        output = with_a_user_manager(
            """
            mkdir bin
            printf '#!/bin/sh\\necho "$@" >>~/asked\\nexit 126\\n' >bin/pkexec
            chmod +x bin/pkexec
            sc set-environment "PATH=$HOME/bin:$PATH"
            rmdir '/Applications/Tessel Dock/Tessel Dock.app'
            sc start tesselcore
            until_true test -s asked
            inactive() { [ "$(state)" = inactive ]; }
            until_true inactive
            sc show -P Result -P NRestarts tesselcore
            wc -l <asked
            """,
            owner="root",
        )
        self.assertEqual(output, "success\n0\n1\n")

    def test_KeepsThePassKeyOutOfCoreDumps(self):
        output = with_a_user_manager(START + "sed -n 's/^Max core file size  *\\([^ ]*\\) .*/\\1/p' /proc/$(main)/limits")
        self.assertEqual(output, "0\n")

    def test_OfTheDriver_IsNotEnabledByItself_AndRunsItSoThatItCanBeTapped(self):
        output = with_a_user_manager(
            """
            driver() { sc show -P "$1" styluspaddriver; }
            sc is-enabled styluspaddriver || true
            sc start styluspaddriver
            tapped() { grep -q "@CGEventTap[.]$(driver MainPID)$" /proc/net/unix; }
            until_true tapped
            driver ActiveState
            sc stop styluspaddriver
            driver ActiveState
            driver Result
            """
        )
        self.assertEqual(output, "disabled\nactive\ninactive\nsuccess\n")
