#!/usr/bin/env python3
"""Backups protected by a password: made, opened and restored by the real server, and by hand."""
import errno
import os
import pathlib
import re
import signal
import subprocess
import unittest

import house
import wire
from house import ServerTest

PASSWORD = "open-sesame-4711"
TYPE_PASSWORD = pathlib.Path(__file__).resolve().parent.parent / "support/type_password.py"


def key_of(words):
    """The 32 bytes that "AGE-SECRET-KEY-1…" stands for."""
    number = 0
    for letter in words.lower().split("1", 1)[1][:-6]:
        number = number << 5 | "qpzry9x8gf2tvdw0s3jn54khce6mua7l".index(letter)
    return (number >> 4).to_bytes(32, "big")


class Protection(ServerTest):
    def job(self, password=PASSWORD, **options):
        return self.house.job(passonoff=1, password=password, **options)

    def save(self, **options):
        job_id, status = self.house.run_job(self.peer, self.job(**options))
        self.assertEqual(status, 0)
        return job_id, self.house.backups()[-1]

    def read(self, backup, target, job_type=4):
        """Restores it below a folder, or checks it: how that ended, and the errors that were told."""
        job_id, status = self.house.run_job(self.peer, self.house.read_job(backup.name, target, job_type))
        return status, self.errors_of(job_id)

    def unlock(self, peer, backup, password):
        answer = peer.ask(wire.Message("ktpc", name=backup.name, pw=password), 30)
        self.assertEqual(answer.what, "ktpr")
        return answer.get("result")

    def by_hand(self, folder, command):
        """A shell command in a folder, the password typed when it is asked for."""
        done = subprocess.run(["python3", TYPE_PASSWORD, PASSWORD, f"cd {folder} && {command}"],
                              capture_output=True, timeout=120)
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        return done.stdout

    def in_memory(self, secret):
        """How often the server's memory holds these bytes."""
        def areas():
            return pathlib.Path(f"/proc/{self.house.server.pid}/maps").read_text()
        if re.search(r"lib[at]san\.so", areas()):
            self.skipTest("a sanitizer maps more than can be looked through")

        def look():
            found = 0
            with open(f"/proc/{self.house.server.pid}/mem", "rb") as memory:
                for line in areas().splitlines():
                    area, rights = line.split()[:2]
                    if rights.startswith("rw"):
                        begin, end = (int(part, 16) for part in area.split("-"))
                        memory.seek(begin)
                        found += memory.read(end - begin).count(secret)
            return found
        while True:
            try:
                return look()
            except OSError as problem:  # an area that went while it was looked at
                if problem.errno != errno.EIO:
                    raise

    def test_split_backups_come_back_by_us_and_by_hand(self):
        house.make_tree(self.house.source)
        (self.house.source / "noise").write_bytes(os.urandom(20_000_000))
        _, backup = self.save(mediasize=16 << 20)
        self.assertTrue((backup / "0002.tar.zst.age").exists())
        subprocess.run(["sha256sum", "--quiet", "-c", "SHA256SUMS"], cwd=backup, check=True)
        self.assertEqual(self.peer.ask(wire.Message("ktpc", name=backup.name)).get("protected"), 1)
        self.assertEqual(self.peer.ask(wire.Message("KTLR", path=f"/{backup.name}")).what, "KTLi")

        self.assertEqual(self.unlock(self.peer, backup, PASSWORD), 1)
        target = self.house.folder("by us")
        self.assertEqual(self.read(backup, target), (0, []))
        self.assertEqual(house.differences(self.house.source, target), [])
        # It was open for that one job.
        self.assertEqual(self.read(backup, target), (2, [96, 55]))  # nothing else is to be restored
        self.unlock(self.peer, backup, PASSWORD)
        self.assertEqual(self.read(backup, target, 1000)[0], 0)

        hand = self.house.folder("by hand")
        # The password is asked for once for each medium.
        key = self.by_hand(backup, "age -d key.age").decode().split()[-1]
        self.assertTrue(key.startswith("AGE-SECRET-KEY-1"))
        self.by_hand(backup, "for f in $(ls -v *.tar.zst.age); do age -d -i key.age $f; done | zstd -dc | tar -xp "
                             f"--xattrs --xattrs-include='*' --acls --numeric-owner -C '{hand}'")
        restored = hand / self.house.rule(self.house.source, False).lstrip("/")
        self.assertEqual(house.differences(self.house.source, restored), [])
        self.assertEqual(self.house.places_of(PASSWORD), "")
        self.assertEqual(self.house.places_of(key), "")

    def test_a_key_is_in_memory_only_while_it_is_needed(self):
        (self.house.source / "a").write_text("a")
        _, backup = self.save()
        words = self.by_hand(backup, "age -d key.age").split()[-1]
        key = key_of(words.decode())
        try:
            self.assertEqual(self.in_memory(key), 0)
        except PermissionError:
            self.skipTest("the memory of other processes cannot be read here")
        self.assertEqual(self.unlock(self.peer, backup, PASSWORD), 1)
        self.assertEqual(self.in_memory(key), 1)
        self.assertEqual(self.read(backup, self.house.folder("elsewhere"))[0], 0)
        self.assertEqual(self.in_memory(key), 0)
        self.assertEqual(self.in_memory(words), 0)

        other = self.house.connect()
        self.assertEqual(self.unlock(other, backup, PASSWORD), 1)
        self.assertEqual(self.in_memory(key), 1)
        for peer in (self.peer, other):  # one process, so it is gone when both are
            peer.close()
        house.wait(lambda: self.in_memory(key) == 0, "the key of a client that is gone being wiped")

    def test_a_password_holds_up_nobody(self):
        (self.house.source / "a").write_text("a")
        _, backup = self.save()
        other = self.house.connect()
        self.peer.socket.sendall(wire.frame(2, wire.Message("ktpc", name=backup.name, pw="x").flatten(), request=99))
        for _ in range(5):
            self.assertEqual(other.ask(wire.Message("KTJL")).what, "KTJI")
        self.peer.pump(0)
        self.assertNotIn(99, self.peer.answers)
        self.peer.wait(lambda: 99 in self.peer.answers, 30, "the answer to the password")
        self.assertEqual(self.peer.answers[99].get("result"), 0)

    def test_a_job_that_waits_needs_no_password_later(self):
        (self.house.source / "a").write_text("a")
        self.peer.send(self.job(submitonhold=1))
        job_id = self.peer.wait_for("KTJI").get("job_id")
        described = self.peer.ask(wire.Message("KTjg", job_id=job_id))
        self.assertNotIn("password", described.get("start_info").fields)
        self.house.stop_server(signal.SIGKILL)
        self.assertEqual(self.house.places_of(PASSWORD), "")
        self.assertEqual(self.house.places_of("AGE-SECRET-KEY"), "")
        self.start()
        self.peer.send(wire.Message("KTJC", job_id=job_id))
        self.assertEqual(self.peer.wait_for("KTJf").get("status"), 0)
        [backup] = self.house.backups()
        names = self.by_hand(backup, "age -d -i key.age 0001.tar.zst.age | zstd -dc | tar -t").decode()
        self.assertIn("/a\n", names)

    def test_an_empty_password_protects_nothing_and_the_report_says_so(self):
        (self.house.source / "a").write_text("a")
        job_id, backup = self.save(password="")
        self.assertTrue((backup / "0001.tar.zst").exists())
        self.assertFalse((backup / "key.age").exists())
        _, text = self.house.report(self.peer, job_id)
        self.assertIn(b"The password is empty: the backup is not protected.", text.flatten())


if __name__ == "__main__":
    unittest.main(verbosity=2)
