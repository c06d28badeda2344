#!/usr/bin/env python3
"""Real backups by the real server, asked for in bytes from outside, restored with stock tools."""
import json
import os
import signal
import subprocess
import unittest

import house
import wire
from house import House


class Backup(unittest.TestCase):
    def setUp(self):
        self.house = House()
        self.addCleanup(self.house.__exit__)
        self.house.start_server()

    def test_a_tree_with_everything_comes_back_identical(self):
        house.make_tree(self.house.source)
        peer = self.house.connect()
        job_id, status = self.house.run_job(peer, self.house.job())
        self.assertEqual(status, 0)
        [backup] = self.house.backups()
        self.assertEqual(house.differences(self.house.source, self.house.unpack(backup)), [])
        manifest = json.loads((backup / "backup.json").read_text())
        self.assertEqual(manifest["title"], "End to end")
        self.assertTrue((self.house.target / "README.txt").read_text())
        lines, _ = self.house.report(peer, job_id)
        self.assertIn((2, 17), lines)  # "Backup successful"
        self.assertEqual([line for line in lines if line[0] == 3], [])
        listing = peer.ask(wire.Message("KTLR", path="/"))
        self.assertEqual(listing.what, "KTLi")
        self.assertEqual(listing.text("name"), backup.name)

    def test_other_compressors_need_only_their_tools(self):
        house.make_tree(self.house.source)
        before = house.describe(self.house.source)
        peer = self.house.connect()
        for packer, ending, tool in (("KTNone", ".tar", "cat"), ("KTLz4", ".tar.lz4", "lz4 -dc"),
                                     ("KTXz", ".tar.xz", "xz -dc")):
            with self.subTest(packer):
                _, status = self.house.run_job(peer, self.house.job(packer=packer))
                self.assertEqual(status, 0)
                backup = self.house.backups()[-1]
                self.assertEqual(house.differences(before, self.house.unpack(backup, ending, tool)), [])
                manifest = json.loads((backup / "backup.json").read_text())
                self.assertEqual(manifest["compressor"], packer)

    def test_excluded_and_reincluded(self):
        for name in ("keep/a", "keep/tmp/b", "keep/tmp/wanted", "other"):
            path = self.house.source / name
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text(name)
        rule = self.house.rule
        rules = ["INCLUDE " + rule(self.house.source / "keep"),
                 "EXCLUDE " + rule(self.house.source / "keep/tmp"),
                 "INCLUDE " + rule(self.house.source / "keep/tmp/wanted", False)]
        _, status = self.house.run_job(self.house.connect(), self.house.job(rules=rules))
        self.assertEqual(status, 0)
        restored = self.house.unpack(self.house.backups()[0])
        files = sorted(str(p.relative_to(restored)) for p in restored.rglob("*") if p.is_file())
        self.assertEqual(files, ["keep/a", "keep/tmp/wanted"])

    def test_paths_beyond_4096_bytes(self):
        # Stock tar cannot make such a path, but it lists it, and the backup holds it.
        house.make_deep(self.house.source, b"d" * 200, 24)
        _, status = self.house.run_job(self.house.connect(), self.house.job())
        self.assertEqual(status, 0)
        [backup] = self.house.backups()
        names = subprocess.run(f"cat {backup}/0*.zst | zstd -dc | tar -t", shell=True, check=True,
                               capture_output=True, text=True).stdout
        self.assertIn("d" * 200 + "/bottom", names)

    def test_unreadable_and_the_destination_itself(self):
        (self.house.source / "good").write_text("good")
        rules = ["INCLUDE " + self.house.rule(self.house.source),
                 "INCLUDE " + self.house.rule(self.house.target)]
        _, status = self.house.run_job(self.house.connect(), self.house.job(rules=rules))
        self.assertEqual(status, 0)
        [backup] = self.house.backups()
        names = subprocess.run(f"cat {backup}/0*.zst | zstd -dc | tar -t", shell=True, check=True,
                               capture_output=True, text=True).stdout
        self.assertNotIn(".partial", names)

    def test_progress_comes_with_totals(self):
        (self.house.source / "noise").write_bytes(os.urandom(60_000_000))
        peer = self.house.connect()
        self.house.run_job(peer, self.house.job())
        progress = [m for m in peer.arrived if m.what == "KTJF" and m.get("linetype") == 100]
        self.assertTrue(progress)
        self.assertEqual(progress[-1].get("maxcount"), 1)
        self.assertGreaterEqual(progress[-1].get("maxsize"), 60_000_000)

    def test_missing_destination_ends_with_its_line(self):
        (self.house.source / "a").write_text("a")
        peer = self.house.connect()
        job_id, status = self.house.run_job(peer, self.house.job(target=self.house.root / "nowhere"))
        self.assertEqual(status, 2)
        lines, _ = self.house.report(peer, job_id)
        self.assertIn((3, 36), lines)
        self.assertEqual(peer.ask(wire.Message("KTLR", path="/")).what, "NONE")

    def test_full_medium_leaves_nothing(self):
        if subprocess.run(["mount", "-t", "tmpfs", "-o", "size=4M", "none", self.house.target],
                          capture_output=True).returncode != 0:
            self.skipTest("needs the right to mount")
        (self.house.source / "noise").write_bytes(os.urandom(12_000_000))
        peer = self.house.connect()
        job_id, status = self.house.run_job(peer, self.house.job())
        self.assertEqual(status, 2)
        lines, _ = self.house.report(peer, job_id)
        self.assertTrue([line for line in lines if line[0] == 3 and line[1] in (3, 43)], lines)
        self.assertEqual([p.name for p in self.house.target.iterdir() if p.is_dir()], [])
        self.assertEqual(peer.ask(wire.Message("KTLR", path="/")).what, "NONE")

    def test_killed_in_the_middle(self):
        (self.house.source / "noise").write_bytes(os.urandom(150_000_000))
        peer = self.house.connect()
        peer.send(self.house.job())
        peer.wait_for("KTJF", 20, lambda m: m.get("linetype") == 100 and m.get("size", 0) > 0)
        self.house.stop_server(signal.SIGKILL)
        self.assertEqual(self.house.backups(), [])
        self.house.start_server()
        peer = self.house.connect()
        self.assertEqual(peer.ask(wire.Message("KTLR", path="/")).what, "NONE")
        self.assertEqual(peer.ask(wire.Message("rpGL")).what == "NONE", False)
        jobs = peer.ask(wire.Message("KTJL"))
        self.assertEqual(jobs.what, "NONE", jobs)
        _, status = self.house.run_job(peer, self.house.job("Second try"))
        self.assertEqual(status, 0)

    def test_deleting_entries_and_data(self):
        (self.house.source / "a").write_text("a")
        peer = self.house.connect()
        jobs = [self.house.run_job(peer, self.house.job(f"Number {n}"))[0] for n in range(3)]
        names = [peer.wait_for("KTLi", where=lambda m, j=j: m.get("job_id") == j).text("name") for j in jobs]
        self.assertEqual([p.name for p in self.house.backups()], names)
        bases = peer.ask(wire.Message("KTJL"))
        self.assertEqual(sorted(bases.all("job_id")), jobs)
        self.assertEqual(set(bases.all("base")), {True})

        peer.arrived.clear()
        peer.send(wire.Message("KTxX", name=names[0], full=0))
        peer.wait_for("KTLr", where=lambda m: m.text("name") == names[0])
        peer.wait_for("KTJR", where=lambda m: m.get("job_id") == jobs[0])
        self.assertEqual(len(self.house.backups()), 3)
        peer.send(wire.Message("KTxX", name=names[1], full=1))
        peer.wait_for("KTLr", where=lambda m: m.text("name") == names[1])
        self.assertEqual([p.name for p in self.house.backups()], [names[0], names[2]])

        # The medium is away: the entry stays, and a report says why.
        self.house.target.rename(self.house.root / "away")
        peer.arrived.clear()
        peer.send(wire.Message("KTxX", name=names[2], full=1))
        self.assertEqual(peer.wait_for("rpIN").text("title"), "Number 2")
        self.assertEqual(peer.ask(wire.Message("KTLR", path="/")).all("name"), [names[2].encode()])
        (self.house.root / "away").rename(self.house.target)

        # A crash in the middle of deleting left it under the name of a partial one: that is deleted, too.
        (self.house.target / names[2]).rename(self.house.target / (names[2] + ".partial"))
        peer.send(wire.Message("KTxX", name=names[2], full=1))
        peer.wait_for("KTLr", where=lambda m: m.text("name") == names[2])
        self.assertEqual([p.name for p in self.house.target.iterdir() if p.is_dir()], [names[0]])

    def test_queue_hold_continue_pause_abort_delete(self):
        (self.house.source / "noise").write_bytes(os.urandom(200_000_000))
        peer = self.house.connect()
        peer.send(self.house.job("Held", submitonhold=1))
        inserted = peer.wait_for("KTJI")
        held = inserted.get("job_id")
        self.assertEqual(inserted.get("jobstatus"), 3)
        self.assertEqual(inserted.text("title"), "Held")
        described = peer.ask(wire.Message("KTjg", job_id=held))
        self.assertEqual(described.what, "KTJA")
        self.assertNotIn("client_id", described.fields)
        peer.send(wire.Message("KTJC", job_id=held))
        peer.wait_for("KTJF", 20, lambda m: m.get("linetype") == 100 and m.get("size", 0) > 0)
        peer.send(wire.Message("KTJP", job_id=held))
        peer.wait_for("KTjc", 5, lambda m: m.get("jobstatus") == 3)
        peer.send(wire.Message("KTJC", job_id=held))
        peer.wait_for("KTjc", 5, lambda m: m.get("jobstatus") == 2)
        peer.send(wire.Message("KTJD", job_id=held, flag=1))
        self.assertEqual(peer.wait_for("KTJf", 4).get("status"), 1)
        self.assertEqual(list(self.house.target.glob("2*")), [])
        peer.send(self.house.job("Held again", submitonhold=1))
        again = peer.wait_for("KTJI").get("job_id")
        self.assertGreater(again, held)
        peer.send(wire.Message("KTJD", job_id=again))
        peer.wait_for("KTJR", where=lambda m: m.get("job_id") == again)
        for unfit in ("KTJC", "KTJP", "KTJD", "KTbg"):
            peer.send(wire.Message(unfit, job_id=4711))
        self.assertEqual(peer.ask(wire.Message("KTjg", job_id=4711)).what, "NONE")


class Server(unittest.TestCase):
    def setUp(self):
        self.house = House()
        self.addCleanup(self.house.__exit__)
        self.house.start_server()

    def test_a_second_copy_steps_back(self):
        second = subprocess.run([self.house.program / "Backup_Server/BackupServer"],
                                env=self.house.environment, timeout=10)
        self.assertEqual(second.returncode, 0)
        self.assertEqual(self.house.connect().ask(wire.Message("KTJL")).what, "NONE")

    def test_rubbish_ends_only_its_own_connection(self):
        good = self.house.connect()
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
                self.assertEqual(good.ask(wire.Message("KTJL")).what, "NONE")

    def test_unknown_codes(self):
        peer = self.house.connect()
        self.assertEqual(peer.ask(wire.Message("what")).what, "NONE")
        self.assertEqual(peer.ask(wire.Message("PGET")).what, "MNOT")
        peer.send(wire.Message("what", job_id=1))
        self.assertEqual(peer.ask(wire.Message("KTJL")).what, "NONE")
        self.assertEqual([m.what for m in peer.arrived], [])

    def test_a_client_that_never_reads_holds_up_nobody(self):
        (self.house.source / "a").write_text("a")
        self.house.connect()
        peer = self.house.connect()
        for n in range(50):
            peer.send(self.house.job(f"Job {n}", submitonhold=1))
        peer.wait(lambda: len(peer.ask(wire.Message("KTJL")).all("job_id")) == 50, 20, "50 jobs")


class CommandLine(unittest.TestCase):
    def setUp(self):
        self.house = House()
        self.addCleanup(self.house.__exit__)

    def ctl(self, *arguments):
        return subprocess.run([self.house.program / "backupctl", *map(str, arguments)],
                              env=self.house.environment, capture_output=True, timeout=60)

    def test_backup_exit_codes_and_reports(self):
        house.make_tree(self.house.source)
        good = self.ctl("backup", self.house.source, "--to", self.house.target, "--title", "By hand")
        self.assertEqual(good.returncode, 0, good.stdout + good.stderr)
        [backup] = self.house.backups()
        self.assertEqual(house.differences(self.house.source, self.house.unpack(backup)), [])
        reports = json.loads(self.ctl("reports", "--json").stdout)
        self.assertIn("By hand", json.dumps(reports))
        bad = self.ctl("backup", self.house.source, "--to", self.house.root / "nowhere")
        self.assertIn(bad.returncode, (1, 3), bad.stdout + bad.stderr)
        self.assertEqual(self.ctl("backup").returncode == 0, False)
        self.assertEqual(self.ctl("--help").returncode, 0)


if __name__ == "__main__":
    unittest.main(verbosity=2)
