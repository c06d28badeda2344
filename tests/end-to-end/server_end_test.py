#!/usr/bin/env python3
"""The real server is asked to end in the middle of whatever it does: it ends soon, the reports say what became
of it, and the next one starts as if nothing had been."""
import json
import os
import subprocess
import time
import unittest

import house
import wire
from house import ServerTest

PAUSED = 3
ABORTED_TEXTS = {18, 73, 170, 297, 279}  # a check says it in words
ABNORMAL_TEXT = 151


class ServerEnd(ServerTest):
    def setUp(self):
        super().setUp()
        (self.house.source / "large").write_bytes(os.urandom(1 << 20) * 96)
        (self.house.source / "small").write_text("small")
        self.name = self.house.ctl("backup", self.house.source, "--to", self.house.target, "--compress", "none",
                                   "--title", "Whole")["backup"]

    def begin(self, *arguments):
        self.peer.ask(wire.Message("KTJL"))
        self.peer.arrived.clear()
        ctl = subprocess.Popen([self.house.program / "backupctl", *arguments, "--json"], env=self.house.environment,
                               stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, start_new_session=True)
        self.addCleanup(ctl.stdout.close)
        self.addCleanup(ctl.kill)
        return ctl, self.peer.wait_for("KTJI", where=lambda m: not m.get("base")).get("job_id")

    def end(self):
        begin = time.monotonic()
        self.house.stop_server()
        self.assertEqual(self.house.server.returncode, 0)
        self.assertLess(time.monotonic() - begin, 30)

    def reported(self, job):
        """What the next server's report of the job says."""
        self.start()
        self.assertEqual({base for base in self.peer.ask(wire.Message("KTJL")).all("base")} - {True}, set())
        lines, _ = self.house.report(self.peer, job)
        return {text for _, text in lines}

    def test_in_the_middle_of_a_job(self):
        back = self.house.root / "back"
        for words in (("backup", self.house.source, "--to", self.house.target, "--title", "Half", "--compress", "xz:9"),
                      ("restore", self.name, "/", "--to", back), ("compare", self.name), ("verify", self.name)):
            with self.subTest(words[0]):
                ctl, job = self.begin(*words)
                # Between two blocks: it is not over, and does not become so.
                self.peer.send(wire.Message("KTJP", job_id=job))
                self.peer.wait_for("KTjc", where=lambda m: m.get("jobstatus") == PAUSED)
                self.end()
                said, _ = ctl.communicate(timeout=20)
                self.assertEqual(ctl.returncode, 1)
                if said:  # else the server was gone before it had been told who listens
                    self.assertEqual(json.loads(said)["status"], "aborted")
                texts = self.reported(job)
                self.assertNotIn(ABNORMAL_TEXT, texts)
                self.assertTrue(texts & ABORTED_TEXTS, texts)
        self.assertEqual(list(self.house.target.glob("*.partial")), [])
        self.assertEqual([backup.name for backup in self.house.backups()], [self.name])
        self.house.ctl("verify", self.name)

    def test_while_backups_are_looked_for_put_in_and_deleted(self):
        volume = wire.Message("VOLU", addon="KTImage", path=str(self.house.target))
        scan = wire.Message("ktvs", id=7, name="KTImage", settings=volume)
        insert = wire.Message("KTJA", client_id=os.getpid(), job_type=6, addon="KTImage", volume=volume,
                              start_info=wire.Message("STRT", title="Back in"), ID=self.name)
        for message in (scan, insert, wire.Message("KTxX", name=self.name, full=1)):
            with self.subTest(message.what):
                self.peer.send(message)
                self.end()
                self.start()
                # The list and the disk agree, whatever came first.
                listed = [backup["name"] for backup in self.house.ctl("list")]
                self.assertEqual(listed, [backup.name for backup in self.house.backups()])
                self.assertEqual(list(self.house.target.glob(".*")), [])
        self.house.ctl("backup", self.house.source, "--to", self.house.target)

    def test_with_many_in_the_queue(self):
        """Those that wait are there again, the one that ran is not."""
        elsewhere = self.house.folder("elsewhere")
        self.peer.send(self.house.job("Runs", target=elsewhere, packer="KTXz"))
        running = self.peer.wait_for("KTJI", where=lambda m: m.text("title") == "Runs").get("job_id")
        self.peer.send(wire.Message("KTJP", job_id=running))
        for number in range(20):
            self.peer.send(self.house.job(f"Waits {number}", target=elsewhere))
        self.peer.wait_for("KTJI", where=lambda m: m.text("title") == "Waits 19")
        self.end()
        end = self.peer.wait_for("KTJf")
        self.assertEqual((end.get("job_id"), end.get("status")), (running, 1))
        self.start()
        for _ in range(20):
            self.peer.wait_for("KTJf", 60)
        house.wait(lambda: self.house.ctl("jobs") == [], "the queue to be empty")
        self.assertEqual(len([path for path in elsewhere.iterdir() if path.name.startswith("2")]), 20)


if __name__ == "__main__":
    unittest.main(verbosity=2)
