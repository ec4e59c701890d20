"""The command on trees with other volumes inside, and on folders that are
mounted at a second place."""
import json
import os
import unittest

from Support import harness
from Support.machine import mount
from Support.root import ThrowAwayRoot

TREE = "/srv/tree"


class VolumesTest(unittest.TestCase):
    def setUp(self):
        self.root = self.enterContext(ThrowAwayRoot())

    def keepwell(self, *words, status=0):
        done = self.root.run([f"{harness.build_folder}/keepwell", "--bus", self.root.address,
                              *words])
        self.assertEqual(done.returncode, status, done.stdout + done.stderr)
        return done.stdout.decode() if status == 0 else done.stderr.decode()

    def blocks(self, path):
        return os.lstat(self.root.host_path(path)).st_blocks * 512

    def volume(self, path, *options):
        """Mounts another volume there."""
        self.root.mkdir(path)
        mount(*(options or ("-t", "tmpfs", "tmpfs")), self.root.host_path(path))

    def bind(self, path, second):
        self.volume(second, "--bind", self.root.host_path(path))

    def tree_with_a_volume(self):
        self.root.write(f"{TREE}/own/file", b"x" * 100_000)
        self.volume(f"{TREE}/other")
        self.root.write(f"{TREE}/other/file", b"x" * 300_000)
        os.sync()
        own = sum(map(self.blocks, (TREE, f"{TREE}/own", f"{TREE}/own/file")))
        other = sum(map(self.blocks, (f"{TREE}/other", f"{TREE}/other/file")))
        return own, other

    def test_a_size_has_the_volumes_inside_unless_it_is_of_one_volume(self):
        own, other = self.tree_with_a_volume()
        self.assertEqual(self.keepwell("size", "--bytes", "--once", TREE), f"{own + other}\t{TREE}\n")
        for words in (("-x",), ("--one-volume",), ("-x", "--exclude", "nothing")):
            self.assertEqual(self.keepwell("size", "--bytes", *words, TREE), f"{own}\t{TREE}\n")
        tree = json.loads(self.keepwell("--json", "size", "-x", "-d", "2", TREE))
        self.assertEqual([child["name"] for child in tree["children"]], ["own"])
        self.assertEqual(tree["items"], 3)
        # A volume that is named itself is measured.
        self.assertEqual(self.keepwell("size", "--bytes", "-x", f"{TREE}/other"),
                         f"{other}\t{TREE}/other\n")

    def test_a_search_for_large_files_stays_on_its_volume(self):
        self.tree_with_a_volume()
        found = json.loads(self.keepwell("--json", "find", "--largest", "9", "--under", TREE))
        self.assertEqual([item["path"] for item in found["found"]], [f"{TREE}/own/file"])

    def assert_protected(self, path):
        for words in (("remove", "--yes", path), ("remove", "--dry-run", path),
                      ("shred", "--yes", path), ("trash", path),
                      ("remove", "--yes", "--keep", "nothing", path),
                      ("move", path, "/srv/elsewhere")):
            self.assertEqual(self.keepwell(*words, status=1),
                             f"keepwell: {path} is protected; see --force-protected\n")

    def test_folders_are_protected_at_each_place_where_they_are_mounted(self):
        before = self.root.listdir("/usr/share")
        self.bind("/usr", "/srv/programs")
        self.bind("/", "/srv/whole")
        self.bind("/root", "/srv/home")
        self.root.symlink("programs", "/srv/link")
        for path in ("/srv/programs", "/srv/programs/share", "/srv/programs/./bin/../share/",
                     "/srv/link/share", "/srv/whole", "/srv/whole/usr", "/srv/whole/usr/lib",
                     "/srv/home"):
            with self.subTest(path):
                self.assert_protected(path)
        self.assertEqual(self.root.listdir("/usr/share"), before)
        self.root.write("/srv/programs/share/doc/ours", b"x")
        self.assertEqual(self.keepwell("remove", "--yes", "/srv/programs/share/doc/ours"),
                         "Removed /srv/programs/share/doc/ours\n")

    def test_a_second_place_itself_stays_with_its_contents(self):
        self.root.write(f"{TREE}/file", b"x")
        self.bind(TREE, "/srv/second")
        self.assertIn("could not be removed", self.keepwell("remove", "--yes", "/srv/second", status=1))
        self.assertEqual(self.root.listdir(TREE), ["file"])


if __name__ == "__main__":
    harness.main()
