"""The user's own Trash, shared with a program that we did not write: each
lists, restores and removes the items of the other."""
import json
import os
import unittest

from Support import harness
from Support.root import DATA, ThrowAwayRoot

TRASH = "/root/.local/share/Trash"
ODD = f"{DATA}/an item, 50% odd \u00fc"


class SharedTrashTest(unittest.TestCase):
    def setUp(self):
        harness.require_tools("trash-put", "trash-list", "trash-restore", "trash-empty")
        self.root = self.enterContext(ThrowAwayRoot())

    def keepwell(self, *words):
        done = self.root.run([f"{harness.build_folder}/keepwell", "--bus", self.root.address,
                              *words])
        self.assertEqual((done.returncode, done.stderr), (0, b""), done.stdout)
        return done.stdout.decode()

    def other(self, *argv, answer=None):
        more = {"input": answer.encode()} if answer else {}
        done = self.root.run(["env", "-C", DATA, *argv], **more)
        self.assertEqual(done.returncode, 0, done.stderr)
        return done.stdout.decode()

    def assert_held(self, path, text):
        self.assertEqual(self.root.read(path), text)

    def test_the_other_lists_and_restores_items_that_keepwell_throws_away(self):
        self.root.write(ODD, b"precious")
        self.assertEqual(self.keepwell("trash", ODD), f"Moved {ODD} to the Trash\n")
        self.assertFalse(self.root.exists(ODD))
        self.assertIn(ODD, self.other("trash-list"))
        self.other("trash-restore", ODD, answer="0\n")
        self.assert_held(ODD, b"precious")
        self.assertEqual(self.keepwell("trash", "list"), "")

    def test_keepwell_lists_and_restores_items_that_the_other_throws_away(self):
        self.root.write(ODD, b"precious")
        self.other("trash-put", ODD)
        self.assertFalse(self.root.exists(ODD))
        listed = json.loads(self.keepwell("--json", "trash", "list"))
        self.assertEqual((listed["path"], listed["bytes"]), (ODD, 4096))
        self.assertEqual(self.keepwell("trash", "restore", ODD), f"Restored {ODD}\n")
        self.assert_held(ODD, b"precious")
        self.assertEqual(self.other("trash-list"), "")

    def test_each_empties_the_trash_of_the_other(self):
        self.root.write(f"{DATA}/first", b"1")
        self.root.write(f"{DATA}/tree/second", b"2")
        self.keepwell("trash", f"{DATA}/first")
        self.other("trash-empty")
        self.assertEqual(self.keepwell("trash", "list"), "")
        self.other("trash-put", f"{DATA}/tree")
        self.keepwell("trash", "empty", "--older-than", "1d")
        self.assertIn(f"{DATA}/tree", self.other("trash-list"))
        self.keepwell("trash", "empty")
        self.assertEqual(self.other("trash-list"), "")
        for folder in ("files", "info"):
            self.assertEqual(self.root.listdir(f"{TRASH}/{folder}"), [])

    def test_items_of_another_volume_stay_on_it(self):
        item = "/tmp/item"
        self.root.write(item, b"x" * 5000)
        self.other("trash-put", item)
        self.assertTrue(self.root.exists("/tmp/.Trash-0/files/item"))
        self.assertIn(item, self.keepwell("trash", "list"))
        self.keepwell("trash", "restore", item)
        self.assert_held(item, b"x" * 5000)

    def test_a_trash_of_another_user_is_left_alone(self):
        for part in ("files", "info"):
            self.root.mkdir(f"/tmp/.Trash-0/{part}")
        self.root.write("/tmp/.Trash-0/files/x", b"evil")
        self.root.write("/tmp/.Trash-0/info/x.trashinfo",
                        b"[Trash Info]\nPath=../etc/evil\nDeletionDate=2020-01-01T00:00:00\n")
        os.chown(self.root.host_path("/tmp/.Trash-0"), 1000, 1000)
        self.assertEqual(self.keepwell("trash", "list"), "")
        self.keepwell("trash", "empty")
        self.assert_held("/tmp/.Trash-0/files/x", b"evil")


if __name__ == "__main__":
    harness.main()
