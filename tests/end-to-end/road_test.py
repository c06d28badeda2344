#!/usr/bin/env python3
"""A person's road: start the program, mark a directory, choose where to, press start, give a title, watch
the panel, read that it went well; then the backup is unpacked with stock tools and compared."""
import os
import subprocess
import time
import unittest

import house
from desktop import ClientTest


class Road(ClientTest):
    def open_tool_and_mark_source(self):
        self.hand.trigger("bavw")
        self.hand.see("btn_start")
        self.mark_source()

    def test_from_the_window_to_the_medium(self):
        house.make_tree(self.house.source)
        hand = self.hand
        self.open_tool_and_mark_source()
        self.choose_target(self.house.target)
        self.hand.choose("mnu_packer", "Zstandard")
        hand.click("btn_start")
        self.start_job("By hand & with care")
        [backup] = self.house.backups()
        self.assertEqual(house.differences(self.house.source, self.house.unpack(backup)), [])
        hand.trigger("_QRQ")
        self.assertEqual(self.client.wait(20), 0)
        self.assertTrue((self.house.program / "Backup.prefs").exists())

    def test_holding_a_backup_against_the_disk(self):
        house.make_tree(self.house.source)
        self.house.ctl("backup", self.house.source, "--to", self.house.target, "--title", "Then")
        hand = self.hand
        hand.trigger("cpvw")
        hand.see("btn_cmpsettings")
        self.mark("lst_catalogue", "Then", "Full Backup", *self.house.rule(self.house.source, False).strip("/").split("/"))
        hand.click("btn_resstart")
        self.start_job("As it was?")
        (self.house.source / "empty").write_text("not any more")
        hand.click("btn_resstart")
        self.start_job("And now?", "Job ended with errors")

    def test_quick_backup_of_a_disk_that_is_plugged_in(self):
        hand = self.hand
        system = self.house.volume_name("/")
        hand.trigger("qbvw")
        hand.see("lst_volumes")
        hand.until(lambda: hand.row("lst_volumes", "state", system) == "0", "the first look")
        before = hand.row("lst_volumes", "rows")
        stick = self.house.root / "stick"
        stick.mkdir()
        if subprocess.run(["mount", "-t", "tmpfs", "-o", "size=8M", "none", stick],
                          stderr=subprocess.DEVNULL).returncode != 0:
            self.skipTest("needs the right to mount")
        self.addCleanup(subprocess.run, ["umount", "-q", "-l", stick], check=False, stderr=subprocess.DEVNULL)
        (stick / "letters").mkdir()
        house.write(stick / "letters/one", b"Dear reader")
        hand.until(lambda: hand.row("lst_volumes", "state", "stick") is not None, "the disk's row")
        hand.row("lst_volumes", "click", "stick")
        hand.until(lambda: hand.row("lst_volumes", "state", "stick") == "2", "the mark")
        self.choose_target(self.house.target)
        self.hand.choose("mnu_packer", "Zstandard")
        hand.click("btn_start")
        self.start_job("The stick")
        [backup] = self.house.backups()
        self.assertEqual(house.differences(stick, self.house.unpack(backup, source=stick)), [])
        subprocess.run(["umount", stick], check=True)
        hand.until(lambda: hand.row("lst_volumes", "rows") == before, "the row to go")

    def test_a_backup_that_runs_by_the_clock(self):
        house.make_tree(self.house.source)
        hand = self.hand
        self.open_tool_and_mark_source()
        self.choose_target(self.house.target)
        self.hand.choose("mnu_packer", "Zstandard")
        hand.click("btn_bakscheduler")
        hand.see("str_nextrun")
        hand.type("DATE", "31.12.2040")
        hand.type("TIME", "18:05")
        hand.type("Days", "7")
        hand.click("Sunday")
        hand.until(lambda: "2040-12-31, 18:05" in hand.get("str_nextrun", "text"), "the next run in words")
        self.assertIn("every week, not on Sunday", hand.get("str_nextrun", "text"))
        hand.click("btn_ok")
        hand.gone("str_nextrun")
        self.assertIn("18:05:00 2040", hand.get("str_bakscheduler", "text"))
        hand.click("btn_start")
        self.start_job("On New Year's Eve", None)
        house.wait(lambda: self.house.ctl("jobs"), "the job in the queue")
        [job] = self.house.ctl("jobs")
        self.assertEqual(job["title"], "On New Year's Eve")
        self.assertEqual(time.strftime("%Y-%m-%d %H:%M", time.localtime(job["date"])), "2040-12-31 18:05")
        self.assertEqual(self.house.backups(), [])

    def test_start_without_a_mark_or_a_place_is_refused(self):
        hand = self.hand
        hand.trigger("bavw")
        hand.see("btn_start")
        hand.click("btn_start")
        hand.see("alert")
        hand.click("btn0")
        hand.gone("alert")
        self.open_tool_and_mark_source()
        hand.click("btn_start")
        hand.see("alert")  # no destination
        hand.click("btn0")
        self.assertEqual(self.house.backups(), [])


class ReportRoad(ClientTest):
    # Root reads everything, unless it may not.
    launcher = ["setpriv", "--bounding-set=-dac_override,-dac_read_search"] if os.geteuid() == 0 else []

    def test_reading_keeping_and_deleting_a_report(self):
        (self.house.source / "good").write_text("good")
        (self.house.source / "secret").write_text("nobody reads this")
        (self.house.source / "secret").chmod(0)
        self.house.ctl("backup", self.house.source, "--to", self.house.target, "--title", "With a gap", status=3)
        hand = self.hand
        hand.trigger("rpvw")
        hand.see("lst_reports")
        hand.until(lambda: hand.row("lst_reports", "rows") == "1", "the report's row")
        hand.row("lst_reports", "click", "With a gap")
        hand.key("lst_reports", "Return")
        hand.until(lambda: "Problems: 1" in hand.get("str_problems", "text"), "the count of problems")
        hand.key("txt_report", "F8")
        hand.until(lambda: "secret" in hand.get("txt_report", "selectedText"), "the problem's line")

        # With the coarsest filter folders and files are left out, the problem is not.
        brief = hand.get("txt_report", "text")
        hand.click("btn_settings")
        hand.see("mnu_filter")
        hand.choose("mnu_filter", "Files")
        hand.click("btn_ok")
        hand.gone("mnu_filter")
        whole = hand.get("txt_report", "text")
        self.assertGreater(len(whole.split("\n")), len(brief.split("\n")))
        self.assertEqual([line for line in whole.split("\n") if line in brief.split("\n")], brief.split("\n"))

        text, paper = self.house.root / "report.txt", self.house.root / "report.pdf"
        hand.click("btn_save")
        hand.see("fileNameEdit")
        hand.type("fileNameEdit", str(text))
        hand.key("fileNameEdit", "Return")
        hand.until(text.exists, "the text file")
        self.assertEqual(text.read_text(), whole + "\n")
        hand.click("btn_print")
        hand.see("printers")
        hand.choose("printers", "Print to File (PDF)")
        hand.type("filename", str(paper))
        hand.key("print", "Return")
        hand.gone("printers")
        hand.until(lambda: paper.exists() and paper.read_bytes().rstrip().endswith(b"%%EOF"), "the printed page")

        hand.click("btn_delete")
        hand.see("tctrl_delete")
        self.assertIn("With a gap", hand.get("tctrl_delete", "text"))
        hand.click("btn_ok")
        hand.until(lambda: hand.row("lst_reports", "rows") == "0", "the row to go")
        self.assertEqual(hand.get("txt_report", "text"), "")


if __name__ == "__main__":
    unittest.main(verbosity=2)
