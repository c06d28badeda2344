#!/usr/bin/env python3
"""Repeating jobs with the real server, which is killed in every state that a job can be in."""
import os
import signal
import time
import unittest

import house
import wire
from house import ServerTest, wait

DAY = 24 * 60 * 60


class Schedules(ServerTest):
    def setUp(self):
        super().setUp()
        house.make_tree(self.house.source)

    def submit(self, title, due=0, path=None, level=0, **start_info):
        job = self.house.job(title, target=path, packer="KTXz", **start_info)
        job.fields.pop("bak_packer")
        job.add("bak_packer", wire.Message("PACK", addon="KTXz", level=level))
        schedule = wire.Message("SCHE", Days=1)
        if due:
            schedule.add("TIME", due, "TIME")
        self.peer.send(job.add("scheduler", schedule))
        inserted = self.peer.wait_for("KTJI", where=lambda m: m.text("title") == title and not m.get("base"))
        return inserted.get("job_id")

    def jobs(self):
        listed = self.peer.ask(wire.Message("KTJL"))
        return {number: (status, date, title.decode()) for number, status, date, title, base in
                zip(*(listed.all(name) for name in ("job_id", "jobstatus", "date", "title", "base")))
                if not base}

    def tell(self, code, job, **fields):
        self.peer.send(wire.Message(code, job_id=job, **fields))

    def kill_and_start(self):
        self.house.stop_server(signal.SIGKILL)
        self.start()

    def test_every_state_outlives_a_kill(self):
        due = int(time.time()) // 60 * 60 + DAY
        held = self.submit("held", due, submitonhold=1)
        waiting = self.submit("waiting", due)
        paused = self.submit("paused", due)
        self.tell("KTJP", paused)
        edited = self.submit("edited", due)
        self.tell("KTje", edited, edit=1)
        # One that is caught at work: it has much to do, and is paused, so that it cannot get away.
        large = self.house.source / "large"
        house.write(large, os.urandom(64 << 20))
        elsewhere = self.house.folder("elsewhere")
        running = self.submit("running", path=elsewhere, level=9)
        wait(lambda: list(elsewhere.glob("*.partial")), "its first file")
        self.tell("KTJP", running)
        wait(lambda: self.jobs()[running][0] == 3, "the pause")
        self.assertEqual(self.jobs()[edited][0], 4)
        before = self.jobs()

        self.kill_and_start()
        after = self.jobs()
        for job in (held, waiting, paused):
            self.assertEqual(after.pop(job), before[job])
        self.assertEqual(after.pop(edited), (1, *before[edited][1:]))
        # Its run ended as abnormal; the next one keeps its day.
        [(following, (status, date, title))] = after.items()
        self.assertGreater(following, running)
        self.assertEqual((status, title), (1, "running"))
        self.assertAlmostEqual(date, time.time() + DAY, delta=600)
        lines, _ = self.house.report(self.peer, running)
        self.assertEqual(lines[-1][0], 3)

        large.unlink()
        # Started by hand all the same, it makes its backup, and its time stays.
        self.tell("KTbg", following)
        change = self.peer.wait_for("KTjc", 60, lambda m: m.get("job_id") == following and m.get("new_id"))
        self.assertEqual(self.jobs()[change.get("new_id")][:2], (1, date))
        self.kill_and_start()
        self.assertIn(change.get("new_id"), self.jobs())

    def test_what_was_missed_runs_once(self):
        due = int(time.time()) + 2
        job = self.submit("missed", due)
        self.house.stop_server(signal.SIGKILL)
        wait(lambda: time.time() > due, "the time that is missed")
        self.start()
        wait(lambda: job not in self.jobs() and self.jobs(), "its run", 60)
        [(following, (status, date, _))] = self.jobs().items()
        self.assertEqual((status, date), (1, due + DAY))
        self.assertEqual(len(self.house.backups()), 1)

if __name__ == "__main__":
    unittest.main(verbosity=2)
