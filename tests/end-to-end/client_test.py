#!/usr/bin/env python3
"""The real client in front of a server that is this test: what it says at start, what it answers, what it
ignores, and that no rubbish brings it down."""
import os
import signal
import struct
import subprocess
import unittest

import house
import wire
from house import House

CLIENT = "application/x-vnd.velmoraware-backup"
SERVER = "application/x-vnd.velmoraware-backupserver"


def report_line(*values):
    """A flattened 'ktrl' record of strings."""
    data = b""
    for value in values:
        value = value.encode() + b"\0"
        data += struct.pack("<II", len(value) + 11, wire.code("CSTR")) + value + b"\0\0\0"
    return data + b"ktem"


class Client(unittest.TestCase):
    def setUp(self):
        self.house = House()
        self.addCleanup(self.house.__exit__)
        self.client = None
        self.addCleanup(self.stop)
        self.server = None

    def stop(self):
        if self.client and self.client.poll() is None:
            self.client.kill()
            self.client.wait()
        if self.server:
            self.server.close()

    def start(self, on_request=None, arguments=()):
        self.server = wire.Team(self.house.run_directory, SERVER, on_request or
                                (lambda message: wire.Message("NONE")))
        self.client = self.launch(arguments)
        registered, peer = self.server.wait_for("KTAD")
        self.assertEqual(registered.get("client_id"), self.client.pid)
        return peer

    def launch(self, arguments=()):
        environment = dict(self.house.environment, QT_QPA_PLATFORM="offscreen")
        return subprocess.Popen([self.house.program / "VelmoraBackup", *arguments], env=environment)

    def direct(self):
        return wire.Peer(self.house.run_directory, self.client.pid)

    def property(self, peer, name, form="SDIR"):
        specifier = wire.Message(form, property=name)
        return peer.ask(wire.Message("PGET", specifiers=specifier))

    def test_scripting(self):
        peer = self.start()
        texts = self.property(peer, "DefaultText")
        self.assertEqual((texts.what, len(texts.all("result"))), ("RPLY", 328))
        self.assertEqual(texts.all("result")[17], b"Status:\t\t\t\tBackup successful")
        self.assertEqual(self.property(peer, "DefaultLanguage").all("result"), [b"English"])
        self.assertEqual(self.property(peer, "TextAppID").all("result"), [b"velmora backup locale"])
        for name in ("DefaultTextX", "defaulttext", ""):
            answer = self.property(peer, name)
            self.assertEqual(answer.what, "MNOT")
            self.assertLess(answer.get("error"), 0)
            self.assertTrue(answer.text("message"))
        self.assertEqual(self.property(peer, "DefaultText", "NAME").what, "MNOT")

    def test_a_job_start_gets_a_panel(self):
        peer = self.start()
        accepted = peer.ask(wire.Message("KTJS", job_id=7, job_type=1, title="From outside"))
        self.assertEqual((accepted.what, accepted.get("job_id")), ("KTAB", 7))
        team, token = accepted.get("user")
        self.assertEqual(team, self.client.pid)
        self.assertGreater(token, 0)
        update = wire.Message("KTJF", job_id=7, text_id=279, linetype=4)
        update.add("reportline", report_line("Data"), "ktrl")
        peer.socket.sendall(wire.frame(1, update.flatten(), token=token))
        hostile = wire.Message("KTJF", job_id=7, text_id=85, linetype=3)
        hostile.add("reportline", b"\xff\xff\xff\xffRTSC%n%n%n", "ktrl")
        peer.socket.sendall(wire.frame(1, hostile.flatten(), token=token))
        end = wire.Message("KTJf", job_id=7, status=0)
        peer.socket.sendall(wire.frame(1, end.flatten(), token=token))
        self.assertEqual(self.property(peer, "DefaultLanguage").what, "RPLY")
        # Without a job id there is no panel, and no address.
        self.assertNotEqual(peer.ask(wire.Message("KTJS", title="nobody's")).what, "KTAB")

    def test_relays_and_routing(self):
        def answer(message):
            if message.what == "KTLR":
                return wire.Message("what", name="answered")
            if message.what == "ktpc":
                return wire.Message("what", result=1)
            return wire.Message("NONE")
        self.start(answer)
        with_client = self.direct()
        listed = self.ask_while_serving(with_client, wire.Message("KTLR", path="/"))
        self.assertEqual((listed.what, listed.text("name")), ("KTLi", "answered"))
        checked = self.ask_while_serving(with_client, wire.Message("ktpc", name="x", pw="y"))
        self.assertEqual((checked.what, checked.get("result")), ("ktpr", 1))
        with_client.send(wire.Message("KTJA", job_type=1))
        submitted, _ = self.server.wait_for("KTJA")
        self.assertEqual(submitted.all("client_id"), [self.client.pid])
        with_client.send(wire.Message("KTJA", client_id=99, job_type=1))
        self.assertEqual(self.server.wait_for("KTJA")[0].all("client_id"), [99, self.client.pid])
        # Unknown codes go to the server when they name a job; notices and internal commands never do.
        for what in ("KTJI", "KTjc", "KTLi", "svrm", "bavw", "zzzz"):
            with_client.send(wire.Message(what, path="x"))
        with_client.send(wire.Message("KTJR", job_id=3))
        with_client.send(wire.Message("yyyy", job_id=3))
        self.assertEqual(self.server.wait_for("yyyy")[0].get("job_id"), 3)
        seen = [m.what for peer in self.server.peers for m in peer.arrived]
        self.assertFalse({"KTJI", "KTJR", "KTjc", "KTLi", "svrm", "bavw", "zzzz"} & set(seen), seen)

    def ask_while_serving(self, peer, message):
        request = peer.next_request
        peer.next_request += 1
        peer.socket.sendall(wire.frame(2, message.flatten(), request=request))

        def answered():
            self.server.pump(0.01)
            return request in peer.answers
        peer.wait(answered, 10, f"an answer to {message.what}")
        return peer.answers.pop(request)

    def test_rubbish_ends_only_its_own_connection(self):
        peer = self.start()
        body = wire.Message("KTJI").flatten()
        for data in (b"\xff" * 64, wire.frame(9, body), wire.frame(1, body, sender=1), wire.frame(1, b"x"),
                     wire.frame(1, os.urandom(500))):
            bad = self.direct()
            bad.socket.sendall(data)
            try:
                bad.wait(lambda bad=bad: bad.closed, 5, "the client hanging up")
            except ConnectionResetError:
                pass
        # Notices with fields that are not what they should be.
        peer.send(wire.Message("KTJI", job_id="not a number", title=5))
        peer.send(wire.Message("KTJI", job_id=1).add("job_id", 2).add("title", "only one"))
        peer.send(wire.Message("KTLi", type="x"))
        peer.send(wire.Message("rpIN", report_id=-1))
        self.assertEqual(self.property(peer, "DefaultLanguage").what, "RPLY")

    def test_a_second_client_hands_over_and_ends(self):
        self.start()
        second = self.launch([str(self.house.source)])
        self.assertEqual(second.wait(20), 0)
        self.assertIsNone(self.client.poll())

    def test_quit_request_writes_settings(self):
        peer = self.start()
        peer.send(wire.Message("_QRQ"))
        self.assertEqual(self.client.wait(20), 0)
        settings = (self.house.program / "Backup.prefs").read_bytes()
        self.assertEqual(settings[:100], b"KTBACKUP" + bytes(92))
        stored = wire.Message.parse(settings[100:])
        self.assertEqual(stored.fields["KT_MAINWINPOS"][0], "RECT")
        self.assertEqual(stored.get("status").get("autoopen"), 1)
        self.assertEqual(stored.get("restore").get("restore").get("divert"), 1)

    def test_damaged_settings_are_survived(self):
        for content in (b"", b"KTBACKUP", b"KTBACKUP" + bytes(92), b"KTBACKUP" + bytes(92) + b"rubbish" * 50,
                        b"SOMETHIN" + bytes(200)):
            with self.subTest(content=content[:16]):
                (self.house.program / "Backup.prefs").write_bytes(content)
                peer = self.start()
                self.assertEqual(self.property(peer, "DefaultLanguage").what, "RPLY")
                self.stop()

    def test_the_server_dies_and_the_client_lives(self):
        self.start()
        self.server.close()
        self.server = None
        self.assertEqual(self.property(self.direct(), "DefaultLanguage").what, "RPLY")

    def test_launches_the_server_and_leaves_it_running(self):
        self.client = self.launch()
        lock = self.house.run_directory / (SERVER.replace("/", "_") + ".lock")
        house.wait(lambda: lock.exists() and lock.read_text().endswith("\n"), "the server")
        house.wait(lambda: (self.house.run_directory / f"team-{self.client.pid}.sock").exists(), "the client")
        team = int(lock.read_text())
        self.client.send_signal(signal.SIGKILL)
        self.client.wait()
        server = wire.Peer(self.house.run_directory, team)
        self.assertEqual(server.ask(wire.Message("KTJL")).what, "NONE")


if __name__ == "__main__":
    unittest.main(verbosity=2)
