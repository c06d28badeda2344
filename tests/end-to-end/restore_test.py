#!/usr/bin/env python3
"""Real restores by the real server: into the old place, into others, and when something goes wrong."""
import hashlib
import os
import shutil
import signal
import subprocess
import unittest

import house
import wire
from house import House


class Restore(unittest.TestCase):
    def setUp(self):
        self.house = House()
        self.addCleanup(self.house.__exit__)
        self.house.start_server()
        self.peer = self.house.connect()

    def save(self):
        _, status = self.house.run_job(self.peer, self.house.job())
        self.assertEqual(status, 0)
        self.backup = self.house.backups()[-1].name
        self.place = self.house.rule(self.house.source, False)

    def restore_job(self, paths=("",), target=None, **settings):
        """Of the saved source: the paths below it ("": all of it), to the target instead of the old place."""
        selection = wire.Message("SELE")
        for path in paths:
            record = f"/{self.backup}{self.place}{path}" + ("" if path else "/*")
            selection.add("SELECTION", "INCLUDE " + record)
            if target:
                selection.add("source", "REDIREC " + record).add("redirect", str(target))
        restore = wire.Message("REST", divert=1 if target else 0, createemptydirs=1)
        for key, value in settings.items():
            restore.add(key, value)
        return wire.Message("KTJA", client_id=os.getpid(), job_type=4, selection=selection, restore=restore,
                            start_info=wire.Message("STRT", title="Back again"))

    def target(self):
        folder = self.house.root / "elsewhere"
        folder.mkdir()
        return folder

    def test_a_destroyed_tree_is_back_in_its_place(self):
        house.make_tree(self.house.source)
        house.make_deep(self.house.source, b"d" * 200, 24)
        was = house.describe(self.house.source)
        self.save()
        shutil.rmtree(self.house.source)
        job_id, status = self.house.run_job(self.peer, self.restore_job())
        lines, _ = self.house.report(self.peer, job_id)
        self.assertEqual(status, 0, [line for line in lines if line[0] == 3])
        self.assertEqual(house.differences(was, self.house.source), [])

    def test_existing_files_stay_unless_said_otherwise(self):
        (self.house.source / "letter").write_text("as it was")
        self.save()
        (self.house.source / "letter").write_text("written since")
        self.assertEqual(self.house.run_job(self.peer, self.restore_job(("/letter",)))[1], 0)
        self.assertEqual((self.house.source / "letter").read_text(), "written since")
        self.assertEqual(self.house.run_job(self.peer, self.restore_job(("/letter",), overwrite=2))[1], 0)
        found = sorted(path.read_text() for path in self.house.source.iterdir())
        self.assertEqual(found, ["as it was", "written since"])
        self.assertEqual((self.house.source / "letter").read_text(), "as it was")

    def test_killed_in_the_middle_no_half_file_has_a_name(self):
        sums = {}
        for number in range(60):
            data = os.urandom(3_000_000)
            (self.house.source / f"file-{number}").write_bytes(data)
            sums[f"file-{number}"] = hashlib.sha256(data).hexdigest()
        self.save()
        target = self.target()
        self.peer.send(self.restore_job(target=target))
        house.wait(lambda: len(list(target.iterdir())) > 5, "the first restored files")
        self.house.stop_server(signal.SIGKILL)
        there = list(target.iterdir())
        self.assertLess(len(there), 60, "too late to kill it in the middle")
        for path in there:
            self.assertEqual(hashlib.sha256(path.read_bytes()).hexdigest(), sums.get(path.name), path.name)

        self.house.start_server()
        self.peer = self.house.connect()
        self.assertEqual(self.house.run_job(self.peer, self.restore_job(target=target))[1], 0)
        self.assertEqual({path.name for path in target.iterdir()}, sums.keys())

    def test_full_target_ends_with_its_line(self):
        target = self.target()
        if subprocess.run(["mount", "-t", "tmpfs", "-o", "size=4M", "none", target],
                          capture_output=True).returncode != 0:
            self.skipTest("needs the right to mount")
        self.addCleanup(subprocess.run, ["umount", target])
        (self.house.source / "small").write_text("small")
        (self.house.source / "too big").write_bytes(os.urandom(12_000_000))
        self.save()
        job_id, status = self.house.run_job(self.peer, self.restore_job(target=target))
        self.assertEqual(status, 2)
        lines, _ = self.house.report(self.peer, job_id)
        self.assertTrue([line for line in lines if line[0] == 3 and line[1] == 3], lines)
        self.assertLessEqual({path.name for path in target.iterdir()}, {"small"})

    def test_a_backup_that_is_not_there(self):
        (self.house.source / "a").write_text("a")
        self.save()
        shutil.rmtree(self.house.target / self.backup)
        job_id, status = self.house.run_job(self.peer, self.restore_job(target=self.target()))
        self.assertEqual(status, 2)
        lines, _ = self.house.report(self.peer, job_id)
        self.assertTrue([line for line in lines if line[0] == 3], lines)


if __name__ == "__main__":
    unittest.main(verbosity=2)
