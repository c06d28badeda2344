#!/usr/bin/env python3
"""Restores by the real server, which is killed in the middle."""
import hashlib
import os
import signal
import unittest

import house
from house import ServerTest


class Restore(ServerTest):
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
