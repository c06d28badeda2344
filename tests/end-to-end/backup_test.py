#!/usr/bin/env python3
"""Real backups by the real server, asked for in bytes from outside, restored with stock tools."""
import json
import os
import signal
import subprocess
import unittest

import house
import wire
from house import ServerTest


class Backup(ServerTest):
    def test_a_tree_with_everything_comes_back_identical(self):
        house.make_tree(self.house.source)
        job_id, status = self.house.run_job(self.peer, self.house.job())
        self.assertEqual(status, 0)
        [backup] = self.house.backups()
        self.assertEqual(house.differences(self.house.source, self.house.unpack(backup)), [])
        manifest = json.loads((backup / "backup.json").read_text())
        self.assertEqual(manifest["title"], "End to end")
        self.assertTrue((self.house.target / "README.txt").read_text())
        lines, _ = self.house.report(self.peer, job_id)
        self.assertIn((2, 17), lines)  # "Backup successful"
        self.assertEqual([line for line in lines if line[0] == 3], [])
        listing = self.peer.ask(wire.Message("KTLR", path="/"))
        self.assertEqual(listing.what, "KTLi")
        self.assertEqual(listing.text("name"), backup.name)

    def test_full_medium_leaves_nothing(self):
        if subprocess.run(["mount", "-t", "tmpfs", "-o", "size=4M", "none", self.house.target],
                          capture_output=True).returncode != 0:
            self.skipTest("needs the right to mount")
        (self.house.source / "noise").write_bytes(os.urandom(12_000_000))
        job_id, status = self.house.run_job(self.peer, self.house.job())
        self.assertEqual(status, 2)
        lines, _ = self.house.report(self.peer, job_id)
        self.assertTrue([line for line in lines if line[0] == 3 and line[1] in (3, 43)], lines)
        self.assertEqual([p.name for p in self.house.target.iterdir() if p.is_dir()], [])
        self.assertEqual(self.peer.ask(wire.Message("KTLR", path="/")).what, "NONE")

    def test_killed_in_the_middle(self):
        (self.house.source / "noise").write_bytes(os.urandom(150_000_000))
        self.peer.send(self.house.job())
        self.peer.wait_for("KTJF", 20, lambda m: m.get("linetype") == 100 and m.get("size", 0) > 0)
        self.house.stop_server(signal.SIGKILL)
        self.assertEqual(self.house.backups(), [])
        self.start()
        self.assertEqual(self.peer.ask(wire.Message("KTLR", path="/")).what, "NONE")
        self.assertEqual(self.peer.ask(wire.Message("rpGL")).what == "NONE", False)
        jobs = self.peer.ask(wire.Message("KTJL"))
        self.assertEqual(jobs.what, "NONE", jobs)
        _, status = self.house.run_job(self.peer, self.house.job("Second try"))
        self.assertEqual(status, 0)

    def test_deleting_entries_and_data(self):
        (self.house.source / "a").write_text("a")
        jobs = [self.house.run_job(self.peer, self.house.job(f"Number {n}"))[0] for n in range(3)]
        names = [self.peer.wait_for("KTLi", where=lambda m, j=j: m.get("job_id") == j).text("name") for j in jobs]
        self.assertEqual([p.name for p in self.house.backups()], names)
        bases = self.peer.ask(wire.Message("KTJL"))
        self.assertEqual(sorted(bases.all("job_id")), jobs)
        self.assertEqual(set(bases.all("base")), {True})

        self.peer.arrived.clear()
        self.peer.send(wire.Message("KTxX", name=names[0], full=0))
        self.peer.wait_for("KTLr", where=lambda m: m.text("name") == names[0])
        self.peer.wait_for("KTJR", where=lambda m: m.get("job_id") == jobs[0])
        self.assertEqual(len(self.house.backups()), 3)
        self.peer.send(wire.Message("KTxX", name=names[1], full=1))
        self.peer.wait_for("KTLr", where=lambda m: m.text("name") == names[1])
        self.assertEqual([p.name for p in self.house.backups()], [names[0], names[2]])

        # The medium is away: the entry stays, and a report says why.
        self.house.target.rename(self.house.root / "away")
        self.peer.arrived.clear()
        self.peer.send(wire.Message("KTxX", name=names[2], full=1))
        self.assertEqual(self.peer.wait_for("rpIN").text("title"), "Number 2")
        self.assertEqual(self.peer.ask(wire.Message("KTLR", path="/")).all("name"), [names[2].encode()])
        (self.house.root / "away").rename(self.house.target)

        # A crash in the middle of deleting left it under the name of a partial one: that is deleted, too.
        (self.house.target / names[2]).rename(self.house.target / (names[2] + ".partial"))
        self.peer.send(wire.Message("KTxX", name=names[2], full=1))
        self.peer.wait_for("KTLr", where=lambda m: m.text("name") == names[2])
        self.assertEqual([p.name for p in self.house.target.iterdir() if p.is_dir()], [names[0]])

    def test_rubbish_ends_only_its_own_connection(self):
        ours = os.getpid()
        body = wire.Message("KTJL").flatten()
        rubbish = [b"\xff" * 64, wire.frame(9, body), wire.frame(2, body, sender=ours + 1),
                   wire.frame(2, body[:-1]), wire.frame(2, b""), wire.frame(2, os.urandom(300)),
                   b"\xff\xff\xff\xff" + wire.frame(2, body)[4:],
                   wire.frame(2, body)[:5] + b"\1" + wire.frame(2, body)[6:]]
        for data in rubbish:
            with self.subTest(data=data[:32]):
                bad = self.house.connect(register=False)
                bad.socket.sendall(data)
                try:
                    bad.wait(lambda: bad.closed, 5, "the server hanging up")
                except ConnectionResetError:
                    pass
                self.assertEqual(self.peer.ask(wire.Message("KTJL")).what, "NONE")


if __name__ == "__main__":
    unittest.main(verbosity=2)
