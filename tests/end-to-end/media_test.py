#!/usr/bin/env python3
"""Backups on discs that are changed: small file systems in files, mounted in one place by the test, as a user
does who puts in a disc when he is asked for it."""
import json
import os
import subprocess
import unittest

import house
from house import ServerTest

FULL, INSERT = 2, 51  # the texts that ask for a medium
DISC = 24 << 20


def run(*command):
    return subprocess.run(command, capture_output=True, text=True)


class Media(ServerTest):
    def start(self):
        self.drive = self.house.folder("drive")
        self.discs = []
        self.now = None
        self.addCleanup(self.take_out)
        if os.geteuid() != 0:
            self.skipTest("only root may mount")
        self.new_disc()
        super().start()

    def new_disc(self):
        image = self.house.root / f"disc{len(self.discs) + 1}.img"
        with open(image, "wb") as file:
            file.truncate(DISC)
        made = run("mkfs.ext4", "-q", "-m", "0", "-O", "^has_journal", str(image))
        self.assertEqual(made.returncode, 0, made.stderr)
        self.discs.append(image)
        self.put_in(image)

    def take_out(self):
        if self.now:
            # Fails while anything on it is open.
            done = run("umount", str(self.drive))
            self.now = None
            self.assertEqual(done.returncode, 0, done.stderr)

    def put_in(self, image):
        self.take_out()
        mounted = run("mount", "-o", "loop", str(image), str(self.drive))
        if mounted.returncode != 0:
            self.skipTest("file systems cannot be mounted here: " + mounted.stderr.strip())
        self.now = image

    def asked(self, text_id, seconds=60):
        return self.peer.wait_for("KTJF", seconds, lambda m: m.get("text_id") == text_id)

    def save(self, others):
        """Saves the source; puts in so many further discs, each when one is full."""
        job = self.house.job("Discs", packer="KTNone", target=self.drive)
        job.get("volume").add("removable", 1)
        job_id = self.house.submit(self.peer, job)
        for _ in range(others):
            self.asked(FULL)
            self.new_disc()
        return job_id, self.end(job_id)

    def end(self, job_id):
        return self.peer.wait_for("KTJf", 60, lambda m: m.get("job_id", job_id) == job_id).get("status")

    def read(self, job_type, backup, order, target=None):
        job_id = self.house.submit(self.peer, self.house.read_job(backup, target, job_type))
        for image in order:
            self.asked(INSERT)
            self.put_in(image)
        return self.end(job_id)

    def test_a_backup_on_three_discs(self):
        for number in range(5):
            (self.house.source / f"file{number}").write_bytes(os.urandom(9_000_000))
        os.link(self.house.source / "file0", self.house.source / "z-same")
        was = house.describe(self.house.source)
        job_id, status = self.save(2)
        self.assertEqual(status, 0, self.house.report(self.peer, job_id)[0])

        # Every disc tells what it is; the last one where everything lies.
        together = self.house.folder("together")
        folders = []
        for image in self.discs:
            self.put_in(image)
            self.assertIn("restore", (self.drive / "README.txt").read_text())
            (folder,) = [entry for entry in self.drive.iterdir() if entry.name[0] == "2"]
            folders.append(folder.name)
            self.assertEqual(run("sh", "-c", f"cp {folder}/* {together}").returncode, 0)
            if image is self.discs[-1]:
                manifest = json.loads((folder / "backup.json").read_text())
        backup = folders[-1]
        self.assertEqual(folders, [f"{backup}.disc1", f"{backup}.disc2", backup])
        self.assertEqual(manifest["discs"], 3)
        self.assertEqual([medium["disc"] for medium in manifest["media"]], [1, 2, 3])
        by_hand = self.house.folder("by-hand")
        done = run("sh", "-ec", f"cd {together}; sha256sum --quiet -c SHA256SUMS; "
                   f"cat $(ls -v *.tar) | tar -xpf - -C {by_hand}")
        self.assertEqual((done.returncode, done.stdout), (0, ""), done.stderr)
        root = by_hand / self.house.rule(self.house.source, False).strip("/")
        self.assertEqual(house.differences(was, root), [])

        # Read: in order, each once; the wrong one is not taken.
        target = self.house.folder("elsewhere")
        self.assertEqual(self.read(4, backup, [self.discs[1], *self.discs], target), 0)
        self.assertEqual(house.differences(was, target), [])
        self.assertEqual(self.read(1000, backup, self.discs), 0)
        self.assertEqual(self.read(5, backup, self.discs), 0)

if __name__ == "__main__":
    unittest.main(verbosity=2)
