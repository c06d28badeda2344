#!/usr/bin/env python3
"""The desktop is told how jobs ended, by a client that was started with the session and shows no window."""
import shutil
import signal
import subprocess
import unittest

import house
from desktop import ClientTest


@unittest.skipUnless(shutil.which("dbus-daemon") and shutil.which("dbus-monitor"), "needs dbus-daemon and dbus-monitor")
class Notices(ClientTest):
    def setUp(self):
        self.bus = subprocess.Popen(["dbus-daemon", "--session", "--nofork", "--print-address"],
                                    stdout=subprocess.PIPE, text=True)
        self.addCleanup(self.end, self.bus)
        self.address = self.bus.stdout.readline().strip()
        super().setUp()
        self.heard = self.house.root / "heard"
        with open(self.heard, "w", encoding="utf-8") as heard:
            self.monitor = subprocess.Popen(
                ["dbus-monitor", "--address", self.address, "interface='org.freedesktop.Notifications'"], stdout=heard)
        self.addCleanup(self.end, self.monitor)
        # Itself it is heard of as soon as it listens.
        house.wait(lambda: self.heard.read_text(), "the monitor")

    def end(self, process):
        process.kill()
        process.wait()
        if process.stdout:
            process.stdout.close()

    def start_client(self):
        self.launch_client("--background", DBUS_SESSION_BUS_ADDRESS=self.address)
        self.hand.until(lambda: self.hand.get("BackupWindow", "windowTitle"), "the program", 30)

    def backup(self, title, source):
        self.house.run_ctl("backup", source, "--to", self.house.target, "--title", title)
        house.wait(lambda: f'string "{title}"' in self.heard.read_text(), f"the notice of {title}")

    def test_tells_how_jobs_ended_and_opens_when_asked(self):
        house.make_tree(self.house.source)
        self.assertEqual(self.hand.run("visible", "BackupWindow"), "0")
        self.backup("Well", self.house.source)
        self.house.target.rename(self.house.root / "elsewhere")
        self.backup("Nowhere to go", self.house.source)
        heard = self.heard.read_text()
        self.assertEqual(heard.count("member=Notify"), 2)
        self.assertIn('string "Show Report"', heard)
        self.assertIn("Full Backup: it went well.", heard)
        self.assertIn("Full Backup: it ended with errors.", heard)
        # Started once more it shows its window; so does a third start from the session not.
        for arguments, shown in ((["--background"], "0"), ([], "1")):
            subprocess.run([self.house.program / "VelmoraBackup", *arguments], env=self.environment, check=True, timeout=30)
            house.wait(lambda shown=shown: self.hand.run("visible", "BackupWindow") == shown, "the window")
        self.client.send_signal(signal.SIGTERM)
        self.assertEqual(self.client.wait(20), 0)


if __name__ == "__main__":
    unittest.main(verbosity=2)
