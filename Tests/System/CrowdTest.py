"""The random mix of operations by four times as many clients of an agent that
has few descriptors. They wait for one another, and every answer must be right.
Takes KEEPWELL_LOAD_SECONDS (20); KEEPWELL_LOAD_SEED repeats a mix."""
import unittest

from LoadTest import SECONDS, SEED, load, prepare
from Support import harness
from Support.root import ThrowAwayRoot

CLIENTS = 250
DESCRIPTORS = 1024


class CrowdTest(unittest.TestCase):
    def test_250_clients_with_1024_descriptors_get_their_answers(self):
        root = self.enterContext(ThrowAwayRoot(descriptor_limit=DESCRIPTORS))
        prepare(root)
        done = load(self, root, CLIENTS, SEED, SECONDS)
        print(f"{done} operations of {CLIENTS} clients with {DESCRIPTORS} descriptors "
              f"in {SECONDS:.0f} s, seed {SEED}")


if __name__ == "__main__":
    harness.main()
