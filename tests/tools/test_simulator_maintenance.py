"""The way out of the kiosk and back, played through on a simulated terminal."""

from simulated import OK, tell


def administrate(kiosk):
    """An administrator signs in, is seen, and signs out."""
    status, sentence = kiosk.console("sign-in")
    assert status == OK
    kiosk.wait_for_line(f"simulator: {sentence}")
    assert kiosk.console("sign-out")[0] == OK


def assert_kiosk_is_back(kiosk):
    assert kiosk.terminal()["atConsole"] == "kiosk"
    assert not kiosk.marker.exists()
    assert kiosk.send_as_kiosk("status")["kioskSession"] is True


def test_goes_out_by_an_unlock_and_comes_back_when_the_administrator_signs_out(kiosk):
    unlocked = kiosk.unlock()

    assert kiosk.send_as_kiosk("maintenance", unlocked) == {"ok": True}
    kiosk.wait_for_line("simulator: nobody is signed in at the console")
    assert kiosk.marker.read_bytes() == b""
    administrate(kiosk)

    kiosk.wait_for_line("maintenance over (the administrator signed out): kiosk sign-in restored")
    assert_kiosk_is_back(kiosk)


def test_goes_out_by_the_password(kiosk):
    kiosk.begin_maintenance()

    assert kiosk.terminal()["atConsole"] == "nobody"
    assert kiosk.marker.exists()


def test_stays_in_the_kiosk_with_a_wrong_password(kiosk):
    reply = kiosk.send_as_kiosk("maintenance", "password=sardine")

    assert reply == {"ok": False, "error": "wrong_password"}
    assert kiosk.terminal()["atConsole"] == "kiosk"
    assert not kiosk.marker.exists()


def test_comes_back_when_the_terminal_restarts(kiosk):
    kiosk.begin_maintenance()

    kiosk.restart_at_console()

    kiosk.wait_for_line("maintenance over (the device restarted): kiosk sign-in restored")
    assert_kiosk_is_back(kiosk)


def test_goes_on_with_the_administrator_after_a_restart_of_the_service(kiosk, keep):
    kiosk.begin_maintenance()
    assert kiosk.console("sign-in")[0] == OK

    again = keep(kiosk.start_again())

    again.wait_for_line("provisioned=1 maintenance=1")
    assert again.terminal()["atConsole"] == "person"
    assert again.console("sign-out")[0] == OK
    again.wait_for_line("maintenance over (the administrator signed out): kiosk sign-in restored")
    assert_kiosk_is_back(again)


def test_leaves_a_login_prompt_when_the_terminal_is_removed(kiosk):
    tell(kiosk.portal, f"/admin/terminals/{kiosk.id}/revoke", {})

    assert kiosk.send_as_kiosk("unlock", "password=swordfish")["error"] == "not_enrolled"

    assert kiosk.terminal()["account"] is None
    assert kiosk.terminal()["atConsole"] == "nobody"
    assert kiosk.console("sign-in")[0] == OK
    kiosk.wait_for_line("simulator: a person is signed in at the console")
    kiosk.enrol()
