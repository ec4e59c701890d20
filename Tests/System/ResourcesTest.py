"""What many requests at once may and may not take: right answers where
descriptors are few, the tools' own limits, and lines of the log that end."""
import os
import threading
import unittest

from Support import harness, processes
from Support.abuse import Blocking
from Support.bus import wait_until
from Support.root import DATA, ThrowAwayRoot

CLIENTS = 250
REQUESTS_EACH = 8
DESCRIPTORS = 1024
NO_ERROR = ("", 0, {})


def make_comb(host, depth, teeth):
    """A folder within each other, each with others beside it: a walk that is
    deep in it has many that it must come back to."""
    for _ in range(depth):
        for tooth in range(teeth):
            os.makedirs(f"{host}/{tooth}/inner")
            with open(f"{host}/{tooth}/file", "wb") as file:
                file.write(b"x" * 9000)
        host += "/deeper"
        os.mkdir(host)


def allocated(host):
    """As the agent counts it: folders twice."""
    total = 2 * os.lstat(host).st_blocks
    for folder, folders, files in os.walk(host):
        total += 2 * sum(os.lstat(f"{folder}/{name}").st_blocks for name in folders)
        total += sum(os.lstat(f"{folder}/{name}").st_blocks for name in files)
    return total * 512


def descriptor_limits(pid):
    """(soft, hard) of the process."""
    with open(f"/proc/{pid}/limits", encoding="ascii") as file:
        for line in file:
            if line.startswith("Max open files"):
                return tuple(int(word) for word in line.split()[3:5])
    raise AssertionError("no limit of descriptors")


class FewDescriptorsTest(unittest.TestCase):
    def setUp(self):
        self.root = self.enterContext(ThrowAwayRoot(descriptor_limit=DESCRIPTORS))

    def ask(self, number, path, answers):
        client = self.root.client(timeout=300)
        self.barrier.wait()
        try:
            serials = [client.send("SizeOfItemAtPath", "s", path) for _ in range(REQUESTS_EACH)]
            answers[number] = [client.wait(serial) for serial in serials]
        except Exception as failure:  # pylint: disable=broad-except
            answers[number] = [failure]
        finally:
            client.close()

    def test_250_clients_at_once_are_all_told_the_right_size(self):
        tree = self.root.mkdir(f"{DATA}/tree")
        make_comb(self.root.host_path(tree), depth=60, teeth=6)
        os.sync()  # allocation is delayed until then
        expected = [allocated(self.root.host_path(tree)), NO_ERROR]
        self.assertEqual(self.root.client().call("SizeOfItemAtPath", "s", tree), expected)
        self.barrier = threading.Barrier(CLIENTS)
        answers = {}
        threads = [threading.Thread(target=self.ask, args=[number, tree, answers])
                   for number in range(CLIENTS)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        given = [answer for each in answers.values() for answer in each]
        self.assertEqual([answer for answer in given if answer != expected][:5], [])
        self.assertEqual(len(given), CLIENTS * REQUESTS_EACH)


class LimitsOfToolsTest(Blocking, unittest.TestCase):
    def setUp(self):
        self.root = ThrowAwayRoot(start=False)
        self.enterContext(self.root)
        self.root.agent_prefix = "prlimit --nofile=300:2000 "
        self.root.start_bus()
        self.addCleanup(self.root.stop_bus)

    def test_the_agent_takes_what_it_may_and_its_tools_get_what_it_was_given(self):
        self.block(self.root.client())
        agent = self.root.agent_pid()
        self.assertEqual(descriptor_limits(agent), (2000, 2000))
        tools = list(processes.children(agent))
        self.assertEqual(len(tools), 1)
        wait_until(lambda: descriptor_limits(tools[0]) == (300, 2000))
        self.open_gate()


class LogTest(unittest.TestCase):
    def test_no_line_of_the_log_is_as_long_as_a_client_likes(self):
        root = self.enterContext(ThrowAwayRoot())
        path = "/" + "x" * 1_000_000
        self.assertEqual(root.client().call("SizeOfItemAtPath", "s", path)[0], 0)
        lines = [line for line in root.log().splitlines() if "xxx" in line]
        self.assertEqual(len(lines), 1)
        self.assertLess(len(lines[0]), 9000)
        self.assertRegex(lines[0], r"xx\[… \d+ bytes …\]xx.*: File name too long$")


if __name__ == "__main__":
    harness.main()
