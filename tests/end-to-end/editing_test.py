#!/usr/bin/env python3
"""The queue in the real client's window, while others work with the same queue."""
import signal
import unittest

import wire
from desktop import ClientTest

PAUSED, EDITED = 3, 4
MIB = 1 << 20


class QueueWindow(ClientTest):
    with_server = True

    def setUp(self):
        super().setUp()
        for name in ("one", "two"):
            (self.house.source / name).mkdir()
            (self.house.source / name / "letter").write_text(f"Dear {name}")
        self.watcher = self.house.connect()
        self.job = self.hold("Papers")
        self.open_tool()

    def open_tool(self):
        self.hand.trigger("jqvw")
        self.hand.see("lst_jobs")

    def hold(self, title):
        return self.house.ctl("backup", self.house.source / "one", "--to", self.house.target, "--title", title,
                              "--hold")["job_id"]

    def select(self):
        self.hand.row("lst_jobs", "pick", self.row("lst_jobs", "Papers"))

    def edit(self):
        self.select()
        self.hand.click("btn_jqedit")
        self.hand.see("lst_source")
        self.becomes(EDITED)

    def becomes(self, status):
        self.watcher.wait_for("KTjc", where=lambda m: m.get("job_id") == self.job and m.get("jobstatus") == status)

    def description(self):
        return self.watcher.ask(wire.Message("KTjg", job_id=self.job))

    def put_back(self, button="btn_ok"):
        self.hand.click(f"{button}@lst_source")
        self.hand.gone("lst_source")
        self.becomes(PAUSED)


class Editing(QueueWindow):
    def test_what_is_marked_anew_is_what_is_saved(self):
        elsewhere = self.house.root / "elsewhere"
        elsewhere.mkdir()
        self.edit()
        self.mark_source("one", state="0")
        self.mark_source("two")
        self.choose_target(elsewhere)
        self.put_back()
        self.house.ctl("continue", self.job)
        self.watcher.wait_for("KTJR", 60)
        self.assertEqual(self.house.backups(), [])
        [backup] = [path for path in elsewhere.iterdir() if path.name.startswith("2")]
        restored = self.house.unpack(backup)
        self.assertEqual([path.name for path in restored.iterdir()], ["two"])
        self.assertEqual((restored / "two/letter").read_text(), "Dear two")

    def test_cancel_leaves_it(self):
        before = self.description().flatten()
        self.edit()
        self.mark_source("two")
        self.choose_target(self.house.source)
        self.put_back("btn_cancel")
        self.assertEqual(self.description().flatten(), before)

    def test_no_leaves_it(self):
        before = self.description().flatten()
        self.select()
        for button in ("btn_jqdelete", "btn_jqabort"):
            self.hand.click(button)
            self.hand.see("alert")
            self.hand.click("btn1")
            self.hand.gone("alert")
            self.assertEqual(self.description().flatten(), before)
        self.hand.click("btn_jqdelete")
        self.hand.see("alert")
        self.hand.click("btn0")
        self.watcher.wait_for("KTJR")
        self.hand.until(lambda: self.hand.row("lst_jobs", "rows") == "0", "the row to go")

    def test_its_mark_goes_with_the_client(self):
        for how, status in ((lambda: self.hand.trigger("_QRQ@BackupWindow"), 0), (lambda: self.client.terminate(), 0),
                            (lambda: self.client.kill(), -signal.SIGKILL)):
            self.edit()
            how()
            self.assertEqual(self.client.wait(20), status)
            self.becomes(PAUSED)
            self.start_client()
            self.open_tool()

    def test_renaming_in_place(self):
        hand = self.hand
        hand.row("lst_jobs", "click", self.row("lst_jobs", "Papers"))
        hand.key("lst_jobs", "F2")
        hand.see("str_cell")
        hand.type("str_cell", "Letters")
        hand.key("str_cell", "Return")
        self.watcher.wait_for("KTjc", where=lambda m: m.text("title") == "Letters")
        self.row("lst_jobs", "Letters")
        self.assertEqual(self.description().get("start_info").text("title"), "Letters")
        # What another one edits is not renamed beneath it.
        self.watcher.send(wire.Message("KTje", job_id=self.job, edit=1))
        self.row("lst_jobs", "Edit")
        hand.row("lst_jobs", "click", "Letters")
        hand.key("lst_jobs", "F2")
        self.assertEqual(hand.visible("str_cell"), "0")

    def test_what_another_one_stores_meanwhile(self):
        self.edit()
        renamed = self.description().add("title", "Renamed by another")
        self.watcher.send(wire.Message("KTjs", job_id=self.job, job_data=renamed))
        self.row("lst_jobs", "Renamed by another")
        self.mark_source("two")
        self.put_back()
        self.assertEqual(self.description().get("start_info").text("title"), "Renamed by another")
        rules = self.description().get("selection").all("SELECTION")
        self.assertTrue(any(rule.endswith(b"/two/*") for rule in rules), rules)


class Stopped(QueueWindow):
    def test_a_stopped_client_is_cut_and_catches_up(self):
        self.edit()
        self.client.send_signal(signal.SIGSTOP)
        job = self.watcher.ask(wire.Message("KTjg", job_id=self.job))
        self.watcher.ask(wire.Message("KTJL"))
        for number in range(80):
            title = f"{number} ".ljust(MIB)
            job.fields.pop("title", None)
            self.watcher.send(wire.Message("KTjs", job_id=self.job, job_data=job.add("title", title)))
            self.watcher.wait_for("KTjc", where=lambda m, title=title: m.text("title") == title)
        self.becomes(PAUSED)  # cut, and its mark is gone
        job.fields.pop("title", None)
        self.watcher.send(wire.Message("KTjs", job_id=self.job, job_data=job.add("title", "Papers at last")))
        self.hold("New meanwhile")
        self.client.send_signal(signal.SIGCONT)
        self.row("lst_jobs", "New meanwhile")
        self.row("lst_jobs", "Papers at last")
        self.becomes(EDITED)  # its window is still open
        self.put_back("btn_cancel")


if __name__ == "__main__":
    unittest.main(verbosity=2)
