"""The real client in a house, used by the hand of the test."""
import subprocess
import unittest

import house
import puppet
from house import House


class ClientTest(unittest.TestCase):
    launcher = []  # what the client is started by
    with_server = False  # else the client launches one

    def setUp(self):
        self.house = House()
        self.addCleanup(self.house.__exit__)
        self.home = self.house.root / "home"
        self.home.mkdir()
        if self.with_server:
            self.house.start_server()
        self.client = None
        self.addCleanup(self.stop)
        self.start_client()

    def start_client(self):
        self.launch_client()
        self.hand.see("BackupWindow", 30)

    def launch_client(self, *arguments, **environment):
        self.environment = dict(self.house.environment, QT_QPA_PLATFORM="offscreen", HOME=str(self.home),
                                QT_PLUGIN_PATH=str(house.PROGRAM.parent / "test-plugins"),
                                QT_QPA_GENERIC_PLUGINS=f"puppet:{self.house.root}/puppet", **environment)
        self.client = subprocess.Popen([*self.launcher, self.house.program / "VelmoraBackup", *arguments],
                                       env=self.environment)
        self.hand = puppet.Puppet(self.house.root / "puppet")

    def stop(self):
        if self.client and self.client.poll() is None:
            self.client.kill()
            self.client.wait()

    def row(self, view, *parts):
        """The row of a path, unfolded on the way."""
        hand = self.hand
        for depth in range(1, len(parts) + 1):
            path = hand.path(*parts[:depth])
            hand.until(lambda path=path: hand.row(view, "state", path) is not None, f"row {path!r}")
            if depth < len(parts):
                hand.row(view, "expand", path)
        return hand.path(*parts)

    def mark(self, view, *parts, state="2"):
        path = self.row(view, *parts)
        self.hand.row(view, "click", path)
        self.hand.until(lambda: self.hand.row(view, "state", path) == state, f"the mark of {path!r}")

    def mark_source(self, *below, state="2"):
        """Clicks the mark of the source, or of something below it."""
        self.mark("lst_source", *self.house.rule(self.house.source, False).strip("/").split("/"), *below, state=state)

    def start_job(self, title, end="Job successful"):
        """In the start dialog, which opens: gives the title and waits for the end in the panel."""
        self.hand.see("chk_submitonhold")
        self.hand.type("str_title@chk_submitonhold", title)
        self.hand.click("btn_ok@chk_submitonhold")
        self.hand.gone("chk_submitonhold")
        if end:
            self.hand.until(lambda: end in self.hand.run("names"), end, 60)

    def choose_target(self, target):
        hand = self.hand
        hand.click("btn_destination")
        hand.see("str_path")
        hand.type("str_path", str(target))
        hand.click("btn_ok@str_path")
        hand.gone("str_path")
        hand.until(lambda: target.name in hand.get("str_destination", "text"), "the destination's name")
