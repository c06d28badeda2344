#!/usr/bin/env python3
"""Backups that build on others, from the command line: made, checked, restored, protected like their set."""
import subprocess
import unittest

import house
from house import ServerTest

PASSWORD = "one for the whole set"


class Chain(ServerTest):
    def change(self):
        source = self.house.source
        (source / "docs" / "letter").write_text("changed")
        (source / "new").write_text("new")
        subprocess.run(["rm", "-rf", source / "empty dir"], check=True)
        (source / "docs").rename(source / "papers")

    def make(self, password=None):
        """A full backup and two on top of it; the trees of their times."""
        source, trees = self.house.source, []
        house.make_tree(source)
        (source / "docs" / "letter").write_text("first")
        self.ctl("backup", source, "--to", self.house.target, "--title", "Home", password=password)
        trees.append(house.describe(source))
        self.change()
        base = self.house.backups()[0].name
        self.ctl("backup", "--incremental", base, "--to", self.house.target)
        trees.append(house.describe(source))
        (source / "new").unlink()
        (source / "later").write_text("later")
        self.ctl("backup", "--incremental", base, "--to", self.house.target)
        trees.append(house.describe(source))
        return trees

    def test_each_brings_back_its_own_time(self):
        trees = self.make()
        backups = self.house.backups()
        self.assertEqual(len(backups), 3)
        for tree, backup in zip(trees, backups):
            to = self.house.root / f"to-{backup.name}"
            path = self.house.rule(self.house.source, False)
            self.ctl("restore", backup.name, path, "--to", to)
            restored = next(p for p in (to / "source", to) if p.exists())
            self.assertEqual(house.differences(tree, restored), [])
            self.ctl("verify", backup.name)
        # What others are built on stays.
        self.ctl("delete", backups[0].name, "--with-data", "--yes", good=(1, 3))
        self.assertEqual(self.house.backups(), backups)
        self.ctl("delete", *[b.name for b in backups], "--with-data", "--yes")
        self.assertEqual(self.house.backups(), [])

    def test_it_has_the_password_of_its_set(self):
        trees = self.make(PASSWORD)
        backups = self.house.backups()
        for backup in backups:
            self.assertTrue((backup / "key.age").exists())
            self.assertFalse((backup / "gone.list").exists())
        to = self.house.root / "to"
        path = self.house.rule(self.house.source, False)
        self.ctl("restore", backups[-1].name, path, "--to", to, password="wrong", good=(1, 3))
        self.assertFalse(to.exists() and any(to.iterdir()))
        self.ctl("restore", backups[-1].name, path, "--to", to, password=PASSWORD)
        restored = next(p for p in (to / "source", to) if p.exists())
        self.assertEqual(house.differences(trees[-1], restored), [])
        self.ctl("verify", backups[-1].name, password=PASSWORD)

if __name__ == "__main__":
    unittest.main(verbosity=2)
