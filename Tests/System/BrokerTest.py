"""dbus-broker keeps account of its users, dbus-daemon of connections. It cuts
off a user that leaves answers unread, and no other."""
import contextlib
import unittest

from Support import harness, processes
from Support.abuse import Batch
from Support.systembus import MEMBER, ROOT, SystemBusRoot

TEXT = "x" * 100_000
PINGS = 480_000  # their answers have 33 MiB, for which the bus keeps 660 MiB
MOST = 20_000  # requests; all of their answers are four times a user's limit


class BrokerTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        harness.require_tools("dbus-broker", "dbus-broker-launch", "systemd-socket-activate",
                              "useradd", "gpasswd", "systemd-sysusers")
        harness.broker = True

    def setUp(self):
        self.root = self.enterContext(SystemBusRoot())
        self.other = self.root.client_of(ROOT)
        self.other.call("Echo", "s", "")
        self.agent = self.root.agent_pid()

    def test_the_bus_is_the_one_that_is_meant(self):
        bus = self.root.bus_call("GetConnectionUnixProcessID", "s", "org.freedesktop.DBus")[0]
        self.assertEqual(processes.text(bus, "comm").strip(), "dbus-broker-lau")

    def flood(self, user):
        """Sends requests without reading an answer, until the agent takes no
        more."""
        flood, sent = self.root.client_of(user, timeout=3), 0
        with contextlib.suppress(OSError):
            for sent in range(MOST):
                flood.send("Echo", "s", TEXT)
                if sent % 100 == 0:
                    self.assertEqual(self.other.call("Echo", "s", "still")[0], "still")
        print(f"{sent} requests of {user} unread", flush=True)
        self.assertGreater(sent, 500)
        return flood

    def test_a_member_that_reads_nothing_does_no_harm(self):
        self.flood(MEMBER)
        self.assertEqual(self.other.call("Echo", "s", "there")[0], "there")
        self.assertEqual(self.root.client_of(MEMBER).call("Echo", "s", "too")[0], "too")
        self.assertEqual(self.root.agent_pid(), self.agent)

    def test_root_clients_that_read_nothing_do_not_end_the_agent(self):
        """They are one user to the bus: each uses up the quota of the other."""
        self.flood(ROOT)
        self.assertEqual(self.other.call("Echo", "s", "there")[0], "there")
        self.assertEqual(self.root.client_of(MEMBER).call("Echo", "s", "too")[0], "too")
        self.assertEqual(self.root.agent_pid(), self.agent)

    def test_short_answers_that_root_does_not_read_do_not_end_the_agent(self):
        """The bus keeps more of each than its bytes."""
        flood = self.root.client_of(ROOT)
        batch = Batch([(flood.call_fields("Ping", interface="org.freedesktop.DBus.Peer"), "", ())],
                      PINGS // 80)
        for _ in range(80):
            flood.send_bytes(batch.next())
            # The bus also keeps requests that the agent has not taken yet.
            self.assertEqual(self.other.call("Echo", "s", "taken")[0], "taken")
        self.assertEqual(self.root.client_of(MEMBER).call("Echo", "s", "too")[0], "too")
        self.assertEqual(self.root.agent_pid(), self.agent)

    def test_a_member_that_sends_faster_than_the_agent_reads_does_no_harm(self):
        """The bus keeps no more than a share of the agent's user for another one."""
        flood = self.root.client_of(MEMBER, timeout=3)
        batch = Batch([(flood.call_fields("x" * 255), "", ())], 5000)
        with contextlib.suppress(OSError):
            for _ in range(160):
                flood.send_bytes(batch.next())
        self.assertEqual(self.other.call("Echo", "s", "there")[0], "there")
        flood.close()  # it uses up the quota of the user's other clients
        self.assertEqual(self.root.client_of(MEMBER).call("Echo", "s", "too")[0], "too")
        self.assertEqual(self.root.agent_pid(), self.agent)


if __name__ == "__main__":
    harness.main()
