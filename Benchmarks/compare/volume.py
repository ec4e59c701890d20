"""A volume of its own for the trees, made anew before each is made: on a disk
from which much was removed lately, ext4 passes over the freed inodes one by
one, and making the next tree takes minutes."""
import os
import subprocess


def quietly(*argv):
    subprocess.run(argv, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)


class Volume:
    """An ext4 in memory, as large as it needs to be, mounted while in use."""

    SIZE, INODES = 6 << 30, 1_300_000

    def __init__(self, memory_folder, mount_point):
        self.image = os.path.join(memory_folder, "volume")
        self.path = mount_point
        self._mounted = False
        os.makedirs(mount_point)

    def renew(self):
        self.close()
        with open(self.image, "wb") as file:
            file.truncate(self.SIZE)
        # No thread of the kernel shall fill in tables while something is measured.
        quietly("mkfs.ext4", "-q", "-F", "-N", str(self.INODES), "-E", "lazy_itable_init=1",
                self.image)
        quietly("mount", "-o", "loop,noinit_itable", self.image, self.path)
        self._mounted = True

    def close(self):
        if self._mounted:
            quietly("umount", self.path)
            os.unlink(self.image)
        self._mounted = False
