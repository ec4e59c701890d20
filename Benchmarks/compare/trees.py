"""The trees that are measured and removed: made anew from a seed, so that each
side finds the same."""
import os
import subprocess
from dataclasses import dataclass

SEED = 20


@dataclass(frozen=True)
class Tree:
    folders: int
    files: int
    data_every: int = 0  # one file in so many holds data; 0: none
    data_bytes: int = 0

    def make(self, build, path):
        subprocess.run([os.path.join(build, "Benchmarks/make-tree"), path, str(self.folders),
                        str(self.files), str(self.data_every), str(self.data_bytes), str(SEED)],
                       check=True)

    def items(self):
        """Files, folders and groups of folders, and the root."""
        groups = (self.folders + 99) // 100 if self.folders > 100 else 0
        return self.files + (self.folders if self.folders > 1 else 0) + groups + 1

    def __str__(self):
        place = f"{self.folders:,} folders" if self.folders > 1 else "one folder"
        text = f"{self.files:,} files in {place}"
        if self.data_every == 1:
            text += f", each of {self.data_bytes:,} bytes"
        elif self.data_every:
            text += f", each {self.data_every}th of {self.data_bytes:,} bytes, the others empty"
        else:
            text += ", all empty"
        return text


def expected_size(path):
    """The agent's expected answer, from another program's list of blocks: those
    of every item, of folders twice, of hard links each time."""
    listed = subprocess.run(["find", path, "-printf", "%y %b\n"], check=True,
                            stdout=subprocess.PIPE).stdout.decode()
    total = 0
    for line in listed.splitlines():
        kind, blocks = line.split()
        total += int(blocks) * (1024 if kind == "d" else 512)
    return total
