"""Trees deeper and folders wider than any real ones, with few descriptors.
KEEPWELL_HOSTILE=full makes the hostile one 45,000 deep."""
import os
import unittest

from Support import harness, trees
from Support.root import DATA, ThrowAwayRoot

HOSTILE_DEPTH = 45_000 if os.environ.get("KEEPWELL_HOSTILE") == "full" else 1_000


class LimitsTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.root = cls.enterClassContext(ThrowAwayRoot(descriptor_limit=64))

    def setUp(self):
        self.root.empty(DATA)

    def test_removes_a_tree_20000_deep(self):
        deep = self.root.mkdir(f"{DATA}/deep")
        here = os.open(self.root.host_path(deep), os.O_RDONLY)
        for _ in range(20000):
            os.mkdir("d", dir_fd=here)
            below = os.open("d", os.O_RDONLY, dir_fd=here)
            os.close(here)
            here = below
        os.close(here)
        self.assertTrue(self.root.busctl("RemoveItemAtPath", "s", deep).flag)
        self.assertEqual(self.root.listdir(DATA), [])

    def test_removes_a_folder_of_200000_files(self):
        folder = self.root.mkdir(f"{DATA}/wide")
        here = os.open(self.root.host_path(folder), os.O_RDONLY)
        for number in range(200000):
            os.mknod(f"file{number}", dir_fd=here)
        os.close(here)
        self.assertTrue(self.root.busctl("RemoveItemAtPath", "s", folder).flag)
        self.assertEqual(self.root.listdir(DATA), [])

    def test_a_removal_that_fails_below_a_path_too_large_for_a_message_is_answered(self):
        """Folders with the longest names, of invalid UTF-8: each byte of them
        takes three in a message, so the path of 45,000 has 34 MB."""
        tree, volumes = f"{DATA}/hostile", []
        trees.deep(self.root.host_path(tree), HOSTILE_DEPTH, b"\xff" * 255,
                   finish=lambda folder: volumes.append(trees.mount_within(folder)))
        client = self.root.client(timeout=1500)
        self.assertTrue(client.call("FileExistsAtPath", "s", tree)[0])
        agent = self.root.agent_pid()
        flag, error = client.call("RemoveItemAtPath", "s", tree)
        self.assertEqual((flag, *error[:2]), (False, "NSCocoaErrorDomain", 512))
        self.assertEqual(self.root.agent_pid(), agent)
        self.assertLess(max(len(line) for line in self.root.log().splitlines()), 20_000)
        trees.unmount(volumes[0])
        self.assertTrue(client.call("RemoveItemAtPath", "s", tree)[0])


if __name__ == "__main__":
    harness.main()
