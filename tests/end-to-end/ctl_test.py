#!/usr/bin/env python3
"""backupctl with the real server: what it saved it lists, finds, checks, brings back and deletes; and how it
comes to a password."""
import os
import pty
import select
import shutil
import threading
import time
import unittest

import house
import wire
from house import ServerTest

SERVER = "application/x-vnd.velmoraware-backupserver"
SECRET = "open-sesame-4711 \u00e4"


class CommandLine(ServerTest):
    def start(self):  # backupctl launches the server
        self.house.environment["LC_ALL"] = "C.UTF-8"

    def save(self, title="Papers"):
        return self.house.ctl("backup", self.house.source, "--to", self.house.target, "--title", title)["backup"]

    def test_there_and_back(self):
        house.make_tree(self.house.source)
        house.make_deep(self.house.source, b"d" * 200, 24)
        was = house.describe(self.house.source)
        name = self.save()
        [listed] = self.house.ctl("list")
        self.assertEqual((listed["name"], listed["title"]), (name, "Papers"))
        [found] = [entry for entry in self.house.ctl("find", "LETTER")["found"]]
        self.assertEqual(found["path"], self.house.rule(self.house.source, False) + "/docs/letter.txt")
        self.assertEqual(found["size"], 600)
        names = [entry["name"] for entry in self.house.ctl("browse", "Papers", self.house.source / "docs")]
        self.assertEqual(names, ["deep", "letter.txt", "same as big"])

        # By the path that find printed, into a folder that is not there yet.
        elsewhere = self.house.root / "else/where"
        self.ctl("restore", name, found["path"], "--to", elsewhere)
        self.assertEqual((elsewhere / "letter.txt").read_bytes(), b"Dear reader\n" * 50)
        # A folder gets its own name in it.
        self.ctl("restore", name, self.house.source, "--to", elsewhere)
        self.assertEqual(house.differences(was, elsewhere / "source"), [])
        # To the old place, which is gone.
        shutil.rmtree(self.house.source)
        result = self.house.ctl("restore", "1", self.house.source)
        self.assertEqual(result["status"], "good")
        self.assertEqual(house.differences(was, self.house.source), [])

    def test_what_has_changed_since(self):
        house.make_tree(self.house.source)
        name = self.save()
        self.assertEqual(self.house.ctl("compare", name)["status"], "good")
        letter = self.house.source / "docs/letter.txt"
        was = letter.stat()
        letter.write_bytes(b"dEAR reader\n" * 50)
        os.utime(letter, ns=(was.st_atime_ns, was.st_mtime_ns))
        (self.house.source / "docs/written since").touch()
        os.chmod(self.house.source / "empty", 0o604)
        shutil.rmtree(self.house.source / "docs/deep")

        def told(*arguments, status=3):
            lines = self.house.ctl("compare", name, *arguments, status=status)["lines"]
            place = self.house.rule(self.house.source, False)
            return sorted(line["text"].replace(place, "") for line in lines if line["linetype"] == 3)
        self.assertEqual(told("--only", "data,permissions"), [
            "/docs/letter.txt: file data different",
            "/docs/written since: is not in the backup",
            "/empty: permissions different (backup: 'rw-r--r--', source: 'rw----r--')",
            "Error: can't access source '/docs/deep'"])
        self.assertEqual(told(letter, "--only", "size", "--only", "modified", status=0), [])
        self.assertEqual(told(letter, "--only", "data"), ["/docs/letter.txt: file data different"])
        # Brought back it is the same again, but for the time at which it was made.
        self.ctl("restore", name, self.house.source / "docs", "--overwrite", "yes")
        self.assertEqual(told(letter, self.house.source / "docs/deep", status=0), [])
        shutil.rmtree(self.house.source)
        self.assertEqual(told(self.house.source), ["Error: can't access source ''"])

    def test_overwriting_only_as_it_was_said(self):
        letter = self.house.source / "letter"
        letter.write_text("old")
        name = self.save()
        for how, expected in (((), {"new"}), (("--overwrite", "older"), {"new"}),
                              (("--overwrite", "rename"), {"old", "new"}), (("--overwrite", "yes"), {"old"})):
            for path in self.house.source.iterdir():
                path.unlink()
            letter.write_text("new")
            os.utime(letter, (4e9, 4e9))
            self.ctl("restore", name, letter, *how)
            self.assertEqual({path.read_text() for path in self.house.source.iterdir()}, expected, how)
        self.ctl("restore", name, self.house.source / "missing", good=(1,))
        for folder in ("a", "b"):
            (self.house.source / folder).mkdir()
            (self.house.source / folder / "same").write_text(folder)
        name = self.save("Namesakes")
        self.assertIn("'same'", self.ctl("restore", name, self.house.source / "a/same", self.house.source / "b/same",
                                         "--to", self.house.root / "x", good=(2,)))

    def test_damage_is_found_and_the_rest_comes_back(self):
        for number in range(3):
            (self.house.source / f"noise-{number}").write_bytes(os.urandom(6_000_000))
        name = self.save()
        self.ctl("verify", name)
        medium = self.house.target / name / "0001.tar.zst"
        with medium.open("r+b") as file:
            file.seek(2_000_000)  # in a frame that holds the first file only
            file.write(b"scratch")
        checked = self.house.ctl("verify", name, status=3)
        self.assertEqual(checked["status"], "done with problems")
        self.assertTrue([line for line in checked["lines"] if line["linetype"] == 3])
        target = self.house.root / "saved"
        self.assertEqual(self.house.ctl("restore", name, "/", "--to", target, status=3)["status"], "done with problems")
        self.assertEqual(len(list(target.rglob("noise-?"))), 2)
        # Nothing at all to read: failed.
        medium.rename(self.house.root / "medium")
        (self.house.target / name).rename(self.house.root / "away")
        self.assertEqual(self.house.ctl("verify", name, status=1)["status"], "failed")
        self.assertEqual(self.house.ctl("restore", name, "/", "--to", target, status=1)["status"], "failed")
        self.ctl("delete", name, "--yes", "--with-data", good=(1,))
        self.ctl("delete", name, "--yes")
        self.assertEqual(self.house.ctl("list"), [])

    def test_a_protected_backup_opens_with_its_password_only(self):
        house.make_tree(self.house.source)
        self.ctl("backup", self.house.source, "--to", self.house.target, "--protect", password=SECRET)
        [backup] = self.house.backups()
        self.assertTrue((backup / "key.age").exists())
        target = self.house.root / "back"
        restore = ("restore", backup.name, self.house.source, "--to", target)
        self.ctl(*restore, good=(1,))  # nobody to ask
        self.ctl(*restore, password="wrong", good=(1,))
        self.assertFalse(target.exists())
        self.ctl(*restore, password=SECRET)
        self.assertEqual(house.differences(self.house.source, target / "source"), [])
        self.ctl("verify", backup.name, password=SECRET)
        self.ctl("compare", backup.name, self.house.source, password=SECRET)
        self.ctl("compare", backup.name, password="wrong", good=(1,))

    def test_deleting_asks_and_takes_the_data_along(self):
        (self.house.source / "a").write_text("a")
        name = self.save()
        self.ctl("delete", name, "--with-data", good=(2,))  # there is nobody to ask
        for answer, left in ((b"n\n", True), (b"\n", True), (b"y\n", False)):
            with Terminal(self.house, "delete", name, "--with-data") as terminal:
                terminal.wait_for(b"[y/N]")
                terminal.type(answer)
                self.assertEqual(terminal.end(), 1 if left else 0)
            self.assertEqual((self.house.target / name).exists(), left)
        self.assertEqual(self.house.backups(), [])


class Passwords(ServerTest):
    """The server's side is played here: what backupctl sends it, and what it never shows."""

    def start(self):
        self.house.environment["LC_ALL"] = "C.UTF-8"
        self.tried = []
        self.team = wire.Team(self.house.run_directory, SERVER, self.answer)
        self.over = threading.Event()
        self.thread = threading.Thread(target=self.serve)
        self.thread.start()
        self.addCleanup(self.stop)

    def serve(self):
        while not self.over.is_set():
            self.team.pump(0.02)

    def stop(self):
        self.over.set()
        self.thread.join()
        self.team.close()

    def answer(self, message):
        if message.what == "KTLR":
            if message.text("path") == "/":
                return wire.Message("KTLi", type=-1, mode=1, name="20261122T201530-0000001a", title="Secret",
                                    job_id=26, base_id=0)
            if SECRET not in self.tried:
                return wire.Message("KTLi", locked=1)
            return wire.Message("KTLi", type=3, name="System").add("size", -1, "LLNG")
        if message.what == "ktpc":
            reply = wire.Message("ktpr", name=message.text("name"))
            if "pw" not in message.fields:
                return reply.add("protected", 1)
            self.tried.append(message.text("pw"))
            return reply.add("result", int(self.tried[-1] == SECRET))
        return None

    def submitted(self):
        jobs = []
        house.wait(lambda: jobs.extend(m for p in self.team.peers for m in p.arrived if m.what == "KTJA") or jobs,
                   "a job")
        return jobs[0]

    def test_from_the_terminal_unseen(self):
        with Terminal(self.house, "browse", "Secret") as terminal:
            terminal.wait_for(b"'Secret'")
            terminal.type(b"wrong\r")
            terminal.wait_for(b"The password is wrong.")
            terminal.wait_for(b"'Secret'")
            terminal.type(b"nonsense\x15" + SECRET.encode() + "\u00f6".encode() + b"\x7f\r")
            self.assertEqual(terminal.end(), 0)
            self.assertIn(b"System/", terminal.seen)
            for shown in (b"wrong\r", b"nonsense", b"sesame"):
                self.assertNotIn(shown, terminal.seen)
        self.assertEqual(self.tried, ["wrong", SECRET])

    def test_giving_up(self):
        with Terminal(self.house, "verify", "26") as terminal:
            terminal.wait_for(b"'Secret'")
            terminal.type(b"half\x03")
            self.assertEqual(terminal.end(), 1)
        with Terminal(self.house, "verify", "26") as terminal:
            for _ in range(3):
                terminal.wait_for(b"'Secret'")
                terminal.type(b"wrong\n")
                terminal.wait_for(b"The password is wrong.")
            self.assertEqual(terminal.end(), 1)
        self.assertEqual(self.tried, ["wrong"] * 3)

    def test_from_a_descriptor(self):
        def browse(password, status):
            self.ctl("browse", "26", password=password, good=(status,))
        browse(b"", 1)
        browse(b"wrong\n", 1)
        browse(b"x" * 5000, 1)
        self.assertEqual(self.tried, ["wrong"])
        browse(SECRET.encode() + b"\nnot this", 0)
        # The one that waits for the end of its job is ended by the server's.
        waiting = threading.Thread(target=self.house.run_ctl, args=("verify", "26"),
                                   kwargs={"password": SECRET.encode()})
        waiting.start()
        job = self.submitted()
        self.assertEqual(job.get("job_type"), 1000)
        self.assertNotIn(SECRET.encode(), job.flatten())
        self.stop()
        waiting.join()

    def test_a_new_one_is_asked_for_twice(self):
        with Terminal(self.house, "backup", self.house.source, "--to", self.house.target, "--protect") as terminal:
            for typed in ("first", "other", SECRET, SECRET):
                terminal.wait_for(b":")
                terminal.type(typed.encode() + b"\n")
            start = self.submitted().get("start_info")
            self.assertEqual((start.get("passonoff"), start.text("password")), (1, SECRET))
            self.assertNotIn(b"sesame", terminal.seen)
        with Terminal(self.house, "backup", self.house.source, "--to", self.house.target, "--protect") as terminal:
            terminal.wait_for(b":")
            terminal.type(b"\n")
            self.assertEqual(terminal.end(), 1)


class Terminal:
    """backupctl on a terminal of its own; what it shows is in `seen`."""

    def __init__(self, where, *arguments):
        self.pid, self.fd = pty.fork()
        if self.pid == 0:
            program = str(where.program / "backupctl")
            os.execve(program, [program, *map(str, arguments)], where.environment)
        self.seen = b""
        self.at = 0
        self.status = None

    def __enter__(self):
        return self

    def __exit__(self, *_):
        if self.status is None:
            os.kill(self.pid, 9)
            os.waitpid(self.pid, 0)
        os.close(self.fd)

    def pump(self, seconds):
        if not select.select([self.fd], [], [], seconds)[0]:
            return True
        try:
            data = os.read(self.fd, 65536)
        except OSError:  # its other end is closed
            data = b""
        self.seen += data
        return bool(data)

    def wait_for(self, text, seconds=20):
        end = time.monotonic() + seconds
        while (found := self.seen.find(text, self.at)) < 0:
            assert time.monotonic() < end, f"waited in vain for {text}; there is {self.seen}"
            assert self.pump(0.2), f"it ended without {text}; there is {self.seen}"
        self.at = found + len(text)

    def type(self, data):
        os.write(self.fd, data)

    def end(self, seconds=30):
        end = time.monotonic() + seconds
        while self.pump(0.2):
            assert time.monotonic() < end, f"it does not end; there is {self.seen}"
        self.status = os.waitstatus_to_exitcode(os.waitpid(self.pid, 0)[1])
        return self.status


if __name__ == "__main__":
    unittest.main(verbosity=2)
