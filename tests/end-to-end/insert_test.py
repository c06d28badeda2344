#!/usr/bin/env python3
"""Backups that come back from their medium to a machine that knows nothing of them any more."""
import os
import shutil
import signal
import unittest

import house
import wire
from house import ServerTest

PASSWORD = "left in a drawer"


class Insert(ServerTest):
    def wipe(self):
        self.house.wipe()
        self.start()

    def scan(self, **volume):
        settings = wire.Message("VOLU", addon="KTImage", path=str(self.house.target), **volume)
        return self.peer.ask(wire.Message("ktvs", id=7, name="KTImage", settings=settings))

    def insert(self, *folders):
        job = wire.Message("KTJA", client_id=os.getpid(), job_type=6, addon="KTImage",
                           volume=wire.Message("VOLU", addon="KTImage", path=str(self.house.target)),
                           start_info=wire.Message("STRT", title="Back in"))
        for folder in folders:
            job.add("ID", folder)
        return self.house.run_job(self.peer, job)

    def expect_restores(self, backup, tree, password=None):
        to = self.house.root / f"to-{backup}-{len(list(self.house.root.iterdir()))}"
        self.ctl("restore", backup, self.house.rule(self.house.source, False), "--to", to, password=password)
        restored = next(p for p in (to / "source", to) if p.exists())
        self.assertEqual(house.differences(tree, restored), [])

    def test_a_chain_comes_back_by_the_command_line(self):
        source, trees = self.house.source, []
        house.make_tree(source)
        self.ctl("backup", source, "--to", self.house.target, "--title", "Home")
        trees.append(house.describe(source))
        (source / "new").write_text("new")
        (source / "docs").rename(source / "papers")
        full = self.house.backups()[0].name
        self.ctl("backup", "--incremental", full, "--to", self.house.target)
        trees.append(house.describe(source))
        backups = [backup.name for backup in self.house.backups()]
        listed = self.house.ctl("list")
        self.assertEqual([b["known"] for b in self.house.ctl("scan", self.house.target)], [True] * 2)

        self.wipe()
        self.assertEqual(self.house.ctl("list"), [])
        found = self.house.ctl("scan", self.house.target)
        self.assertEqual([(b["id"], b["title"], b["known"], b["protected"]) for b in found],
                         [(name, "Home", False, False) for name in backups])
        self.ctl("insert", self.house.target, "nothing", good=(1,))
        self.ctl("insert", self.house.target, "Home", good=(1,))  # two have this title
        done = self.house.ctl("insert", self.house.target, *backups)
        self.assertEqual((done["status"], sorted(done["inserted"])), ("good", backups))
        self.assertEqual(self.house.ctl("list"), listed)
        for backup, tree in zip(backups, trees):
            self.expect_restores(backup, tree)
            self.ctl("verify", backup)
        self.ctl("compare", backups[1])
        self.assertIn("papers", self.ctl("find", "paper"))
        # New jobs and backups get new numbers, and the set goes on.
        (source / "later").write_text("later")
        self.ctl("backup", "--differential", full, "--to", self.house.target)
        self.expect_restores(self.house.backups()[-1].name, house.describe(source))
        jobs = [b["job_id"] for b in self.house.ctl("list")]
        self.assertEqual(len(set(jobs)), 3)
        self.ctl("insert", self.house.target, backups[0])
        # What others are built on stays.
        self.ctl("delete", full, "--with-data", "--yes", good=(1, 3))
        self.assertEqual(len(self.house.backups()), 3)
        self.ctl("delete", *[b.name for b in self.house.backups()], "--with-data", "--yes")
        self.assertEqual(self.house.backups(), [])
        self.assertEqual(self.house.ctl("scan", self.house.target), [])
        self.ctl("scan", self.house.root / "nowhere", good=(1,))

    def test_a_protected_one_is_locked_until_its_password_comes(self):
        house.make_tree(self.house.source)
        tree = house.describe(self.house.source)
        for title in ("Secret", "Secret too"):
            self.ctl("backup", self.house.source, "--to", self.house.target, "--title", title, password=PASSWORD)
        first, second = self.house.backups()
        (second / "catalogue.db.zst.age").unlink()
        self.wipe()
        self.assertEqual(self.scan().all("protected"), [1, 1])
        self.assertEqual(self.insert(first.name, second.name)[1], 0)
        peer = self.house.connect()
        for backup in (first.name, second.name):
            top = wire.Message("KTLR", path=f"/{backup}", index=0)
            answer = peer.ask(top)
            self.assertEqual((answer.what, answer.get("locked"), answer.all("name")), ("KTLi", 1, []))
            self.assertEqual(peer.ask(wire.Message("ktpc", name=backup)).get("protected"), 1)
            self.assertEqual(peer.ask(wire.Message("ktpc", name=backup, pw="wrong"), 30).get("result"), 0)
            self.assertEqual(peer.ask(top).get("locked"), 1)
            self.assertEqual(peer.ask(wire.Message("ktpc", name=backup, pw=PASSWORD), 30).get("result"), 1)
            self.assertEqual(peer.ask(top).get("type"), 3)
            self.expect_restores(backup, tree, PASSWORD)
            self.ctl("verify", backup, password=PASSWORD, good=(0, 3) if backup == second.name else (0,))
        # That it was read through is told in a report.
        report = self.peer.wait_for("rpIN", where=lambda m: m.text("title") == "Secret too" and m.get("job_id") == 0)
        self.assertEqual(report.get("job_type"), 6)
        # It stays open, and is found.
        self.house.stop_server()
        self.start()
        self.assertIn("letter.txt", self.ctl("find", "letter.txt"))
        self.assertIn("docs", self.ctl("browse", first.name, self.house.rule(self.house.source, False)))
        # The next backup of the set needs nothing but the public key.
        (self.house.source / "more").write_text("more")
        (self.house.source / "empty").unlink()
        self.ctl("backup", "--incremental", first.name, "--to", self.house.target)
        [following] = set(self.house.backups()) - {first, second}
        self.assertTrue((following / "key.age").exists())
        self.assertFalse((following / "gone.list").exists())  # names are protected, too
        self.expect_restores(following.name, house.describe(self.house.source), PASSWORD)

    def test_what_a_crash_left_is_told_and_taken(self):
        house.make_tree(self.house.source)
        for i in range(40):
            (self.house.source / f"noise{i}").write_bytes(os.urandom(4_000_000))
        for size in (0, 20_000_000, 60_000_000):
            self.peer.send(self.house.job(packer="KTZstd"))

            def written():
                return sum(p.stat().st_size for p in self.house.target.glob("2*.partial/0001*"))
            house.wait(lambda: self.house.backups() or
                       (list(self.house.target.glob("2*.partial/0001*")) and written() >= size), "the medium", 60)
            self.house.stop_server(signal.SIGKILL)
            left = list(self.house.target.glob("2*.partial"))
            if not left:  # it was quicker
                self.skipTest("the backup ended before it could be killed")
            self.wipe()
            found = self.scan()
            self.assertEqual(found.get("id"), 7)
            self.assertEqual([os.fsdecode(folder) for folder in found.all("ID")], [left[0].name])
            self.assertIn("(ended unexpectedly)", found.text("title"))
            self.assertGreater(found.get("date"), 1_700_000_000)
            job_id, status = self.insert(left[0].name)
            self.assertEqual(status, 2)
            lines, _ = self.house.report(self.peer, job_id)
            self.assertIn((3, 173), lines)
            name = left[0].name.removesuffix(".partial")
            backups = self.house.ctl("list")
            if (3, 164) in lines:  # nothing whole was there yet
                self.assertEqual(backups, [])
            else:
                self.assertEqual([b["name"] for b in backups], [name])
                to = self.house.root / f"rest-{size}"
                self.ctl("restore", name, "/", "--to", to)
                self.ctl("verify", name)
                restored, saved = house.describe(to), house.describe(self.house.source)
                # Size, holes and content.
                for path, fact in restored.items():
                    name_only = path.rsplit(b"/", 1)[-1]
                    if name_only.startswith(b"noise"):
                        self.assertEqual(fact[5:8], saved[b"/" + name_only][5:8], path)
                if size > 0:
                    self.assertGreater(len(restored), 3)
                self.ctl("delete", name, "--with-data", "--yes")
            for folder in self.house.target.glob("2*"):
                shutil.rmtree(folder)
            self.wipe()

    def test_one_that_is_being_made_is_not_offered(self):
        for i in range(60):
            (self.house.source / f"noise{i}").write_bytes(os.urandom(4_000_000))
        self.peer.send(self.house.job(packer="KTXz"))
        house.wait(lambda: list(self.house.target.glob("2*.partial/0001*")), "the medium", 60)
        self.assertEqual(self.scan().all("ID"), [])
        folder = next(self.house.target.glob("2*.partial")).name
        # Jobs of one destination take turns: it is not taken apart while it is made.
        job_id = self.peer.wait_for("KTJI", where=lambda m: not m.get("base")).get("job_id")
        self.peer.send(wire.Message("KTJD", job_id=job_id, flag=1))
        self.assertEqual(self.peer.wait_for("KTJf", 30).get("status"), 1)
        self.assertEqual(self.insert(folder)[1], 2)

    def test_a_disc_with_nothing_but_a_part_says_so(self):
        (self.house.source / "a").write_text("a")
        self.ctl("backup", self.house.source, "--to", self.house.target)
        [backup] = self.house.backups()
        (self.house.target / (backup.name + ".disc1")).mkdir()
        self.wipe()
        self.assertEqual([os.fsdecode(folder) for folder in self.scan().all("ID")], [backup.name])
        shutil.rmtree(backup)
        self.assertEqual(self.scan().all("ID"), [])
        report = self.peer.wait_for("rpIN", where=lambda m: m.get("client_id") == os.getpid())
        self.peer.send(wire.Message("rpOP", report_id=report.get("report_id")).add("user", (os.getpid(), 78), "MSNG"))
        self.assertIn(b"its last disc is needed", self.peer.wait_for("rpRP").flatten())

    def test_a_medium_that_cannot_be_had(self):
        answer = self.peer.ask(wire.Message("ktvs", id=3, name="KTImage", settings=wire.Message(
            "VOLU", addon="KTImage", path=str(self.house.root / "nowhere"))))
        self.assertEqual((answer.what, answer.get("id"), answer.all("title")), ("ktvd", 3, []))
        self.peer.wait_for("rpIN", where=lambda m: m.get("client_id") == os.getpid())
        self.peer.send(wire.Message("ktvs", id=4, name="KTNothing"))
        self.assertEqual(self.peer.wait_for("ktvd").get("id"), 4)
        self.peer.wait_for("rpIN", where=lambda m: m.get("client_id") == os.getpid())
        self.assertEqual(self.insert()[1], 2)
        self.assertEqual(self.insert("20261122T201530-0000001a", "../target")[1], 2)


if __name__ == "__main__":
    unittest.main(verbosity=2)
