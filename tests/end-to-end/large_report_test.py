#!/usr/bin/env python3
"""A report of a hundred thousand lines from the real server in the real client: it comes through a shared
area, which lives no longer than it is needed."""
import pathlib
import signal
import time
import unittest

import house
import wire
from desktop import ClientTest

FILES = 100_000


class LargeReport(ClientTest):
    with_server = True

    def areas(self):
        return list(pathlib.Path("/dev/shm").glob(f"velmora-{self.house.server.pid}-*"))

    def setUp(self):
        super().setUp()
        self.peer = self.house.connect()
        for number in range(FILES):
            open(self.house.source / f"{number:06}", "xb").close()
        _, status = self.house.run_job(self.peer, self.house.job("Hundred thousand", packer="KTNone"), 120)
        self.assertEqual(status, 0)
        hand = self.hand
        hand.trigger("rpvw")
        hand.see("lst_reports")
        hand.row("lst_reports", "click", self.row("lst_reports", "Hundred thousand"))

    def open_report(self):
        """The seconds until its text is there."""
        begin = time.monotonic()
        self.hand.key("lst_reports", "Return")
        self.hand.until(lambda: self.hand.get("str_problems", "text").startswith("No problems"), "the text", 60)
        return time.monotonic() - begin

    def test_it_is_opened_and_its_area_goes(self):
        seconds = self.open_report()
        house.wait(lambda: self.areas() == [], "its area to go")
        # With all files: no line is missing.
        self.hand.click("btn_settings")
        self.hand.see("mnu_filter")
        self.hand.choose("mnu_filter", "Files")
        self.hand.click("btn_ok@mnu_filter")
        self.hand.gone("mnu_filter")
        lines = self.hand.get("txt_report", "text").split("\n")
        self.assertGreater(len(lines), FILES)
        self.assertEqual(sum(line.endswith("/000000") for line in lines), 1)
        self.assertEqual(sum(line.endswith(f"/{FILES - 1:06}") for line in lines), 1)
        print(f"[{len(lines)} lines opened in {seconds:.2f} s]", end=" ", flush=True)
        self.assertLess(seconds, 5)  # well under one on a quiet machine

        # One that is killed before it has read leaves nothing either.
        self.client.send_signal(signal.SIGSTOP)
        report = self.peer.ask(wire.Message("rpGL")).get("report_id")
        self.peer.send(wire.Message("rpOP", report_id=report).add("user", (self.client.pid, 1), "MSNG"))
        house.wait(lambda: len(self.areas()) == 1, "its area")
        self.client.kill()
        self.client.wait(20)
        house.wait(lambda: self.areas() == [], "the area of the killed one to go")


if __name__ == "__main__":
    unittest.main(verbosity=2)
