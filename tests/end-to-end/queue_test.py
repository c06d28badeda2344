#!/usr/bin/env python3
"""Programs that watch and edit one queue: what they hear of each other, and whose marks hold a job back."""
import os
import unittest

import house
import wire
from house import ServerTest

WAITING, RUNNING, PAUSED, EDITED = 1, 2, 3, 4
NOTICES = ("KTJI", "KTJR", "KTjc", "KTLi", "KTLr", "rpIN", "rpRM")


class QueueTest(ServerTest):
    def setUp(self):
        super().setUp()
        self.one = self.peer
        (self.house.source / "letter").write_text("Dear reader")

    def submit(self, title, packer="KTZstd", level=None, **start_info):
        job = self.house.job(title, packer=packer, **start_info)
        if level is not None:
            job.get("bak_packer").add("addon", packer).add("level", level)
        self.one.send(job)
        inserted = self.one.wait_for("KTJI", where=lambda m: m.text("title") == title and not m.get("base"))
        return inserted.get("job_id")

    def tell(self, peer, code, job, **fields):
        peer.send(wire.Message(code, job_id=job, **fields))

    def jobs(self, peer=None):
        listed = (peer or self.one).ask(wire.Message("KTJL"))
        return {number: status for number, status, base in
                zip(*(listed.all(name) for name in ("job_id", "jobstatus", "base"))) if not base}

    def occupy(self):
        """A running job that keeps the destination to itself: it has much to do, and is paused."""
        with (self.house.source / "large").open("wb") as file:
            file.write(os.urandom(48 << 20))
        job = self.submit("Occupier", packer="KTXz", level=9)
        self.tell(self.one, "KTJP", job)
        house.wait(lambda: self.jobs()[job] == PAUSED, "the pause")
        (self.house.source / "large").unlink()
        return job

    def heard(self, peer):
        """All notices until now, in order."""
        peer.ask(wire.Message("KTJL"))
        return [message for message in peer.arrived if message.what in NOTICES]


class TwoWatchers(QueueTest):
    def setUp(self):
        super().setUp()
        self.two = self.house.connect(kind=wire.Stranger)

    def test_both_hear_the_same(self):
        self.one.send(self.house.job("First", submitonhold=1))
        self.two.wait(lambda: self.two.arrived, 10, "the job")
        job = self.two.arrived[0].get("job_id")
        self.tell(self.two, "KTje", job, edit=1)
        description = self.two.ask(wire.Message("KTjg", job_id=job))
        self.two.send(wire.Message("KTjs", job_id=job, job_data=description.add("title", "Second")))
        self.tell(self.two, "KTje", job, edit=0)
        self.two.ask(wire.Message("KTJL"))
        self.tell(self.one, "KTJC", job)
        self.one.wait_for("KTJf", 60)
        for peer in (self.one, self.two):
            peer.wait(lambda peer=peer: any(m.what == "KTJR" for m in peer.arrived), 60, "the end")
        first, second = self.heard(self.one), self.heard(self.two)
        self.assertEqual([message.flatten() for message in first], [message.flatten() for message in second])
        changes = [(m.get("jobstatus"), m.text("title")) for m in first if m.what == "KTjc"]
        self.assertEqual(changes, [(EDITED, ""), (None, "Second"), (PAUSED, ""), (WAITING, ""), (RUNNING, "")])
        # Who hears of the end finds the report and the backup in the lists.
        self.assertEqual(sorted(m.what for m in first if m.what != "KTjc"), ["KTJI", "KTJI", "KTJR", "KTLi", "rpIN"])

    def hold_back(self):
        """A job that starts as soon as its destination is free, marked by `two`; then it is free."""
        occupier = self.occupy()
        job = self.submit("Held back")
        self.tell(self.two, "KTje", job, edit=1)
        self.two.ask(wire.Message("KTJL"))
        self.tell(self.one, "KTbg", job)  # nor is it started by hand
        self.tell(self.one, "KTJD", occupier, flag=1)
        self.one.wait_for("KTJR", where=lambda m: m.get("job_id") == occupier)
        self.assertEqual(self.jobs(), {job: EDITED})
        return job

    def runs(self, job):
        end = self.one.wait_for("KTJf", 60, lambda m: m.get("job_id") == job)
        self.assertEqual(end.get("status"), 0)

    def test_an_edit_mark_holds_a_job_until_it_is_taken_away(self):
        job = self.hold_back()
        self.tell(self.one, "KTje", job, edit=0)  # not whose mark it is
        self.assertEqual(self.jobs(), {job: EDITED})
        self.tell(self.two, "KTje", job, edit=0)
        self.runs(job)

    def test_an_edit_mark_goes_with_a_connection_that_is_cut(self):
        job = self.hold_back()
        self.house.connect(kind=wire.Stranger).close()  # somebody else's
        self.assertEqual(self.jobs(), {job: EDITED})
        self.two.socket.sendall(b"\0" * 64)  # what is no frame ends the connection
        self.runs(job)

    def test_two_editors(self):
        job = self.submit("Contested", submitonhold=1)
        for peer in (self.one, self.two):
            self.tell(peer, "KTje", job, edit=1)
            self.tell(peer, "KTje", job, edit=1)  # once more does not count
        # Neither is kept from storing; the later one counts.
        for peer, title in ((self.one, "By one"), (self.two, "By two")):
            description = peer.ask(wire.Message("KTjg", job_id=job))
            peer.send(wire.Message("KTjs", job_id=job, job_data=description.add("title", title)))
            for hearer in (self.one, self.two):
                hearer.wait_for("KTjc", where=lambda m, title=title: m.text("title") == title)
        self.tell(self.one, "KTje", job, edit=0)
        self.assertEqual(self.jobs(), {job: EDITED})
        self.tell(self.two, "KTje", job, edit=0)
        self.assertEqual(self.jobs(self.two), {job: PAUSED})
        stored = self.one.ask(wire.Message("KTjg", job_id=job))
        self.assertEqual(stored.get("start_info").text("title"), "By two")

    def test_deleting_against_editing(self):
        job = self.submit("Wanted and unwanted", submitonhold=1)
        self.tell(self.one, "KTje", job, edit=1)
        self.one.ask(wire.Message("KTJL"))
        for fields in ({}, {"flag": 1}):
            self.tell(self.two, "KTJD", job, **fields)
            self.assertEqual(self.jobs(self.two), {job: EDITED})
        self.tell(self.one, "KTje", job, edit=0)
        self.one.ask(wire.Message("KTJL"))
        self.tell(self.two, "KTJD", job)
        # What comes too late for it is not heard of, and does no harm.
        description = self.house.job("From the grave")
        self.tell(self.one, "KTje", job, edit=1)
        self.one.send(wire.Message("KTjs", job_id=job, job_data=description))
        self.assertEqual(self.one.ask(wire.Message("KTjg", job_id=job)).what, "NONE")
        self.one.wait_for("KTJR")
        self.one.arrived.clear()
        self.tell(self.one, "KTje", job, edit=0)
        self.assertEqual(self.heard(self.one), [])
        self.assertEqual(self.jobs(), {})

    def test_a_running_job_is_not_edited(self):
        job = self.occupy()
        self.tell(self.two, "KTje", job, edit=1)
        self.assertEqual(self.two.ask(wire.Message("KTjg", job_id=job)).what, "NONE")
        self.two.send(wire.Message("KTjs", job_id=job, job_data=self.house.job("Too late")))
        self.assertEqual(self.jobs(self.two), {job: PAUSED})
        self.tell(self.two, "KTJD", job, flag=1)
        self.assertEqual(self.one.wait_for("KTJf", 20).get("status"), 1)


if __name__ == "__main__":
    unittest.main(verbosity=2)
