"""Trees deeper and folders wider than any real ones, with few descriptors."""
import os
import unittest

from Support import harness
from Support.root import DATA, ThrowAwayRoot


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


if __name__ == "__main__":
    harness.main()
