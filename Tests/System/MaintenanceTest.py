"""System maintenance through the real agent and the real command, with stand-ins
at the paths of the system's tools and a host log of the test's own."""
import fcntl
import json
import os
import re
import shutil
import signal
import socket
import subprocess
import termios
import unittest

from Support import harness, processes
from Support.bus import is_running, wait_until
from Support.rawbus import BusError, SIGNAL
from Support.root import ThrowAwayRoot

LAUNCHCTL = "/bin/launchctl"
REPAIR = "/usr/libexec/repair_packages"
LOG_TOOL = "/usr/bin/log"
STORE = "/var/log/asl"
PROGRESS = "org.keepwell.KWPrivilegedOperationProgress"
SCRATCH = "/run/keepwell-test"
GATE = f"{SCRATCH}/gate"
LOG_ERR = 3
REPAIR_ARGUMENTS = ["--output-format", "1", "--repair", "--standard-pkgs", "--volume", "/"]


class MaintenanceRoot(ThrowAwayRoot):
    """With a log of the host that belongs to the test."""

    def __enter__(self):
        super().__enter__()
        self.host_log = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.host_log.bind(f"{self.root}/dev/log")
        self.host_log.setblocking(False)
        return self

    def __exit__(self, *arguments):
        self.host_log.close()
        super().__exit__(*arguments)

    def logged(self):
        """The entries in the host's log: priorities and messages."""
        lines = []
        while True:
            try:
                datagram = self.host_log.recv(4096).decode()
            except BlockingIOError:
                return lines
            priority, message = re.fullmatch(r"<(\d+)>.*?: (.*?)\0?", datagram, re.S).groups()
            lines.append((int(priority) & 7, message))


class MaintenanceTestCase(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.root = cls.enterClassContext(MaintenanceRoot())

    def setUp(self):
        self.root.empty()
        self.root.forget_calls()
        self.root.logged()

    def remove_tool(self, path):
        if self.root.exists(path):
            os.unlink(self.root.host_path(path))

    def flag(self, member, *arguments):
        reply = self.root.busctl(member, *(["s", *arguments] if arguments else []))
        self.assertIsNone(reply.error)
        return reply.flag


class SystemLogStoreTest(MaintenanceTestCase):
    STOPS = [[LAUNCHCTL, "stop", "com.apple.syslogd"], [LAUNCHCTL, "stop", "com.apple.aslmanager"]]
    STARTS = [[LAUNCHCTL, "start", "com.apple.syslogd"],
              [LAUNCHCTL, "start", "com.apple.aslmanager"]]

    def setUp(self):
        super().setUp()
        self.root.write(f"{STORE}/2026.11.20.asl", "text")
        self.root.write(f"{STORE}/.hidden", "text")
        self.root.write(f"{STORE}/folder/deep.asl", "text")

    def erase(self, *failing):
        """With a launchctl that fails for the given words."""
        script = "".join(f'[ "$*" = "{words}" ] && exit 3\n' for words in failing)
        self.root.stand_in(LAUNCHCTL, script=script)
        return self.flag("RemoveASL")

    def test_it_is_emptied_between_stop_and_start(self):
        self.assertTrue(self.erase())
        self.assertEqual(self.root.calls(), self.STOPS + self.STARTS)
        self.assertEqual(self.root.listdir(STORE), [])
        self.assertEqual(self.root.logged(), [])

    def test_nothing_is_touched_when_syslogd_cannot_be_stopped(self):
        self.assertFalse(self.erase("stop com.apple.syslogd"))
        self.assertEqual(self.root.calls(), self.STOPS[:1])
        self.assertEqual(len(self.root.listdir(STORE)), 3)
        self.assertEqual(self.root.logged(), [(LOG_ERR, "Failed to stop com.apple.syslogd")])

    def test_syslogd_stays_stopped_when_aslmanager_cannot_be(self):
        self.assertFalse(self.erase("stop com.apple.aslmanager"))
        self.assertEqual(self.root.calls(), self.STOPS)
        self.assertEqual(len(self.root.listdir(STORE)), 3)
        self.assertEqual(self.root.logged(), [(LOG_ERR, "Failed to stop com.apple.aslmanager")])

    def test_a_missing_store_is_logged_and_no_failure(self):
        os.rename(self.root.host_path(STORE), self.root.host_path("/var/log/elsewhere"))
        self.addCleanup(shutil.rmtree, self.root.host_path("/var/log/elsewhere"))
        self.assertTrue(self.erase())
        self.assertEqual(self.root.calls(), self.STOPS + self.STARTS)
        self.assertEqual(self.root.logged(),
                         [(LOG_ERR, "Failed to remove contents of /var/log/asl")])

    def test_a_failed_start_of_syslogd_blames_aslmanager_too(self):
        self.assertFalse(self.erase("start com.apple.syslogd"))
        self.assertEqual(self.root.calls(), self.STOPS + self.STARTS)
        self.assertEqual(self.root.listdir(STORE), [])
        self.assertEqual(self.root.logged(), [(LOG_ERR, "Failed to start com.apple.syslogd"),
                                              (LOG_ERR, "Failed to start com.apple.aslmanager")])

    def test_a_failed_start_of_aslmanager_is_named_alone(self):
        self.assertFalse(self.erase("start com.apple.aslmanager"))
        self.assertEqual(self.root.logged(), [(LOG_ERR, "Failed to start com.apple.aslmanager")])

    def test_without_launchctl_everything_counts_as_done(self):
        self.remove_tool(LAUNCHCTL)
        self.assertTrue(self.flag("RemoveASL"))
        self.assertEqual(self.root.listdir(STORE), [])


class ToolsTest(MaintenanceTestCase):
    CACHE, KILLALL = "/usr/sbin/dscacheutil", "/usr/bin/killall"
    PERIODIC, MDUTIL = "/usr/sbin/periodic", "/usr/bin/mdutil"
    TOOLS = CACHE, KILLALL, PERIODIC, MDUTIL

    def test_both_tools_flush_names_with_any_status_of_the_first(self):
        both = [[self.CACHE, "-flushcache"], [self.KILLALL, "-HUP", "mDNSResponder"]]
        for first, second in ((0, 0), (1, 0), (0, 1), (1, 2)):
            self.root.stand_in(self.CACHE, status=first)
            self.root.stand_in(self.KILLALL, status=second)
            self.root.forget_calls()
            self.assertEqual(self.flag("FlushDNS"), (first, second) == (0, 0))
            self.assertEqual(self.root.calls(), both)

    def test_missing_tools_count_as_done(self):
        for tool in self.TOOLS:
            self.remove_tool(tool)
        self.assertTrue(self.flag("FlushDNS"))
        self.assertTrue(self.flag("RunPeriodicScript", "daily"))
        self.assertTrue(self.flag("StartSpotlightReindex"))

    def test_a_periodic_script_is_named_as_the_client_named_it(self):
        self.root.stand_in(self.PERIODIC, status=1)
        names = ["daily", "", "a b", "--help", "$(touch /x); rm -rf /", "*", "zweiwöchig\n"]
        for name in names:
            self.assertTrue(self.flag("RunPeriodicScript", name))
        self.assertEqual(self.root.calls(), [[self.PERIODIC, name] for name in names])

    def test_reindexing_asks_for_the_whole_volume(self):
        self.root.stand_in(self.MDUTIL, status=1)
        self.assertTrue(self.flag("StartSpotlightReindex"))
        self.assertEqual(self.root.calls(), [[self.MDUTIL, "-E", "/"]])

    def test_a_tool_gets_the_standard_streams_and_no_more(self):
        self.root.stand_in(self.MDUTIL, script=(
            'n=0; while [ $n -lt 256 ]; do [ -e /proc/$$/fd/$n ] && printf "%s " $n; '
            f"n=$((n+1)); done > {SCRATCH}/descriptors"))
        clients = [self.root.client() for _ in range(5)]
        for client in clients:
            client.call("Echo", "s", "")
        self.assertTrue(self.flag("StartSpotlightReindex"))
        # The shell keeps its script open, on a descriptor of its own choosing,
        # and the list itself takes the place of standard output.
        descriptors = self.root.read(f"{SCRATCH}/descriptors").decode().split()
        self.assertEqual(descriptors[:3], ["0", "1", "2"])
        self.assertLessEqual(len(descriptors), 5)
        self.assertFalse([each for each in descriptors[3:] if int(each) < 10])


class UnifiedLogTest(MaintenanceTestCase):
    ONE_READ = "dd bs=16 count=1 2>/dev/null"

    def test_it_is_erased_with_consent_on_standard_input(self):
        self.root.stand_in(LOG_TOOL, script=self.ONE_READ)
        self.assertEqual(self.root.busctl("RemoveDiagnosticLogs").values,
                         ["y", 0, "", ["", 0, {}]])
        self.assertEqual(self.root.calls(), [[LOG_TOOL, "erase", "--all"]])

    def test_the_tools_words_and_status_reach_the_client(self):
        self.root.stand_in(LOG_TOOL, script=f"{self.ONE_READ} >/dev/null", stdout=" \n",
                           stderr="  no: café\n", status=77)
        self.assertEqual(self.root.busctl("RemoveDiagnosticLogs").values,
                         ["", 77, "  no: café\n", ["", 0, {}]])

    def test_a_missing_tool_gives_one_reply_on_the_wire(self):
        self.remove_tool(LOG_TOOL)
        client = self.root.client()
        serial = client.send("RemoveDiagnosticLogs")
        echo = client.send("Echo", "s", "next")
        first = client.receive()
        self.assertEqual(first.reply_serial, serial)
        output, status, errors, (domain, code, info) = first.values()
        self.assertEqual((output, status, errors), ("", -1, ""))
        self.assertEqual((domain, code), ("org.keepwell.taskRunner", 0))
        self.assertEqual(list(info), ["NSLocalizedDescription"])
        self.assertTrue(info["NSLocalizedDescription"])
        self.assertEqual(client.receive().reply_serial, echo, "no second reply came between")
        self.assertEqual(client.call("Echo", "s", "last")[0], "last")
        self.assertIn("Unable to execute /usr/bin/log. File doesn't seem to be executable.",
                      self.root.log())


class RepairTestCase(MaintenanceTestCase):
    KEPT = 2  # descriptors that the agent keeps from its first tool on
    HALF = 100  # chunks

    def setUp(self):
        super().setUp()
        if not self.root.exists(GATE):
            os.mkfifo(self.root.host_path(GATE))

    def tool(self, script, status=0):
        self.root.stand_in(REPAIR, script=f"echo $$ > {SCRATCH}/pid\n{script}", status=status)

    def gated_tool(self):
        """Chunks one after the other, with the gate before the second half."""
        self.tool(f"n=0\nwhile [ $n -lt {2 * self.HALF} ]; do\n"
                  f"  [ $n = {self.HALF} ] && read line < {GATE}\n"
                  "  echo chunk $n; sleep 0.001; n=$((n+1))\ndone")

    def open_gate(self):
        with open(self.root.host_path(GATE), "w", encoding="utf-8") as gate:
            gate.write("go\n")

    def tool_pid(self):
        return int(self.root.read(f"{SCRATCH}/pid"))

    def counts(self):
        pid = self.root.agent_pid()
        return processes.descriptors(pid), len(processes.threads(pid))


class PermissionsRepairTest(RepairTestCase):
    def numbers(self, messages):
        """The chunks that arrived, in their order; every line must be whole."""
        text = "".join(message.values()[0] for message in messages)
        return [int(line.removeprefix("chunk ")) for line in text.splitlines()]

    def subscribe(self, client):
        client.call("AddMatch", "s", f"type='signal',interface='{PROGRESS}'",
                    destination="org.freedesktop.DBus", path="/org/freedesktop/DBus",
                    interface="org.freedesktop.DBus")

    def progress(self, client):
        return [each for each in client.signals if each.member == "ReceiveNewOutput"]

    def test_progress_comes_in_order_before_the_reply_to_its_client_alone(self):
        self.gated_tool()
        client, other = self.root.client(), self.root.client()
        self.subscribe(client)
        self.subscribe(other)
        serial = client.send("RepairPermissions")
        received = []
        while not any(message.kind == SIGNAL and message.member == "ReceiveNewOutput"
                      for message in received):
            received.append(client.receive_any())  # while the tool waits at the gate
            self.assertNotEqual(received[-1].reply_serial, serial)
        self.open_gate()
        while received[-1].reply_serial != serial:
            received.append(client.receive_any())
        chunks = [message for message in received if message.kind == SIGNAL
                  and message.member == "ReceiveNewOutput"]
        numbers = self.numbers(chunks)
        self.assertEqual(numbers, sorted(set(numbers)))
        self.assertTrue(any(number >= self.HALF for number in numbers))
        # The agent drops every other chunk; text that was in the pipe together
        # is one chunk.
        self.assertGreater(len(chunks), 10)
        self.assertLessEqual(len(numbers), 2 * self.HALF)
        pid = self.tool_pid()
        self.assertEqual(received[-1].values(), [True, pid, ""])
        self.assertEqual(self.root.calls(), [[REPAIR, *REPAIR_ARGUMENTS]])
        for each in (client, other):
            each.call("Echo", "s", "")
            self.assertEqual(self.progress(each), [], "after the reply, or for somebody else")

    def test_a_failed_repair_is_a_success_with_the_tools_process(self):
        self.tool("", status=1)
        self.assertEqual(self.root.busctl("RepairPermissions").values,
                         [True, self.tool_pid(), ""])

    def test_odd_output_does_no_harm(self):
        self.tool("printf 'a\\000b'; sleep 0.01; printf '\\377\\376'; sleep 0.01; "
                  "head -c 5000000 /dev/zero; sleep 0.01; printf x")
        client = self.root.client()
        self.assertTrue(client.call("RepairPermissions")[0])
        self.assertTrue(self.progress(client))
        self.assertEqual(client.call("Echo", "s", "alive")[0], "alive")

    def test_a_tool_that_leaves_a_process_behind_is_not_waited_for(self):
        self.tool(f"(exec 2>/dev/null; read line < {GATE}) & echo dropped")
        self.assertTrue(self.root.client().call("RepairPermissions")[0])
        self.open_gate()

    def test_a_missing_tool_is_an_error_of_the_request(self):
        self.remove_tool(REPAIR)
        client = self.root.client()
        with self.assertRaises(BusError):
            client.call("RepairPermissions")
        self.assertEqual(client.call("Echo", "s", "alive")[0], "alive")

    def test_a_client_that_dies_half_way_leaves_nothing_behind(self):
        self.tool("echo one; sleep 0.01; echo two")
        warm = self.root.client()
        warm.call("RepairPermissions")  # everything that the agent keeps for the next time
        before = self.counts()
        self.gated_tool()
        for _ in range(3):
            dying = self.root.client()
            dying.send("RepairPermissions")
            while dying.receive_any().kind != SIGNAL:
                pass
            dying.close()
            self.open_gate()
            tool = self.tool_pid()
            wait_until(lambda: not is_running(tool))
        wait_until(lambda: all(now <= then for now, then in zip(self.counts(), before)))
        self.assertEqual(warm.call("Echo", "s", "alive")[0], "alive")


class CommandTest(RepairTestCase):
    """The program `keepwell` in the same root."""

    def argv(self, *words):
        return [f"{harness.build_folder}/keepwell", "--bus", self.root.address, "maintenance",
                *words]

    def objects(self, text):
        return [json.loads(line) for line in text.splitlines()]

    def test_each_word_runs_its_tools(self):
        for tool in (LAUNCHCTL, *ToolsTest.TOOLS):
            self.root.stand_in(tool)
        self.root.stand_in(LOG_TOOL, script=UnifiedLogTest.ONE_READ)
        self.root.mkdir(STORE)
        self.tool("")
        rows = {
            ("erase-asl",): SystemLogStoreTest.STOPS + SystemLogStoreTest.STARTS,
            ("erase-unified-log",): [[LOG_TOOL, "erase", "--all"]],
            ("flush-dns",): [[ToolsTest.CACHE, "-flushcache"],
                             [ToolsTest.KILLALL, "-HUP", "mDNSResponder"]],
            ("periodic", "weekly"): [[ToolsTest.PERIODIC, "weekly"]],
            ("reindex-spotlight",): [[ToolsTest.MDUTIL, "-E", "/"]],
            ("repair-permissions",): [[REPAIR, *REPAIR_ARGUMENTS]],
        }
        for words, calls in rows.items():
            with self.subTest(words):
                self.root.forget_calls()
                done = self.root.run(self.argv(*words, "--json"))
                self.assertEqual(done.returncode, 0, done.stderr)
                self.assertTrue(self.objects(done.stdout)[-1]["success"])
                self.assertEqual(self.root.calls(), calls)

    def test_a_tool_that_fails_is_the_exit_status(self):
        self.root.stand_in(ToolsTest.CACHE)
        self.root.stand_in(ToolsTest.KILLALL, status=1)
        done = self.root.run(self.argv("flush-dns"))
        self.assertEqual((done.returncode, done.stderr),
                         (1, b"keepwell: the caches of names could not be flushed\n"))

    def test_a_tool_that_this_system_lacks_is_named_and_nothing_is_asked(self):
        for words, tool in ((("erase-unified-log",), LOG_TOOL), (("repair-permissions",), REPAIR),
                            (("periodic", "daily"), ToolsTest.PERIODIC)):
            self.remove_tool(tool)
            done = self.root.run(self.argv(*words))
            self.assertEqual((done.returncode, done.stdout, done.stderr.decode()),
                             (1, b"", f"keepwell: maintenance {words[0]} needs {tool}, which this "
                                      "system does not have\n"))
            answer, = self.objects(self.root.run(self.argv(*words, "--json")).stdout)
            self.assertEqual((answer["success"], answer["error"]["kind"]), (False, "unavailable"))

    def test_a_program_gets_each_chunk_as_an_object_while_the_tool_runs(self):
        self.gated_tool()
        with self.root.popen(self.argv("repair-permissions", "--json"),
                             stdout=subprocess.PIPE) as command:
            first = json.loads(command.stdout.readline())  # the tool waits at the gate
            self.assertEqual(set(first), {"command", "progress"})
            self.open_gate()
            rest = self.objects(command.stdout.read().decode())
        self.assertEqual(command.returncode, 0)
        self.assertTrue(all("progress" in each for each in rest[:-1]))
        self.assertEqual(rest[-1]["process"], self.tool_pid())

    def test_a_person_sees_the_output_live_and_may_interrupt(self):
        self.root.client().call("Echo", "s", "")
        before = self.counts()
        self.gated_tool()
        terminal, end = os.openpty()
        command = self.root.popen(self.argv("repair-permissions"), stdin=end, stdout=end,
                                  stderr=end, start_new_session=True,
                                  preexec_fn=lambda: fcntl.ioctl(0, termios.TIOCSCTTY, 0))
        os.close(end)
        self.assertTrue(os.read(terminal, 100).startswith(b"chunk "))
        tool = self.tool_pid()
        os.write(terminal, b"\x03")  # the tool runs on, and the command waits for its end
        seen = b""
        while b"^C again leaves at once" not in seen:
            seen += os.read(terminal, 1000)
        os.write(terminal, b"\x03")
        self.assertEqual(command.wait(), 128 + signal.SIGINT)
        os.close(terminal)
        self.assertTrue(is_running(tool), "what root began goes on to its end")
        self.assertEqual(self.root.busctl("Echo", "s", "alive").values[0], "alive")
        self.open_gate()
        wait_until(lambda: not is_running(tool))
        wait_until(lambda: self.counts()[0] <= before[0] + self.KEPT)


if __name__ == "__main__":
    harness.main()
