"""The story of script/demo: the life of a terminal as a kiosk, told while it happens.

Every step is checked by facts: the portal's own data, the service's replies, the files and the log of the terminal.
Exits with 0 when all of them happened, with 1 when one did not, and with 128 and the signal's number when a signal
came before the end. A terminal that somebody revokes at the portal's page before its time skips the chapters that
need it: that too is 1.
"""

import argparse
import os
import sys

sys.dont_write_bytecode = True  # The source tree stays as it is.

import enrolment  # noqa: E402
import kiosk_life  # noqa: E402
from actors import KIOSK_UID_FOR_ROOT, PERSON_UID, Peer, Portal, Terminal  # noqa: E402
from scene import Lost, Scene  # noqa: E402
from stage import Failed, Stage, Stopped  # noqa: E402
from teller import Teller  # noqa: E402

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
LOOK_EVERY_SECONDS = 1

# The title of a chapter is the first line of its description. The reader may take a breath before each of the later
# ones; in the first ones the terminal does not wait.
TO_THE_KIOSK = (
    enrolment.ask_for_a_code,
    enrolment.get_it_claimed,
    enrolment.receive_the_token,
    enrolment.look_at_the_first_check_in,
    enrolment.look_at_the_account,
    enrolment.restart_into_the_kiosk,
)
AS_A_KIOSK = (
    kiosk_life.look_at_the_branding,
    kiosk_life.use_the_kiosk_session,
    kiosk_life.unlock_the_settings,
    kiosk_life.change_the_settings,
    kiosk_life.enter_maintenance,
    kiosk_life.leave_maintenance,
    kiosk_life.install_updates,
    kiosk_life.restart_with_changes,
    kiosk_life.sleep_on_schedule,
)
AND_BACK = (
    kiosk_life.be_revoked,
    enrolment.pair_again,
)


class Story:
    def __init__(self, stage, teller, build_dir, attended):
        self.build_dir = build_dir
        self.teller = teller
        self.scene = Scene(stage, teller, attended)

    def tell(self):
        """True when no chapter was skipped. Raises Failed."""
        self.open_the_stage()
        whole = self.tell_of_the_kiosk()
        self.scene.let_go()
        for chapter in AND_BACK:
            self.scene.wait_for_reader()
            self.tell_chapter(chapter)
        self.teller.end(whole)
        return whole

    def open_the_stage(self):
        """A portal and a terminal."""
        scene = self.scene
        scene.begin_chapter(self.open_the_stage)
        scene.portal = Portal(scene.stage, os.path.join(ROOT, "tools", "portal", "portal"))
        self.teller.say(f"The portal is at {self.teller.strong(scene.portal.url)}. Now a terminal is switched on.")
        scene.terminal = Terminal(scene.stage, self.teller, self.build_dir, scene.portal.url)
        scene.person = Peer("person", scene.stage, scene.terminal, PERSON_UID)
        scene.kiosk = Peer("kiosk", scene.stage, scene.terminal, KIOSK_UID_FOR_ROOT)

    def tell_of_the_kiosk(self):
        """False when the terminal was revoked before its time: the rest goes without saying."""
        try:
            for chapter in TO_THE_KIOSK:
                self.tell_chapter(chapter)
            for chapter in AS_A_KIOSK:
                self.scene.wait_for_reader()
                self.tell_chapter(chapter)
        except Lost as loss:
            if not loss.removed:
                raise
            self.teller.interruption(f"{loss} This chapter cannot go on, and those that need the terminal are skipped.")
            return False
        return True

    def tell_chapter(self, chapter):
        """Raises Failed, as Lost when that is why."""
        self.scene.begin_chapter(chapter)
        self.scene.look_for_loss()
        try:
            chapter(self.scene)
        except Lost:
            raise
        except Failed:
            self.scene.look_for_loss()
            raise

    def go_on(self):
        """Until a signal comes."""
        scene = self.scene
        scene.change_at_portal({"exitPassword": kiosk_life.EXIT_PASSWORD})
        self.teller.say("It goes on until you press Ctrl-C. Change what you like at")
        self.teller.say(f"  {self.teller.strong(scene.portal.url)}")
        self.teller.say("and talk to the terminal from another window:")
        self.teller.say("  " + scene.kiosk.shown_command("status"))
        self.teller.say("  " + scene.kiosk.shown_command("send", "session.report", "signedIn:=false"))
        self.teller.say("  " + scene.kiosk.shown_command("send", "unlock", "password=-"))
        self.teller.say(f"The exit password is {kiosk_life.EXIT_PASSWORD}.")
        while True:
            scene.stage.pause(LOOK_EVERY_SECONDS)


def main():
    options = read_options()
    attended = sys.stdin.isatty() and sys.stdout.isatty() and not options.unattended
    teller = Teller()
    status = None
    try:
        with Stage() as stage:
            story = Story(stage, teller, os.path.abspath(options.build_dir), attended)
            status = 0 if story.tell() else 1
            if attended:
                story.go_on()
    except Lost as loss:
        teller.failure(f"{loss} This chapter cannot go on.")
        return 1
    except Failed as problem:
        teller.failure(str(problem))
        return 1
    except Stopped as stopped:
        return 128 + stopped.number if status is None else status
    return status


def read_options():
    parser = argparse.ArgumentParser(description="Tells the life of a terminal as a kiosk. Called by script/demo.")
    parser.add_argument("--build-dir", required=True, help="where the simulator and tarnvale-kioskctl are")
    parser.add_argument("--unattended", action="store_true", help="to the end of the story and out")
    return parser.parse_args()


if __name__ == "__main__":
    sys.exit(main())
