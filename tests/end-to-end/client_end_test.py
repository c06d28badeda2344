#!/usr/bin/env python3
"""The real client ends with everything open that can be: it ends well, leaves no mark on a job, and keeps its
settings; what runs in the server goes on."""
import os
import unittest

from desktop import ClientTest

PAUSED, EDITED = 3, 4


class ClientEnd(ClientTest):
    with_server = True

    def open_everything(self):
        hand = self.hand
        self.peer = self.house.connect()
        self.house.ctl("backup", self.house.source, "--to", self.house.target, "--title", "Earlier")
        self.held = self.house.ctl("backup", self.house.source, "--to", self.house.target, "--title", "Held",
                                   "--hold")["job_id"]
        # A job of this client, with its panel.
        (self.house.source / "large").write_bytes(os.urandom(48 << 20))
        elsewhere = self.house.root / "elsewhere"
        elsewhere.mkdir()
        job = self.house.job("Runs", packer="KTXz", target=elsewhere)
        job.get("bak_packer").add("addon", "KTXz").add("level", 9)
        job.fields["client_id"] = ("LONG", [self.client.pid])
        self.peer.send(job)
        self.running = self.peer.wait_for("KTJI", where=lambda m: m.text("title") == "Runs").get("job_id")
        hand.until(lambda: "Runs" in hand.run("names"), "the job's panel")
        # A window that looks for backups.
        hand.trigger("rsvw")
        hand.click("btn_insert")
        hand.see("btn_scan")
        hand.click("btn_destination@btn_scan")
        hand.see("str_path")
        hand.type("str_path", str(self.house.target))
        hand.click("btn_ok@str_path")
        hand.gone("str_path")
        # A job being edited, with the windows of its time and its place.
        hand.trigger("jqvw")
        hand.row("lst_jobs", "pick", self.row("lst_jobs", "Held"))
        hand.click("btn_jqedit")
        hand.see("btn_bakscheduler")
        self.peer.wait_for("KTjc", where=lambda m: m.get("job_id") == self.held and m.get("jobstatus") == EDITED)
        hand.click("btn_bakscheduler")
        hand.see("str_nextrun")
        hand.click("btn_destination@btn_bakscheduler")
        hand.see("str_path")
        # A report; and it is the tool that is to be there again.
        hand.trigger("rpvw@BackupWindow")
        hand.see("lst_reports")
        hand.row("lst_reports", "click", self.row("lst_reports", "Earlier"))
        hand.key("lst_reports", "Return")
        hand.until(lambda: "problems" in hand.get("str_problems", "text"), "the report")
        hand.trigger("last@BackupWindow")

    def ends(self, how, last="lst_reports"):
        self.open_everything()
        (self.house.program / "Backup.prefs").unlink(missing_ok=True)
        how()
        self.assertEqual(self.client.wait(20), 0)
        self.peer.wait_for("KTjc", where=lambda m: m.get("job_id") == self.held and m.get("jobstatus") == PAUSED)
        jobs = {job["job_id"]: job["status"] for job in self.house.ctl("jobs")}
        self.assertEqual(jobs, {self.held: "Pause", self.running: "Running"})
        self.start_client()
        self.hand.see(last)  # the settings say so

    def test_by_its_menu(self):
        self.ends(lambda: self.hand.trigger("_QRQ@BackupWindow"))

    def test_by_its_window(self):
        self.ends(lambda: self.hand.close("BackupWindow"))

    def test_by_the_session(self):
        self.ends(self.terminate)

    def test_by_the_session_with_a_question(self):
        self.ends(self.terminate_while_it_asks, "lst_source")

    def terminate(self):
        self.client.terminate()

    def terminate_while_it_asks(self):
        # The question waits for its answer in the middle of a command.
        self.hand.click("btn_delete@lst_reports")
        self.hand.see("tctrl_delete")
        self.hand.trigger("bavw@BackupWindow")
        self.hand.click("btn_start@BackupWindow")
        self.hand.see("alert")
        self.client.terminate()


if __name__ == "__main__":
    unittest.main(verbosity=2)
