#!/usr/bin/env python3
"""Programs that take nothing any more, while others go on: nobody waits for them, and what is kept for them
does not grow without bound."""
import contextlib
import os
import pathlib
import select
import signal
import statistics
import time
import unittest

import house
import wire
from house import ServerTest

MIB = 1 << 20
EDITED = 4


class Hanging(ServerTest):
    def setUp(self):
        super().setUp()
        self.hanging = self.house.connect(kind=wire.Stranger)
        self.times = []

    def ask(self, message):
        begin = time.monotonic()
        answer = self.peer.ask(message)
        self.times.append(time.monotonic() - begin)
        return answer

    def answered_quickly(self):
        """How long the others waited. The worst of many may be the machine's fault."""
        print(f"[{len(self.times)} answers, median {1000 * statistics.median(self.times):.1f} ms, "
              f"longest {1000 * max(self.times):.1f} ms]", end=" ", flush=True)
        self.assertLess(statistics.median(self.times), 0.3)

    def memory(self):
        """What the server has ever had in memory, in bytes."""
        for line in pathlib.Path(f"/proc/{self.house.server.pid}/status").read_text().splitlines():
            if line.startswith("VmHWM:"):
                return int(line.split()[1]) * 1024
        raise AssertionError("no VmHWM")

    def grew_little(self, before):
        grown = self.memory() - before
        print(f"[{grown // MIB} MiB more]", end=" ", flush=True)
        self.assertLess(grown, 300 * MIB)

    def areas(self):
        """The sizes of the server's areas."""
        sizes = []
        for area in pathlib.Path("/dev/shm").glob(f"velmora-{self.house.server.pid}-*"):
            with contextlib.suppress(FileNotFoundError):
                sizes.append(area.stat().st_size)
        return sizes

    def is_cut(self):
        poll = select.poll()
        poll.register(self.hanging.socket, 0)
        return any(events & select.POLLHUP for _, events in poll.poll(0))

    def make_held(self, title):
        self.peer.send(self.house.job(title, submitonhold=1))
        return self.peer.wait_for("KTJI", where=lambda m: m.text("title") == title).get("job_id")

    def test_who_never_reads_what_it_is_told_is_cut(self):
        job = self.make_held("Grows")
        self.hanging.send(wire.Message("KTje", job_id=job, edit=1))
        house.wait(lambda: self.ask(wire.Message("KTJL")).get("jobstatus") == EDITED, "the mark")
        before = self.memory()
        description = self.peer.ask(wire.Message("KTjg", job_id=job))
        status = EDITED
        told = 0
        while status == EDITED and told < 400:
            told += 1
            title = f"{told} ".ljust(MIB)
            description.fields.pop("title", None)
            self.peer.send(wire.Message("KTjs", job_id=job, job_data=description.add("title", title)))
            self.peer.wait_for("KTjc", where=lambda m, title=title: m.text("title") == title)
            status = self.ask(wire.Message("KTJL")).get("jobstatus")
        # The mark has gone with it.
        self.assertNotEqual(status, EDITED)
        self.assertGreater(told, 60)
        self.assertLess(told, 80)
        self.grew_little(before)
        self.answered_quickly()

    def test_who_never_reads_the_answers_is_cut(self):
        job = self.make_held("x" * MIB)
        request = wire.frame(2, wire.Message("KTjg", job_id=job).flatten(), request=1, sender=self.hanging.team)
        before = self.memory()
        with self.assertRaises(OSError):
            for _ in range(400):
                self.hanging.socket.sendall(request)
                self.ask(wire.Message("rpGL"))
        self.grew_little(before)
        self.answered_quickly()

    def test_areas_for_who_never_reads_them_are_limited_and_go_with_it(self):
        for number in range(12_000):
            (self.house.source / f"{number:05} {'long ' * 40}").touch()
        _, status = self.house.run_job(self.peer, self.house.job("Talkative"))
        self.assertEqual(status, 0)
        report = self.peer.ask(wire.Message("rpGL")).get("report_id")
        before = self.memory()
        opening = wire.Message("rpOP", report_id=report).add("user", (self.hanging.team, 5), "MSNG")
        for _ in range(5):
            self.hanging.send(opening)
        house.wait(lambda: len(self.areas()) == 5, "five areas")
        for _ in range(100):
            self.hanging.send(opening)
        most = 0
        while not self.is_cut():
            self.ask(wire.Message("KTJL"))
            most = max(most, sum(self.areas()))
        self.assertGreater(most, 50 * MIB)
        self.assertLessEqual(most, 64 * MIB)
        house.wait(lambda: self.areas() == [], "its areas to go")
        self.grew_little(before)
        self.answered_quickly()

    def test_jobs_of_a_program_that_is_stopped_run(self):
        house.make_tree(self.house.source)
        os.kill(self.hanging.team, signal.SIGSTOP)
        self.addCleanup(os.kill, self.hanging.team, signal.SIGCONT)
        job = self.house.job("Of one that hangs")
        job.fields["client_id"] = ("LONG", [self.hanging.team])
        self.hanging.send(job)
        house.wait(lambda: self.ask(wire.Message("rpGL")).what == "rpIN", "its end", 60)
        self.assertEqual(len(self.house.backups()), 1)
        self.answered_quickly()


if __name__ == "__main__":
    unittest.main(verbosity=2)
