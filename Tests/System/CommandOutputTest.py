"""Compares the output of `keepwell --json` with the schema that is installed
with it, and tests the command with a real agent that dies or is slow."""
import fcntl
import json
import os
import pty
import select
import shlex
import signal
import socket
import subprocess
import sys
import tempfile
import termios
import time
import unittest

try:
    import jsonschema
except ImportError:
    # Debian's validator belongs to Debian's interpreter.
    DEBIAN = "/usr/bin/python3"
    if os.path.realpath(sys.executable) != os.path.realpath(DEBIAN) and \
            subprocess.run([DEBIAN, "-c", "import jsonschema"], check=False,
                           stderr=subprocess.DEVNULL).returncode == 0:
        os.execv(DEBIAN, [DEBIAN, *sys.argv])
    jsonschema = None

from Support import harness, processes
from Support.bus import PrivateBus, wait_until

SOURCE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))


class CommandTestCase(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="keepwell-command-", dir="/var/tmp")
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        os.mkdir(f"{self.folder}/bus")
        self.bus = PrivateBus(f"{self.folder}/bus")
        self.bus.start_bus()
        self.bus_address = self.bus.address
        self.addCleanup(self.bus.stop_bus)

    def argv(self, *words):
        return [f"{harness.build_folder}/keepwell", "--bus", self.bus_address, *words]

    def run_command(self, *words, **more):
        """Without a terminal, even if the test has one."""
        return subprocess.run(self.argv(*words), capture_output=True, text=True, check=False,
                              timeout=120, start_new_session=True, **more)

    def file(self, name, content="content"):
        path = f"{self.folder}/{name}"
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "w", encoding="utf-8") as file:
            file.write(content)
        return path


class SchemaTest(CommandTestCase):
    @classmethod
    def setUpClass(cls):
        if jsonschema is None:
            raise unittest.SkipTest("no jsonschema: run Scripts/setup test")
        with open(f"{SOURCE}/Resources/keepwell-output.schema.json", encoding="utf-8") as file:
            schema = json.load(file)
        jsonschema.Draft202012Validator.check_schema(schema)
        cls.validator = jsonschema.Draft202012Validator(schema)

    def assert_valid(self, text):
        lines = text.splitlines()
        self.assertTrue(lines)
        for line in lines:
            found = [error.message for error in self.validator.iter_errors(json.loads(line))]
            self.assertEqual(found, [], line)
        return [json.loads(line) for line in lines]

    def objects(self, *words, status=0):
        done = self.run_command("--json", *words)
        self.assertEqual((done.returncode, done.stderr), (status, ""), done.stdout)
        return self.assert_valid(done.stdout)

    def test_every_command_prints_output_of_the_schema(self):
        item = self.file("tree/Editor")
        job = self.file("job.plist", "<plist><dict><key>Label</key><string>x</string></dict></plist>")
        said = set()

        def note(*words, status=0):
            said.update(each.get("command") for each in self.objects(*words, status=status))

        note("echo", "hello")
        note("size", item)
        note("size", item, f"{self.folder}/missing", status=1)
        note("size", "--once", item)
        note("size", "--local", item)
        note("exists", item)
        note("exists", f"{self.folder}/missing", status=1)
        note("size", "-d", "2", "--total", "--min", "1", self.folder)
        note("find", "editor", "--under", self.folder)
        note("find", "--largest", "2", "--under", self.folder)
        note("find", "--empty", "--under", self.folder)
        note("find", "no such application here")
        note("inspect", item, self.folder)
        note("launchd", "info", job)
        note("remove", "--dry-run", "--keep", "Editor", f"{self.folder}/tree")
        note("shred", "-n", item)
        note("trash", "-n", item)
        note("truncate", "-n", item)
        note("move", "-n", item, f"{self.folder}/moved")
        note("remove", "/usr", status=1)
        environment = {**os.environ, "HOME": self.folder}
        for words in (("trash", item), ("trash", "list"), ("trash", "restore", "-n", item),
                      ("trash", "empty", "-n"), ("trash", "restore", item)):
            done = self.run_command("--json", *words, env=environment)
            self.assertEqual((done.returncode, done.stderr), (0, ""), done.stdout)
            said.update(each["command"] for each in self.assert_valid(done.stdout))
        note("truncate", item)
        note("move", item, f"{self.folder}/moved")
        note("remove", "--keep", "moved", self.folder + "/moved", item)
        note("shred", f"{self.folder}/moved")
        note("remove", item)  # which is gone already
        note("remove", "-n", "/", status=1)
        note("startup", "start", "x", status=1)  # for which there are no tools here
        note("startup", "stop", "x", status=1)
        note("login-item", "remove-global", "/nowhere")
        note("maintenance", "reindex-spotlight", status=1)
        note("maintenance", "periodic", "daily", status=1)
        odd = os.fsencode(self.folder) + b"/odd \xff"
        with open(odd, "wb"):
            pass
        note("inspect", odd)
        note("remove", "-n", odd, status=1)
        note("find", "odd", "--under", self.folder)
        note("terminate")
        self.assertEqual(len(said), 20)

    def test_failures_are_as_valid(self):
        folder = self.file("tree/file")
        for status, words in ((1, ("move", f"{self.folder}/missing", f"{self.folder}/x")),
                              (1, ("inspect", f"{self.folder}/missing")),
                              (1, ("find", "x", "--under", f"{self.folder}/missing")),
                              (1, ("size", "--local", f"{self.folder}/missing")),
                              (1, ("launchd", "info", folder)),
                              (1, ("shred", f"{self.folder}/missing")),
                              (1, ("truncate", self.folder)),
                              (2, ("dance",)), (2, ("remove",)), (2, ("--timeout", "x", "echo"))):
            with self.subTest(words=words):
                for each in self.objects(*words, status=status):
                    self.assertFalse(each["success"])
        self.bus.stop_bus()
        self.assertEqual(self.objects("remove", "/a", status=3)[0]["error"]["kind"], "unreachable")

    def test_the_schema_takes_dry_runs_for_which_this_system_lacks_the_tools(self):
        for command, subject in (("launchd remove", {"path": "/a"}), ("slim", {"path": "/a"}),
                                 ("package forget", {"identifier": "org.p"}),
                                 ("maintenance erase-asl", {}),
                                 ("maintenance erase-unified-log", {})):
            output = {"command": command, **subject, "dryRun": True, "success": True}
            self.validator.validate(output)
        items = {"path": "/a", "remove": ["/a"], "kept": [], "unknown": [], "measured": [],
                 "items": 1, "allocated": 4096, "freed": 4096}
        self.validator.validate({"command": "kext remove", **items, "dryRun": True, "success": True})

    def test_the_schema_refuses_other_output(self):
        for wrong in ({}, {"success": False}, {"success": True, "error": {}},
                      {"command": "dance", "success": True}, {"success": True, "surprise": 1},
                      {"command": "size", "success": True, "path": "/a"},
                      {"command": "remove", "success": True, "path": "/a", "dryRun": True},
                      {"command": "slim", "success": True, "dryRun": True},
                      {"success": False, "error": {"kind": "strange", "description": "x"}}):
            self.assertFalse(self.validator.is_valid(wrong), wrong)


class RealAgentTest(CommandTestCase):
    def test_ten_thousand_paths_go_in_order(self):
        paths = [self.file(f"many/{number}") for number in range(10_000)]
        done = self.run_command("remove", "-0", input="".join(f"{path}\0" for path in paths))
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        self.assertEqual(done.stdout.splitlines(), [f"Removed {path}" for path in paths])
        self.assertEqual(os.listdir(f"{self.folder}/many"), [])

    def test_an_agent_killed_in_mid_request_is_an_interruption_and_the_next_starts(self):
        self.run_command("echo", "x")
        pid = self.bus.agent_pid()
        os.kill(pid, signal.SIGSTOP)
        watch = ["busctl", f"--address={self.bus.address}", "monitor", "--match",
                 "type='method_call',member='SizeOfItemAtPath'"]
        with subprocess.Popen(watch, stdout=subprocess.PIPE, stderr=subprocess.PIPE) as monitor:
            monitor.stderr.readline()  # it is watching
            with subprocess.Popen(self.argv("--json", "size", "/usr"),
                                  stdout=subprocess.PIPE) as command:
                monitor.stdout.readline()  # the bus has passed the request on
                os.kill(pid, signal.SIGKILL)
                answer = json.loads(command.communicate(timeout=60)[0])
            monitor.terminate()
        self.assertEqual((command.returncode, answer["error"]["kind"]), (3, "interrupted"))
        self.bus.wait_for_end(pid)
        self.assertEqual(self.run_command("echo", "again").stdout, "again\n")

    def test_an_agent_that_is_silent_is_waited_for_as_long_as_was_asked(self):
        self.run_command("echo", "x")
        pid = self.bus.agent_pid()
        os.kill(pid, signal.SIGSTOP)
        done = self.run_command("--json", "--timeout", "0.2", "echo", "x")
        os.kill(pid, signal.SIGCONT)
        self.assertEqual((done.returncode, json.loads(done.stdout)["error"]["kind"]),
                         (3, "deadline"))

    def test_a_bus_that_is_silent_is_waited_for_as_long_as_was_asked(self):
        path = f"{self.folder}/silent-bus"
        with socket.socket(socket.AF_UNIX) as silent:
            silent.bind(path)
            silent.listen()
            self.bus_address = f"unix:path={path}"
            done = self.run_command("--json", "--timeout", "0.2", "echo", "x")
        self.assertEqual((done.returncode, json.loads(done.stdout)["error"]["kind"]),
                         (3, "deadline"))

    def test_a_dry_run_counts_hard_links_outside(self):
        size = 1 << 20
        inside = self.file("tree/linked", "x" * size)
        self.file("tree/alone", "x" * size)
        twice = self.file("tree/twice", "x" * size)
        os.link(inside, f"{self.folder}/outside")
        os.link(twice, f"{self.folder}/tree/again")
        os.sync()
        done = self.run_command("--json", "remove", "--dry-run", f"{self.folder}/tree")
        plan = json.loads(done.stdout.splitlines()[0])
        folder = os.stat(f"{self.folder}/tree").st_blocks * 512
        each = os.stat(inside).st_blocks * 512
        self.assertEqual((plan["items"], plan["allocated"], plan["freed"]),
                         (5, folder + 3 * each, folder + 2 * each))
        self.assertTrue(os.path.exists(inside) and os.path.exists(twice))
        self.assertEqual(self.run_command("remove", f"{self.folder}/tree").returncode, 0)
        self.assertEqual(os.stat(f"{self.folder}/outside").st_blocks * 512, each)

    def test_kept_items_survive_with_the_folders_that_hold_them(self):
        for name in ("a/keep.pdf", "a/go", "a/b/thesis/draft", "a/b/go", "a/c/go", "d/go"):
            self.file(f"tree/{name}")
        done = self.run_command("remove", f"{self.folder}/tree", "--keep", "*.pdf", "--keep",
                                f"{self.folder}/tree/a/b/thesis")
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        left = sorted(os.path.relpath(os.path.join(folder, name), f"{self.folder}/tree")
                      for folder, _, names in os.walk(f"{self.folder}/tree") for name in names)
        self.assertEqual(left, ["a/b/thesis/draft", "a/keep.pdf"])
        self.assertEqual(sorted(os.listdir(f"{self.folder}/tree")), ["a"])


class TerminalTest(CommandTestCase):
    """The command on a terminal, as a user sees it."""

    def converse(self, *words, answer=b"", environment=None):
        return self.converse_with(self.argv(*words), answer, environment)

    def converse_with(self, argv, answer=b"", environment=None):
        pid, terminal = pty.fork()
        if pid == 0:
            os.environ.pop("NO_COLOR", None)
            os.environ.update({"TERM": "xterm", **(environment or {})})
            os.execv(argv[0], argv)
        seen = b""
        while True:
            if answer and b"[y/N] " in seen:
                os.write(terminal, answer)
                answer = b""
            try:
                if not select.select([terminal], [], [], 60)[0]:
                    break
                piece = os.read(terminal, 4096)
            except OSError:
                break
            if not piece:
                break
            seen += piece
        status = os.waitstatus_to_exitcode(os.waitpid(pid, 0)[1])
        os.close(terminal)
        return status, seen.decode()

    def test_a_removal_is_asked_about_and_a_no_leaves_everything(self):
        item = self.file("item")
        for answer in (b"n\n", b"\n", b"no way\n"):
            status, seen = self.converse("remove", item, answer=answer)
            self.assertEqual(status, 1, seen)
            self.assertIn(f"Remove {item}: 1 item, 4 KB? [y/N]", seen)
            self.assertIn("nothing was done", seen)
            self.assertTrue(os.path.exists(item))
        status, seen = self.converse("remove", item, answer=b"y\n")
        self.assertEqual(status, 0, seen)
        self.assertFalse(os.path.exists(item))

    def test_nothing_is_asked_with_yes_nor_without_a_terminal(self):
        status, seen = self.converse("remove", "--yes", self.file("item"))
        self.assertEqual(status, 0, seen)
        self.assertNotIn("[y/N]", seen)
        done = self.run_command("remove", self.file("item"), stdin=subprocess.DEVNULL)
        self.assertEqual((done.returncode, done.stderr), (0, ""))

    def test_the_question_gives_figures_and_reaches_the_terminal_despite_redirection(self):
        item = self.file("tree/file")
        self.file("tree/kept")
        command = " ".join(map(shlex.quote, self.argv("remove", "-0", "--keep", "kept")))
        for redirection in ("", " 2>/dev/null", " >/dev/null 2>&1"):
            script = f"printf '%s\\0' {self.folder}/tree | {command}{redirection}"
            status, seen = self.converse_with(["/bin/sh", "-c", script], answer=b"n\n")
            self.assertIn(f"Remove {self.folder}/tree, keeping 1: 1 item, 4 KB? [y/N]", seen)
            self.assertEqual(status, 1, seen)
            self.assertTrue(os.path.exists(item))
        status, seen = self.converse_with(["/bin/sh", "-c", script], answer=b"y\n")
        self.assertEqual((status, os.listdir(f"{self.folder}/tree")), (0, ["kept"]), seen)

    def test_a_dumb_terminal_gets_no_escape_sequences(self):
        paths = [f"{self.folder}/missing{number}" for number in range(300)]
        _, seen = self.converse("remove", "--yes", *paths, environment={"TERM": "dumb"})
        self.assertNotIn("\x1b", seen)
        self.assertNotIn(" of 300", seen)

    def test_bars_have_blocks_where_the_terminal_has_them(self):
        self.file("tree/file", "x" * 100_000)
        for environment, letter in (({"LANG": "C.UTF-8"}, "\u2588"),
                                    ({"LANG": "C"}, "#"),
                                    ({"LANG": "C.UTF-8", "LC_ALL": "C"}, "#"),
                                    ({"LANG": "C.UTF-8", "TERM": "dumb"}, "#")):
            _, seen = self.converse("size", "--children", f"{self.folder}/tree",
                                    environment=environment)
            self.assertRegex(seen, rf"(?m)^ +\S+ KB 100% {letter * 20} ", repr(seen))
            self.assertRegex(seen, rf"(?m)^ +\S+ KB  \d\d% {letter}+ *   file\r$")
            self.assertNotIn("\x1b", seen)
        plain = self.run_command("size", "--children", f"{self.folder}/tree").stdout
        self.assertRegex(plain, r"\A\S+ KB\t\S+/tree\n\S+ KB\t\S+/tree/file\n\Z")

    def test_a_name_cannot_act_on_the_terminal(self):
        item = self.file("a\u009b2J\x1b]0;x\x07\u202eb")
        _, seen = self.converse("inspect", item)
        self.assertIn("a\\u009b2J\\x1b]0;x\\x07\\u202eb", seen)
        for letter in ("\u009b", "\x1b]", "\x07", "\u202e"):
            self.assertNotIn(letter, seen)

    def on_terminal(self, *words):
        """The command on a terminal of its own, with that terminal."""
        master, end = os.openpty()
        self.addCleanup(os.close, master)
        command = subprocess.Popen(self.argv(*words), stdin=end, stdout=end, stderr=end,
                                   start_new_session=True, env={**os.environ, "TERM": "xterm"},
                                   preexec_fn=lambda: fcntl.ioctl(0, termios.TIOCSCTTY, 0))
        os.close(end)
        self.addCleanup(command.wait)
        self.addCleanup(command.kill)  # which comes first
        return command, master

    def read(self, terminal, until=None):
        """The output until the text, or the end."""
        seen = b""
        while until is None or until not in seen:
            try:
                seen += os.read(terminal, 4096)
            except OSError:  # the other end is closed
                break
        return seen.decode()

    def stopped_agent(self):
        """An agent that is stopped until the test continues it."""
        self.run_command("echo", "x")
        pid = self.bus.agent_pid()
        os.kill(pid, signal.SIGSTOP)
        self.addCleanup(os.kill, pid, signal.SIGCONT)
        return pid

    def wait_until_asked(self, command):
        """Until it has the client's thread, and its first thread waits for the
        answer. The second thread is the watch for signals."""
        pid = command.pid
        wait_until(lambda: len(processes.threads(pid)) >= 3 + processes.has_sanitizer_thread(pid))

        def waits():
            before = processes.switches(pid)[pid]
            time.sleep(0.05)
            return processes.sleeps(pid) and processes.switches(pid)[pid] == before
        wait_until(waits)

    def test_an_interrupt_stops_requests_that_have_not_begun_and_tells_each_path(self):
        pid = self.stopped_agent()
        paths = [self.file(f"item{number}") for number in range(60)]
        command, terminal = self.on_terminal("remove", "--yes", *paths)
        self.wait_until_asked(command)
        os.write(terminal, b"\x03")
        seen = self.read(terminal, b"^C again leaves at once")
        os.kill(pid, signal.SIGCONT)
        seen += self.read(terminal)
        self.assertEqual(command.wait(timeout=60), 130, seen)
        self.assertRegex(seen, r"Stopped: [01] of 60 removed")
        self.assertIn("item59: stopped before it began", seen)
        self.assertTrue(all(os.path.exists(path) for path in paths[1:]))

    def test_a_second_interrupt_leaves_at_once(self):
        self.stopped_agent()
        command, terminal = self.on_terminal("size", "/usr")
        self.wait_until_asked(command)
        os.write(terminal, b"\x03")
        self.read(terminal, b"^C again leaves at once")
        os.write(terminal, b"\x03")
        self.assertEqual(command.wait(timeout=60), 130)

    def test_help_that_cannot_be_written_is_a_failure(self):
        with open("/dev/full", "wb") as full:
            done = subprocess.run(self.argv("--help"), stdout=full, stderr=subprocess.PIPE,
                                  check=False, start_new_session=True)
        self.assertEqual((done.returncode, done.stderr),
                         (1, b"keepwell: the answer could not be written\n"))

    def test_output_to_a_closed_stream_is_a_failure(self):
        item = self.file("item")
        for closed, status in (("<&- >&-", 1), (">&-", 1), ("<&- >&- 2>&-", 1), ("<&-", 0)):
            done = subprocess.run(["sh", "-c", f'exec "$@" {closed}', "sh",
                                   *self.argv("exists", item, item)],
                                  capture_output=True, text=True, check=False, timeout=120,
                                  start_new_session=True)
            self.assertEqual(done.returncode, status, (closed, done))
            complaint = "" if status == 0 or "2>&-" in closed else \
                "keepwell: the answer could not be written\n"
            self.assertEqual(done.stderr, complaint, closed)

    def test_input_that_cannot_be_read_is_a_failure(self):
        folder = os.open("/", os.O_RDONLY)
        self.addCleanup(os.close, folder)
        done = self.run_command("exists", "-0", stdin=folder)
        self.assertEqual((done.returncode, done.stdout, done.stderr),
                         (2, "", "keepwell: standard input could not be read to its end\n"))

    def test_colours_are_for_terminals_that_want_them(self):
        for environment, coloured in (({}, True), ({"NO_COLOR": "1"}, False),
                                      ({"TERM": "dumb"}, False)):
            _, seen = self.converse("inspect", "/nowhere", environment=environment)
            self.assertEqual("\x1b[" in seen, coloured, repr(seen))
        self.assertNotIn("\x1b", self.run_command("inspect", "/nowhere").stderr)

    def test_progress_shows_on_a_terminal_and_leaves_no_trace(self):
        paths = [f"{self.folder}/missing{number}" for number in range(3000)]
        _, seen = self.converse("remove", "--yes", *paths)
        self.assertIn(" of 3000", seen)
        shown = seen.replace("\r\n", "\n").split("\n")
        for line in shown:  # the text before the last erasure is gone
            self.assertNotRegex(line.split("\x1b[K")[-1], r"^\d+ of ")


if __name__ == "__main__":
    harness.main(needs_root=False)
