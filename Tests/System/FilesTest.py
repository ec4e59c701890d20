"""The file operations over the bus, on a disk with real flags."""
import os
import subprocess
import unittest

from Support import harness, trees
from Support.root import DATA, ThrowAwayRoot

COCOA = "NSCocoaErrorDomain"


class FilesTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.root = cls.enterClassContext(ThrowAwayRoot())

    def setUp(self):
        self.root.empty(DATA)

    def test_exists_follows_links(self):
        self.root.write(f"{DATA}/file", "x")
        self.root.symlink("nowhere", f"{DATA}/dangling")
        for name, expected in (("file", True), ("", True), ("missing", False),
                               ("dangling", False), ("file/below", False)):
            reply = self.root.busctl("FileExistsAtPath", "s", f"{DATA}/{name}")
            self.assertEqual((reply.flag, reply.error), (expected, None), name)

    def test_removes_a_tree_whose_folder_and_file_are_immutable(self):
        self.root.write(f"{DATA}/tree/inner/file", "x")
        self.root.chattr("+i", f"{DATA}/tree/inner/file", f"{DATA}/tree/inner", f"{DATA}/tree")
        self.assertTrue(self.root.busctl("RemoveItemAtPath", "s", f"{DATA}/tree").flag)
        self.assertFalse(self.root.exists(f"{DATA}/tree"))

    def test_removes_from_an_immutable_folder(self):
        self.root.write(f"{DATA}/folder/file", "x")
        self.root.chattr("+i", f"{DATA}/folder")
        self.assertTrue(self.root.busctl("RemoveItemAtPath", "s", f"{DATA}/folder/file").flag)
        self.assertEqual(self.root.listdir(f"{DATA}/folder"), [])

    def test_leaves_an_append_only_file_and_says_no(self):
        self.root.write(f"{DATA}/log", "kept")
        self.root.chattr("+a", f"{DATA}/log")
        reply = self.root.busctl("RemoveItemAtPath", "s", f"{DATA}/log")
        self.assertFalse(reply.flag)
        self.assertEqual((reply.error.domain, reply.error.code), (COCOA, 513))
        self.assertEqual(reply.error.info["NSFilePath"], f"{DATA}/log")
        self.assertEqual(reply.error.info["NSUnderlyingError"][:2], ["NSPOSIXErrorDomain", 1])
        self.assertEqual(self.root.read(f"{DATA}/log"), b"kept")

    def test_removing_a_missing_item_is_success(self):
        self.assertTrue(self.root.busctl("RemoveItemAtPath", "s", f"{DATA}/missing").flag)

    def test_removes_a_link_and_not_its_target(self):
        self.root.write(f"{DATA}/outside/file", "x")
        self.root.symlink("outside", f"{DATA}/link")
        self.assertTrue(self.root.busctl("RemoveItemAtPath", "s", f"{DATA}/link").flag)
        self.assertEqual(self.root.listdir(DATA), ["outside"])
        self.assertTrue(self.root.exists(f"{DATA}/outside/file"))

    def test_trash_replies_no_and_the_item_is_in_the_trash(self):
        self.root.write(f"{DATA}/old", "content")
        reply = self.root.busctl("MoveToTrashItemAtPath", "s", f"{DATA}/old")
        self.assertEqual((reply.flag, reply.error), (False, None))
        self.assertFalse(self.root.exists(f"{DATA}/old"))
        trash = "/root/.local/share/Trash/files"
        self.assertIn("old", self.root.listdir(trash))
        self.assertEqual(self.root.read(f"{trash}/old"), b"content")

    def test_the_trash_takes_the_item_of_a_path_through_a_link_and_back(self):
        self.root.mkdir(f"{DATA}/real/sub")
        self.root.symlink("real/sub", f"{DATA}/link")
        for path, content in (("item", "beside the link"), ("real/item", "meant")):
            self.root.write(f"{DATA}/{path}", content)
            self.root.chattr("+i", f"{DATA}/{path}")
        reply = self.root.busctl("MoveToTrashItemAtPath", "s", f"{DATA}/link/../item")
        self.assertEqual((reply.flag, reply.error), (False, None))
        self.assertFalse(self.root.exists(f"{DATA}/real/item"))
        trash = "/root/.local/share/Trash/files"
        self.assertEqual(self.root.read(f"{trash}/item"), b"meant")
        beside = self.root.host_path(f"{DATA}/item")
        self.assertEqual(trees.flags_of(beside) & trees.IMMUTABLE, trees.IMMUTABLE)
        trees.set_flags(beside, 0)

    def test_trash_of_a_missing_item_replies_yes_and_an_error(self):
        reply = self.root.busctl("MoveToTrashItemAtPath", "s", f"{DATA}/missing")
        self.assertTrue(reply.flag)
        self.assertEqual((reply.error.domain, reply.error.code), (COCOA, 4))

    def test_moves_out_of_an_immutable_folder_into_new_folders(self):
        self.root.write(f"{DATA}/from/file", "x")
        self.root.chattr("+i", f"{DATA}/from/file", f"{DATA}/from")
        reply = self.root.busctl("MoveItemAtPath", "ss", f"{DATA}/from/file",
                                 f"{DATA}/to/deep/file")
        self.assertEqual((reply.flag, reply.error), (True, None))
        self.assertEqual(self.root.read(f"{DATA}/to/deep/file"), b"x")

    def test_moving_to_the_folder_of_the_source_moves_nothing(self):
        self.root.write(f"{DATA}/file", "x")
        reply = self.root.busctl("MoveItemAtPath", "ss", f"{DATA}/file", DATA)
        self.assertEqual((reply.flag, reply.error), (True, None))
        self.assertEqual(self.root.listdir(DATA), ["file"])

    def test_moving_never_replaces(self):
        self.root.write(f"{DATA}/new", "new")
        self.root.write(f"{DATA}/old", "old")
        reply = self.root.busctl("MoveItemAtPath", "ss", f"{DATA}/new", f"{DATA}/old")
        self.assertFalse(reply.flag)
        self.assertEqual((reply.error.domain, reply.error.code), (COCOA, 516))
        self.assertEqual(self.root.read(f"{DATA}/old"), b"old")
        self.assertEqual(self.root.read(f"{DATA}/new"), b"new")

    def test_moves_to_another_volume_whole(self):
        self.root.write(f"{DATA}/tree/file", "content", 0o640)
        self.root.symlink("file", f"{DATA}/tree/link")
        reply = self.root.busctl("MoveItemAtPath", "ss", f"{DATA}/tree", "/tmp/moved")
        self.assertEqual((reply.flag, reply.error), (True, None))
        self.assertFalse(self.root.exists(f"{DATA}/tree"))
        self.assertEqual(self.root.read("/tmp/moved/file"), b"content")
        self.assertEqual(os.readlink(self.root.host_path("/tmp/moved/link")), "file")
        self.assertEqual(os.stat(self.root.host_path("/tmp/moved/file")).st_mode & 0o777, 0o640)

    def test_secure_removal_passes_no_error(self):
        self.root.write(f"{DATA}/tree/secret", "x" * 10000)
        reply = self.root.busctl("SecurelyRemoveItemAtPath", "s", f"{DATA}/tree")
        self.assertEqual((reply.flag, reply.error), (True, None))
        self.assertFalse(self.root.exists(f"{DATA}/tree"))
        reply = self.root.busctl("SecurelyRemoveItemAtPath", "s", f"{DATA}/missing")
        self.assertEqual((reply.flag, reply.error), (False, None))

    def test_truncates_files_alone(self):
        self.root.write(f"{DATA}/file", "content")
        self.assertTrue(self.root.busctl("TruncateFileAtPath", "s", f"{DATA}/file").flag)
        self.assertEqual(self.root.read(f"{DATA}/file"), b"")
        for path in (DATA, f"{DATA}/missing"):
            reply = self.root.busctl("TruncateFileAtPath", "s", path)
            self.assertEqual((reply.flag, reply.error), (False, None))

    def test_a_folder_counts_twice(self):
        self.root.write(f"{DATA}/folder/file", "x" * 4096)
        os.sync()  # so that the disk has given out its blocks
        folder = os.stat(self.root.host_path(f"{DATA}/folder")).st_blocks * 512
        self.assertGreater(folder, 0)
        size = self.root.busctl("SizeOfItemAtPath", "s", f"{DATA}/folder")
        self.assertEqual(size.values, [2 * folder + 4096, ["", 0, {}]])

    def test_two_hard_links_both_count(self):
        self.root.write(f"{DATA}/folder/file", "x" * 4096)
        os.link(self.root.host_path(f"{DATA}/folder/file"),
                self.root.host_path(f"{DATA}/folder/link"))
        os.sync()
        folder = os.stat(self.root.host_path(f"{DATA}/folder")).st_blocks * 512
        size = self.root.busctl("SizeOfItemAtPath", "s", f"{DATA}/folder")
        self.assertEqual(size.values[0], 2 * folder + 2 * 4096)

    def test_names_of_invalid_utf8_arrive_as_text(self):
        folder = self.root.mkdir(f"{DATA}/folder")
        name = os.fsencode(self.root.host_path(folder)) + b"/bad\xff"
        with open(name, "wb"):
            pass
        subprocess.run([b"chattr", b"+a", name], check=True)
        reply = self.root.busctl("RemoveItemAtPath", "s", folder)
        self.assertFalse(reply.flag)
        self.assertEqual(reply.error.info["NSFilePath"], f"{folder}/bad\ufffd")
        self.assertTrue(os.path.exists(name))

    def test_slashes_more_than_needed_change_nothing(self):
        self.root.write(f"{DATA}/folder/file", "x")
        self.assertTrue(self.root.busctl("RemoveItemAtPath", "s",
                                         f"/{DATA}///folder//file").flag)
        self.assertEqual(self.root.listdir(f"{DATA}/folder"), [])
        self.assertTrue(self.root.busctl("RemoveItemAtPath", "s", f"{DATA}/folder/").flag)
        self.assertEqual(self.root.listdir(DATA), [])


class BadInputTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.root = cls.enterClassContext(ThrowAwayRoot())

    def test_bad_paths_get_an_answer_and_leave_the_agent_as_it_was(self):
        root = self.root
        root.write(f"{DATA}/file", "kept")
        root.symlink("loop", f"{DATA}/loop")
        root.write(f"{DATA}/line\nbreak", "x")
        client = root.client()
        client.call("Echo", "s", "")
        existing = ("/", ".", "..", "///", f"{DATA}/..", f"{DATA}/.")
        bad = ["", "relative", "relative/path", "/", ".", "..", "///", f"{DATA}/..", f"{DATA}/.",
               f"{DATA}/file/below", f"{DATA}/loop/below", "x" * 100000,
               "/" + "x/" * 50000, "/" + "x" * 100000, f"{DATA}/missing/below", "~", "~root",
               "/proc/self/mem/x", "%s%n", "-rf", "$(reboot)"]
        members = ["FileExistsAtPath", "RemoveItemAtPath", "SecurelyRemoveItemAtPath",
                   "TruncateFileAtPath", "MoveToTrashItemAtPath", "SizeOfItemAtPath"]

        def everything():
            for path in bad:
                for member in members:
                    if member == "SizeOfItemAtPath" and path in ("/", ".", "..", "///"):
                        continue  # a long walk, and no bad input
                    values = client.call(member, "s", path)
                    self.assertEqual(len(values), 2, (member, path[:40]))
                    if path == "relative":
                        continue  # a move into it, below, makes the folder
                    if member in ("FileExistsAtPath", "SecurelyRemoveItemAtPath",
                                  "TruncateFileAtPath"):
                        expected = member == "FileExistsAtPath" and path in existing
                        self.assertIs(values[0], expected, (member, path[:40]))
                    elif member == "SizeOfItemAtPath" and path not in existing:
                        self.assertEqual(values[0], 0, path[:40])
                client.call("MoveItemAtPath", "ss", path, f"{DATA}/missing/target")
                client.call("MoveItemAtPath", "ss", f"{DATA}/missing/source", path)

        everything()  # once, to open everything of the first use
        pid, descriptors = root.agent_pid(), root.agent_descriptors()
        everything()
        self.assertEqual((root.agent_pid(), root.agent_descriptors()), (pid, descriptors))
        self.assertEqual(root.read(f"{DATA}/file"), b"kept")
        self.assertTrue(os.path.isdir(root.host_path("/root")))
        self.assertTrue(client.call("RemoveItemAtPath", "s", f"{DATA}//line\nbreak/")[0])
        self.assertFalse(root.exists(f"{DATA}/line\nbreak"))


if __name__ == "__main__":
    harness.main()
