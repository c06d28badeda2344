#!/usr/bin/env python3
"""A person's road on a new machine: two backups lie on a disk, one of them protected; the program knows neither.
They are found, inserted, looked into and restored."""
import unittest

import house
from desktop import ClientTest

PASSWORD = "left in a drawer"


class InsertRoad(ClientTest):
    def start_client(self):
        house.make_tree(self.house.source)
        self.house.start_server()
        for title, password in (("Home & more", None), ("Secret", PASSWORD)):
            done = self.house.run_ctl("backup", self.house.source, "--to", self.house.target, "--title", title,
                                      password=password)
            self.assertEqual(done.returncode, 0, done.stderr)
        self.house.wipe()
        self.kept = self.house.root / "kept"
        self.house.source.rename(self.kept)
        super().start_client()

    def insert(self):
        hand = self.hand
        hand.trigger("rsvw")
        hand.see("btn_insert")
        hand.click("btn_insert")
        hand.see("col_listview")
        self.choose_target(self.house.target)
        for title in ("Home & more", "Secret"):
            hand.until(lambda title=title: hand.row("col_listview", "state", title) is not None, f"the row of {title}")
            hand.row("col_listview", "click", title)
        hand.until(lambda: "marked: 2" in hand.get("str_found", "text"), "the count")
        hand.click("btn_ok@col_listview")
        self.start_job("Found again")
        self.assertEqual(hand.get("str_files", "text"), hand.get("str_maxfiles", "text"))

    def saved(self, title):
        """The source in the backup."""
        return [title, "Full Backup", *self.house.rule(self.house.source, False).strip("/").split("/")]

    def mark_saved(self, title):
        self.mark("lst_catalogue", *self.saved(title))

    def test_found_inserted_restored(self):
        hand = self.hand
        self.insert()
        self.mark_saved("Home & more")
        # The browser of directories stands at home; Return sends the row there.
        hand.see("RestoreFolderView")
        hand.key("RestoreFolderView", "Return")
        hand.click("btn_resstart")
        hand.until(lambda: hand.get("str_landing", "text") == str(self.home), "where it goes")
        hand.click("btn_ok@chk_submitonhold")
        house.wait(lambda: house.differences(self.kept, self.home) == [], "the tree to be back", 60)
        self.assertFalse(self.house.source.exists())

    def test_its_password_opens_the_tree(self):
        hand = self.hand
        self.insert()
        hand.row("lst_catalogue", "expand", self.row("lst_catalogue", "Secret", "Full Backup"))
        hand.see("str_password")
        hand.type("str_password", "guessed")
        hand.click("btn_ok@str_password")
        hand.until(lambda: "assword" in hand.get("str_hint", "text") and hand.get("str_password", "enabled") == "true",
                   "the refusal", 30)
        hand.type("str_password", PASSWORD)
        hand.click("btn_ok@str_password")
        hand.gone("str_password")
        self.mark_saved("Secret")
        self.assertIsNotNone(self.row("lst_catalogue", *self.saved("Secret"), "docs", "letter.txt"))


if __name__ == "__main__":
    unittest.main(verbosity=2)
