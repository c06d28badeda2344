#!/usr/bin/env python3
"""Backups on a remote that the test itself serves: made, restored, checked, deleted; bad lines and hung servers."""
import os
import shutil
import signal
import socket
import subprocess
import time
import unittest

import house
import wire
from house import ServerTest

PASSWORD = "correct-horse-4711"
# An address of this process's own: while a server is away, no other test's takes its place.
HOST = "127." + ".".join(str(byte) for byte in ((os.getpid() + 0x10000) & 0x7fffff).to_bytes(3, "big"))


@unittest.skipUnless(shutil.which("rclone"), "rclone is not installed")
class Remote(ServerTest):
    protocol = "sftp"

    def start(self):
        with socket.create_server((HOST, 0)) as free:
            self.port = free.getsockname()[1]
        configuration = self.house.root / "rclone.conf"
        where = [f"host={HOST}", f"port={self.port}"] if self.protocol == "sftp" else [
            f"url=http://{HOST}:{self.port}", "vendor=other"]
        for name, password in (("nas", PASSWORD), ("wrong", "mistaken-0815")):
            subprocess.run(["rclone", f"--config={configuration}", "config", "create", name, self.protocol, *where,
                            "user=anna", f"pass={password}"], check=True, capture_output=True)
        self.house.environment["RCLONE_CONFIG"] = str(configuration)
        self.remote = None
        self.addCleanup(lambda: self.remote.kill() or self.remote.wait())
        self.serve()
        super().start()

    def serve(self):
        self.remote = subprocess.Popen(
            ["rclone", "serve", self.protocol, "--config=/dev/null", f"--addr={HOST}:{self.port}", "--user=anna",
             f"--pass={PASSWORD}", self.house.target], stderr=subprocess.DEVNULL)
        house.wait(self.listens, "the remote's port")

    def listens(self):
        with socket.socket() as attempt:
            return attempt.connect_ex((HOST, self.port)) == 0

    def words(self, job_id):
        return self.house.report(self.peer, job_id)[1].flatten()

    def test_made_restored_checked_and_deleted(self):
        house.make_tree(self.house.source)
        (self.house.source / "noise").write_bytes(os.urandom(20_000_000))
        before = house.describe(self.house.source)
        backup = self.save(remote="nas:", packer="KTLz4", mediasize=16 << 20)
        self.assertTrue((backup / "0002.tar.lz4").exists())
        self.assertEqual(sorted(p.name for p in self.house.target.iterdir()), [backup.name, "README.txt"])
        self.assertEqual(house.differences(before, self.house.unpack(backup, ".tar.lz4", "lz4 -dc")), [])

        back = self.house.folder("back")
        job_id, status = self.house.run_job(self.peer, self.house.read_job(backup.name, back))
        self.assertEqual(status, 0, self.errors_of(job_id))
        self.assertEqual(house.differences(before, back), [])
        self.assertEqual(self.house.run_job(self.peer, self.house.read_job(backup.name, job_type=1000))[1], 0)

        self.peer.send(wire.Message("KTxX", name=backup.name, full=1))
        self.peer.wait_for("KTLr", 30, lambda m: m.text("name") == backup.name)
        self.assertEqual(self.house.backups(), [])

    def test_found_and_brought_back_into_the_catalogue(self):
        house.make_tree(self.house.source)
        before = house.describe(self.house.source)
        backup = self.save(remote="nas:")
        volume = wire.Message("VOLU", addon="KTRemote", remote="nas:")
        for catalogue in (True, False):
            self.peer.send(wire.Message("KTxX", name=backup.name, full=0))
            self.peer.wait_for("KTLr", 30, lambda m: m.text("name") == backup.name)
            if not catalogue:
                (backup / "catalogue.db.zst").unlink()
            found = self.peer.ask(wire.Message("ktvs", id=1, name="KTRemote", settings=volume), 60)
            self.assertEqual((found.text("ID"), found.get("known")), (backup.name, 0))
            job_id, status = self.house.run_job(self.peer, wire.Message(
                "KTJA", client_id=os.getpid(), job_type=6, addon="KTRemote", volume=volume, ID=backup.name,
                start_info=wire.Message("STRT", title="Back in")))
            self.assertEqual(status, 0, self.words(job_id))
            lines, _ = self.house.report(self.peer, job_id)
            self.assertEqual(172 in [text for _, text in lines], not catalogue)
            back = self.house.folder(f"back-{catalogue}")
            self.assertEqual(self.house.run_job(self.peer, self.house.read_job(backup.name, back))[1], 0)
            self.assertEqual(house.differences(before, back), [])

    def test_wrong_credentials_are_told_and_secrets_are_not(self):
        (self.house.source / "a").write_text("a")
        job_id, status = self.house.run_job(self.peer, self.house.job(remote="wrong:"))
        self.assertEqual(status, 2)
        self.assertIn(b"refuses the user name, the password or the key", self.words(job_id))
        job_id, status = self.house.run_job(self.peer, self.house.job(remote=f"nas,pass={PASSWORD}:x"))
        self.assertEqual(status, 2)
        self.save(remote="nas:")
        self.assertNotIn(PASSWORD.encode(), self.words(job_id))
        self.house.stop_server()
        # The job that was refused named a password itself; of the others nothing may be left anywhere.
        for secret in ("mistaken-0815", subprocess.run(["rclone", "config", "dump"], env=self.house.environment,
                                                       capture_output=True, text=True).stdout.split('"pass": "')[1]
                       .split('"')[0]):
            self.assertEqual(self.house.places_of(secret), "")

    def test_a_lost_connection_is_told_and_mended(self):
        (self.house.source / "noise").write_bytes(os.urandom(60_000_000))
        before = house.describe(self.house.source)
        job_id = self.house.submit(self.peer, self.house.job(remote="nas:"))
        house.wait(lambda: list(self.house.target.glob("2*.partial/0001*")), "the first medium", 30)
        self.remote.kill()
        self.remote.wait()
        self.peer.wait_for("KTJF", 60, lambda m: b"Trying again" in m.flatten())
        self.serve()
        self.assertEqual(self.peer.wait_for("KTJf", 60).get("status"), 0, self.words(job_id))
        self.assertIn(b"Trying again", self.words(job_id))
        [backup] = self.house.backups()
        self.assertEqual(house.differences(before, self.house.unpack(backup)), [])

    def test_a_job_on_a_hung_remote_ends_when_it_is_aborted(self):
        (self.house.source / "noise").write_bytes(os.urandom(200_000_000))
        job_id = self.house.submit(self.peer, self.house.job(remote="nas:"))
        house.wait(lambda: list(self.house.target.glob("2*.partial/0001*")), "the first medium", 30)
        self.remote.send_signal(signal.SIGSTOP)
        start = time.monotonic()
        self.peer.send(wire.Message("KTJD", job_id=job_id, flag=1))
        self.assertEqual(self.peer.wait_for("KTJf", 10).get("status"), 1)
        self.assertLess(time.monotonic() - start, 8)
        self.remote.send_signal(signal.SIGCONT)
        self.assertEqual(self.house.backups(), [])


class RemoteByWebdav(Remote):
    protocol = "webdav"
    # The protocol matters to reading and writing only; and this one takes a file only whole, which leaves
    # nothing to wait for in the middle of it.
    test_found_and_brought_back_into_the_catalogue = None
    test_wrong_credentials_are_told_and_secrets_are_not = None
    test_a_lost_connection_is_told_and_mended = None
    test_a_job_on_a_hung_remote_ends_when_it_is_aborted = None


if __name__ == "__main__":
    unittest.main(verbosity=2)
