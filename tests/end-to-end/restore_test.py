#!/usr/bin/env python3
"""Real restores by the real server: into the old place, and when the server is killed."""
import hashlib
import os
import shutil
import signal
import unittest

import house
from house import ServerTest


class Restore(ServerTest):
    def test_a_destroyed_tree_is_back_in_its_place(self):
        house.make_tree(self.house.source)
        house.make_deep(self.house.source, b"d" * 200, 24)
        was = house.describe(self.house.source)
        job = self.house.read_job(self.save().name)
        shutil.rmtree(self.house.source)
        job_id, status = self.house.run_job(self.peer, job)
        self.assertEqual(status, 0, self.errors_of(job_id))
        self.assertEqual(house.differences(was, self.house.source), [])

    def test_killed_in_the_middle_no_half_file_has_a_name(self):
        sums = {}
        for number in range(60):
            data = os.urandom(3_000_000)
            (self.house.source / f"file-{number}").write_bytes(data)
            sums[f"file-{number}"] = hashlib.sha256(data).hexdigest()
        target = self.house.folder("elsewhere")
        job = self.house.read_job(self.save().name, target)
        self.peer.send(job)
        house.wait(lambda: len(list(target.iterdir())) > 5, "the first restored files")
        self.house.stop_server(signal.SIGKILL)
        there = list(target.iterdir())
        self.assertLess(len(there), 60, "too late to kill it in the middle")
        for path in there:
            self.assertEqual(hashlib.sha256(path.read_bytes()).hexdigest(), sums.get(path.name), path.name)

        self.start()
        self.assertEqual(self.house.run_job(self.peer, job)[1], 0)
        self.assertEqual({path.name for path in target.iterdir()}, sums.keys())

if __name__ == "__main__":
    unittest.main(verbosity=2)
