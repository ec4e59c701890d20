"""Programs that start by themselves, through the real agent: launchd jobs,
startup items, login items, with stand-ins at the paths of the system's tools."""
import json
import os
import plistlib
import stat
import subprocess

from Support import harness, processes
from Support.bus import CallFailed, is_running, wait_until
from Support.root import DATA
from Support.services import ServicesTestCase

LAUNCHCTL = "/bin/launchctl"
STARTER = "/sbin/SystemStarter"
TOOLS = "/Library/PrivilegedHelperTools"
AUTOSTART = "/etc/xdg/autostart"
DATABASE = "/private/var/db/launchd.db/com.apple.launchd.peruser.0/overrides.plist"
STATE = "/run/keepwell-test/launchd"

# A launchd of files: a job is loaded when a file has its label, and disabled
# for good when another one does. A third holds the label of a list and has the
# list's name.
JOB_TABLE = f"""
state={STATE}
verb=$1; shift
[ "$1" = -w ] && {{ forgood=1; shift; }}
label=$(cat "$state/labels/${{1##*/}}" 2>/dev/null)
case $verb in
list)
  [ -e "$state/loaded/$1" ] || {{ echo "Could not find service" >&2; exit 113; }}
  printf '{{\\n\\t"Label" = "%s";\\n\\t"LastExitStatus" = 0;\\n}};\\n' "$1" ;;
load)
  [ -n "$label" ] || exit 1
  [ -n "$forgood" ] && rm -f "$state/disabled/$label"
  : > "$state/loaded/$label" ;;
unload)
  [ -e "$state/loaded/$label" ] || {{ echo "$1: Could not find specified service"; exit 0; }}
  [ -n "$forgood" ] && : > "$state/disabled/$label"
  rm -f "$state/loaded/$label" ;;
start|stop) [ -e "$state/loaded/$1" ] || exit 3 ;;
esac
"""


class LaunchdJobTest(ServicesTestCase):
    def setUp(self):
        super().setUp()
        for folder in (f"{STATE}/labels", f"{STATE}/loaded", f"{STATE}/disabled", TOOLS):
            self.root.empty(folder)
        self.root.stand_in(LAUNCHCTL, script=JOB_TABLE)

    def job(self, name="org.example.job", label=None, form=plistlib.FMT_XML, loaded=True):
        label = label or name
        path = self.root.write(f"{DATA}/{name}.plist",
                               plistlib.dumps({"Label": label, "RunAtLoad": True}, fmt=form))
        self.root.write(f"{STATE}/labels/{name}.plist", label)
        if loaded:
            self.root.write(f"{STATE}/loaded/{label}")
        return path

    def jobs(self, which="loaded"):
        return self.root.listdir(f"{STATE}/{which}")

    def test_a_job_is_disabled_and_enabled_again(self):
        path = self.job("file", "org.example.label")
        self.flag("DisableLaunchdAgentAtPath", path)
        self.assert_calls((LAUNCHCTL, "list", "org.example.label"),
                          (LAUNCHCTL, "unload", "-w", path),
                          (LAUNCHCTL, "stop", "org.example.label"))
        self.assertEqual((self.jobs(), self.jobs("disabled")), ([], ["org.example.label"]))
        self.flag("DisableLaunchdAgentAtPath", path)
        self.assert_calls((LAUNCHCTL, "list", "org.example.label"))
        self.flag("EnableLaunchdAgentAtPath", path)
        self.assert_calls((LAUNCHCTL, "list", "org.example.label"),
                          (LAUNCHCTL, "list", "org.example.label"),
                          (LAUNCHCTL, "load", "-w", path))
        self.assertEqual((self.jobs(), self.jobs("disabled")), (["org.example.label"], []))
        self.flag("EnableLaunchdAgentAtPath", path)
        self.assert_calls((LAUNCHCTL, "list", "org.example.label"))

    def test_removing_a_job_takes_its_list_and_the_tool_of_the_lists_name(self):
        path = self.job("org.example.tool", "another.label")
        for name in ("org.example.tool", "another.label"):
            self.root.write(f"{TOOLS}/{name}", "tool", 0o755)
        self.flag("RemoveLaunchdAgentAtPath", path)
        self.assert_calls((LAUNCHCTL, "unload", path))
        self.assertFalse(self.root.exists(path))
        self.assertEqual(self.root.listdir(TOOLS), ["another.label"])

    def test_removing_a_job_that_is_not_loaded_is_refused_by_the_tools_words(self):
        path = self.job(loaded=False)
        self.root.write(f"{TOOLS}/org.example.job", "tool")
        self.flag("RemoveLaunchdAgentAtPath", path, False)
        self.assert_calls((LAUNCHCTL, "unload", path))
        self.assertTrue(self.root.exists(path) and self.root.exists(f"{TOOLS}/org.example.job"))
        self.assertIn("Unloading error: " + path, self.root.log())

    def test_a_tool_that_cannot_be_removed_keeps_the_list(self):
        path = self.job()
        tool = self.root.write(f"{TOOLS}/org.example.job", "tool")
        os.chown(self.root.host_path(tool), 0, 0)
        subprocess.run(["mount", "--bind", self.root.host_path(tool), self.root.host_path(tool)],
                       check=True)
        self.addCleanup(subprocess.run, ["umount", self.root.host_path(tool)], check=True)
        self.flag("RemoveLaunchdAgentAtPath", path, False)
        self.assertTrue(self.root.exists(path))
        self.assertIn("Removing error: ", self.root.log())
        self.assertIn(f" file: {tool}", self.root.log())

    def test_binary_lists_are_read_and_others_have_no_label(self):
        path = self.job(form=plistlib.FMT_BINARY)
        self.flag("DisableLaunchdAgentAtPath", path)
        self.assertEqual(self.root.calls()[0], [LAUNCHCTL, "list", "org.example.job"])
        self.root.forget_calls()
        for content in (b"", b"garbage", b"bplist00", plistlib.dumps(["Label"]),
                        plistlib.dumps({"Label": 7})):
            self.flag("DisableLaunchdAgentAtPath", self.root.write(f"{DATA}/odd.plist", content))
        self.flag("DisableLaunchdAgentAtPath", f"{DATA}/missing.plist")
        os.mkfifo(self.root.host_path(f"{DATA}/fifo.plist"))
        self.flag("DisableLaunchdAgentAtPath", f"{DATA}/fifo.plist")
        self.assert_calls()

    def test_a_dictionary_in_any_notation_is_a_job_and_nothing_else_is(self):
        path = self.job()
        for output, is_job in ((plistlib.dumps({"Label": "x"}).decode(), True), ("\n\n {};", True),
                               ("{ truncated", True), (plistlib.dumps(["x"]).decode(), False),
                               ("Could not find {service}", False), ("", False), ("\n", False),
                               ("(\n)", False)):
            with self.subTest(output=output):
                self.root.stand_in(LAUNCHCTL, script="[ $1 = list ] || exit 0", stdout=output)
                self.flag("EnableLaunchdAgentAtPath", path)
                lines = [line[1] for line in self.root.calls()]
                self.assertEqual(lines, ["list"] if is_job else ["list", "list", "load"])
                self.root.forget_calls()

    def test_only_standard_output_tells_of_a_failed_unload(self):
        path = self.job()
        listed = "[ $1 = list ] && { echo '{}'; exit 0; }"
        for script, expected in (("echo text >&2; exit 5", True), ("echo '  '; exit 0", True),
                                 ("echo text; exit 0", False), ("echo text; echo more >&2", False),
                                 ("kill -9 $$", True), ("echo text; kill -9 $$", False)):
            with self.subTest(script=script):
                self.root.stand_in(LAUNCHCTL, script=f"{listed}\n[ $1 = unload ] || exit 0\n{script}")
                self.flag("DisableLaunchdAgentAtPath", path, expected)

    def test_a_load_fails_by_status_and_by_signal(self):
        path = self.job(loaded=False)
        for script, expected in (("exit 1", False), ("kill -9 $$", False), ("echo text", True),
                                 ("echo text >&2", True)):
            with self.subTest(script=script):
                self.root.stand_in(LAUNCHCTL, script=f"[ $1 = load ] || exit 0\n{script}")
                self.flag("EnableLaunchdAgentAtPath", path, expected)

    def test_a_launchctl_that_cannot_be_executed_counts_as_one_that_did_it(self):
        path = self.job(loaded=False)
        os.chmod(self.root.host_path(LAUNCHCTL), 0o644)
        self.flag("EnableLaunchdAgentAtPath", path)
        self.flag("RemoveLaunchdAgentAtPath", path)
        self.assertFalse(self.root.exists(path))
        self.assertIn("Unable to execute /bin/launchctl. File doesn't seem to be executable.",
                      self.root.log())

    def test_a_launchctl_that_never_answers_is_waited_for_thirty_seconds_and_ended(self):
        path = self.job()
        self.root.stand_in(LAUNCHCTL, script="[ $1 = list ] || exit 0\n"
                           f"echo $$ > {STATE}/pid\nexec sleep 1000")
        descriptors = self.descriptors()
        slow, other = self.root.client(), self.root.client()
        serial = slow.send("DisableLaunchdAgentAtPath", "s", path)
        wait_until(lambda: self.root.exists(f"{STATE}/pid"))
        self.assertEqual(other.call("Echo", "s", "meanwhile")[0], "meanwhile")
        self.assertTrue(slow.wait(serial)[0])
        self.assert_calls((LAUNCHCTL, "list", "org.example.job"))
        self.assertEqual(self.descriptors(), descriptors)
        # The process namespace of the root is that of the test.
        self.assertFalse(is_running(int(self.root.read(f"{STATE}/pid"))))

    def descriptors(self):
        self.root.busctl("Echo", "s", "")
        return self.root.agent_descriptors()

    def test_a_launchctl_that_prints_without_end_is_ended(self):
        path = self.job()
        self.root.stand_in(LAUNCHCTL, script="[ $1 = list ] || exit 0\nexec yes '{'")
        self.flag("DisableLaunchdAgentAtPath", path)
        self.assert_calls((LAUNCHCTL, "list", "org.example.job"))

    def keepwell(self, *words):
        done = self.root.run([f"{harness.build_folder}/keepwell", "--bus", self.root.address,
                              *words])
        return done.returncode, done.stdout.decode(), done.stderr.decode()

    def test_the_command_line_does_and_tells_the_same(self):
        path = self.job(loaded=False)
        self.assertEqual(self.keepwell("launchd", "enable", path), (0, f"Enabled {path}\n", ""))
        self.assertEqual(self.jobs(), ["org.example.job"])
        self.assertEqual(self.keepwell("launchd", "info", path)[1].splitlines()[:2],
                         ["Label: org.example.job", "Loaded: yes"])
        self.assertEqual(self.keepwell("launchd", "disable", path)[0], 0)
        self.assertEqual(self.jobs(), [])
        status, text, complaint = self.keepwell("--json", "launchd", "remove", path)
        self.assertEqual((status, complaint), (1, ""))
        self.assertEqual(json.loads(text),
                         {"command": "launchd remove", "path": path, "success": False,
                          "error": {"kind": "failed", "description": "the agent gave no reason"}})
        self.root.write(f"{STATE}/loaded/org.example.job")
        self.assertEqual(self.keepwell("launchd", "remove", path)[0], 0)
        self.assertFalse(self.root.exists(path))
        own = "/Library/LaunchDaemons/org.keepwell.pro.agent.plist"
        self.root.write(own, "x")
        self.assertEqual(self.keepwell("launchd", "remove", own), (0, f"Removed {own}\n", ""))
        self.assertFalse(self.root.exists(own))

    def test_nothing_of_all_this_leaks_a_descriptor_or_a_process(self):
        path = self.job()
        self.flag("DisableLaunchdAgentAtPath", path)  # opens everything of the first use
        before = self.descriptors()
        for _ in range(20):
            self.flag("EnableLaunchdAgentAtPath", path)
            self.flag("DisableLaunchdAgentAtPath", path)
        self.flag("EnableLaunchdAgentAtPath", path)
        self.flag("RemoveLaunchdAgentAtPath", path)
        self.assertEqual(self.descriptors(), before)
        self.assertEqual(processes.children(self.root.agent_pid()), set())

    def test_the_agent_removes_itself_and_a_new_one_starts(self):
        name = "org.keepwell.pro.agent"
        plist = f"/Library/LaunchDaemons/{name}.plist"
        own = [f"{TOOLS}/{name}", plist, "/var/run/org.keepwell.agent.socket"]
        socket = f"/var/run/{name}.socket"
        for path in (*own, socket):
            self.root.write(path, "x")
        self.root.busctl("Echo", "s", "")
        pid = self.root.agent_pid()
        with self.assertRaises(CallFailed):
            self.root.busctl("RemoveLaunchdAgentAtPath", "s", plist)
        self.root.wait_for_end(pid)
        self.assertEqual([path for path in own if self.root.exists(path)], [])
        self.assertTrue(self.root.exists(socket))
        self.assert_calls()
        self.root.busctl("Echo", "s", "")
        self.assertNotEqual(self.root.agent_pid(), pid)


class StartupItemTest(ServicesTestCase):
    def test_the_name_goes_in_quotes(self):
        self.root.stand_in(STARTER)
        for name in ("Apache", "a b", "", "-x", "\"", "; touch /tmp/x", "Grüße", "%@"):
            self.flag("StartStartupItem", name)
            self.flag("StopStartupItem", name)
            self.assert_calls((STARTER, "start", f'"{name}"'), (STARTER, "stop", f'"{name}"'))

    def test_the_answer_is_yes_for_any_result_of_the_tool(self):
        for script in ("exit 7", "kill -9 $$", "echo a; echo b >&2; exit 1"):
            self.root.stand_in(STARTER, script=script)
            self.flag("StartStartupItem", "x")
        os.chmod(self.root.host_path(STARTER), 0o644)
        self.flag("StartStartupItem", "x")
        os.unlink(self.root.host_path(STARTER))
        self.flag("StopStartupItem", "x")

    def test_a_tool_that_hangs_delays_its_own_client_alone(self):
        os.mkfifo(self.root.host_path(f"{DATA}/gate"))
        self.root.stand_in(STARTER, script=f"read word < {DATA}/gate")
        slow, other = self.root.client(), self.root.client()
        slow.call("Echo", "s", "past the bus's own greetings")
        started = slow.send("StartStartupItem", "s", "x")
        behind = slow.send("Echo", "s", "behind")
        wait_until(lambda: self.root.calls())
        for _ in range(20):
            self.assertEqual(other.call("Echo", "s", "other")[0], "other")
        with open(self.root.host_path(f"{DATA}/gate"), "w", encoding="utf-8") as gate:
            gate.write("go\n")
        first = slow.receive()
        self.assertEqual((first.reply_serial, first.values()[0]), (started, True))
        self.assertEqual(slow.wait(behind)[0], "behind")


class OverridesTest(ServicesTestCase):
    BEFORE = {"org.example.item": {"Disabled": False}, "other": {"Disabled": True}, "n": 2**63,
              "data": b"\0\1", "text": "Grüße & <tags>",
              "_com.apple.SMLoginItemBookmarks": {"org.example.item": b"bookmark", "other": b"x"}}
    AFTER = {key: value for key, value in BEFORE.items() if key != "org.example.item"} | {
        "_com.apple.SMLoginItemBookmarks": {"other": b"x"}}

    def setUp(self):
        super().setUp()
        self.folder = os.path.dirname(DATABASE)
        self.root.empty(self.folder)

    def write(self, form=plistlib.FMT_BINARY):
        self.root.write(DATABASE, plistlib.dumps(self.BEFORE, fmt=form), 0o640)

    def test_either_form_is_written_back_as_xml_less_the_item(self):
        for form in (plistlib.FMT_BINARY, plistlib.FMT_XML):
            self.write(form)
            os.chown(self.root.host_path(DATABASE), 12, 34)
            self.flag("RemoveSMLoginItem", "org.example.item")
            self.assertEqual(self.root.read(DATABASE), plistlib.dumps(self.AFTER))
            status = os.stat(self.root.host_path(DATABASE))
            self.assertEqual((stat.S_IMODE(status.st_mode), status.st_uid, status.st_gid),
                             (0o640, 12, 34))
            self.assertEqual(self.root.listdir(self.folder), ["overrides.plist"])

    def test_an_identifier_that_is_not_there_changes_nothing_else(self):
        self.write()
        self.flag("RemoveSMLoginItem", "absent")
        self.assertEqual(plistlib.loads(self.root.read(DATABASE)), self.BEFORE)

    def test_without_a_database_nothing_is_made(self):
        self.flag("RemoveSMLoginItem", "org.example.item")
        self.assertEqual(self.root.listdir(self.folder), [])

    def test_an_unparseable_list_stays_byte_for_byte(self):
        binary = plistlib.dumps(self.BEFORE, fmt=plistlib.FMT_BINARY)
        for content in (b"", b"garbage", binary[:-1], binary + b"\0", plistlib.dumps(["x"]),
                        plistlib.dumps({"uid": plistlib.UID(1)}, fmt=plistlib.FMT_BINARY),
                        b"<dict>" * 100000, b"\0" * 70000):
            self.root.write(DATABASE, content)
            self.flag("RemoveSMLoginItem", "org.example.item")
            self.assertEqual(self.root.read(DATABASE), content)

    def test_a_string_that_xml_cannot_hold_is_a_failure_and_stays(self):
        content = plistlib.dumps({"org.example.item": 1, "x": "\x01"}, fmt=plistlib.FMT_BINARY)
        self.root.write(DATABASE, content)
        self.flag("RemoveSMLoginItem", "org.example.item", False)
        self.assertEqual(self.root.read(DATABASE), content)
        self.assertIn("Error occured: ", self.root.log())

    def assert_write_fails_whole(self):
        before = self.root.read(DATABASE), self.root.listdir(self.folder)
        self.flag("RemoveSMLoginItem", "org.example.item", False)
        self.assertEqual((self.root.read(DATABASE), self.root.listdir(self.folder)), before)

    def mount_over_folder(self, *options):
        host = self.root.host_path(self.folder)
        subprocess.run(["mount", *options, host], check=True)
        self.addCleanup(subprocess.run, ["umount", host], check=True)
        return host

    def test_a_full_disk_leaves_the_old_database(self):
        host = self.mount_over_folder("-t", "tmpfs", "-o", "size=64k", "tmpfs")
        self.write()
        with open(f"{host}/filler", "wb", buffering=0) as filler, self.assertRaises(OSError):
            while True:
                filler.write(bytes(4096))
        self.assert_write_fails_whole()

    def test_a_disk_without_room_for_another_name_leaves_the_old_database(self):
        self.mount_over_folder("-t", "tmpfs", "-o", "nr_inodes=2", "tmpfs")
        self.write()
        self.assert_write_fails_whole()

    def test_a_read_only_mount_leaves_the_old_database(self):
        self.write()
        host = self.root.host_path(self.folder)
        self.mount_over_folder("--bind", host)
        subprocess.run(["mount", "-o", "remount,bind,ro", host], check=True)
        self.assert_write_fails_whole()

    def test_a_database_that_cannot_be_renamed_over_stays(self):
        # Names of this file alone are locked: the temporary can be made, filled
        # and synced, but cannot take the file's place.
        self.write()
        self.root.chattr("+i", DATABASE)
        self.addCleanup(self.root.chattr, "-i", DATABASE)
        self.assert_write_fails_whole()


class GlobalLoginItemTest(ServicesTestCase):
    def setUp(self):
        super().setUp()
        self.root.empty(AUTOSTART)
        self.app = self.root.write(f"{DATA}/My App/run", "#!/bin/sh\n", 0o755)

    def entry(self, name, text):
        return self.root.write(f"{AUTOSTART}/{name}", f"[Desktop Entry]\nType=Application\n{text}\n")

    def test_every_entry_of_the_program_goes_and_no_other(self):
        self.entry("a.desktop", f'Exec="{self.app}" --hidden %U')
        self.entry("b.desktop", f"Exec={DATA}/My\\\\ App/run")
        self.entry("c.desktop", f"Exec=/bin/sh {self.app}")
        self.entry("d.desktop", f"Name={self.app}\nExec=/bin/sh")
        self.entry("e.txt", f'Exec="{self.app}"')
        self.flag("RemoveGlobalLoginItemForAppWithPath", self.app)
        self.assertEqual(self.root.listdir(AUTOSTART), ["c.desktop", "d.desktop", "e.txt"])

    def test_a_program_without_a_path_is_looked_for(self):
        self.entry("a.desktop", "Exec=env LANG=C sh")
        self.flag("RemoveGlobalLoginItemForAppWithPath", "/usr/bin/env")
        self.assertEqual(self.root.listdir(AUTOSTART), [])

    def test_an_entry_whose_program_is_gone_goes_by_its_whole_name(self):
        self.entry("a.desktop", "Name=/opt/gone\nExec=/opt/gone")
        self.entry("b.desktop", "Name=gone\nExec=/opt/gone")
        self.entry("c.desktop", "Name=/opt/gone")
        self.flag("RemoveGlobalLoginItemForAppWithPath", "/opt/gone")
        self.assertEqual(self.root.listdir(AUTOSTART), ["b.desktop"])

    def test_links_go_as_links_and_special_files_block_no_request(self):
        target = self.root.write(f"{DATA}/kept.desktop", f'[Desktop Entry]\nExec="{self.app}"\n')
        self.root.symlink(target, f"{AUTOSTART}/link.desktop")
        self.root.symlink("/nowhere", f"{AUTOSTART}/dangling.desktop")
        os.mkfifo(self.root.host_path(f"{AUTOSTART}/fifo.desktop"))
        self.root.mkdir(f"{AUTOSTART}/folder.desktop")
        self.flag("RemoveGlobalLoginItemForAppWithPath", self.app)
        self.assertEqual(self.root.listdir(AUTOSTART),
                         ["dangling.desktop", "fifo.desktop", "folder.desktop"])
        self.assertTrue(self.root.exists(target))

    def test_an_entry_that_cannot_be_removed_is_a_failure(self):
        self.root.empty(f"{DATA}/entries")
        locked = self.root.write(f"{DATA}/entries/a.desktop", f'[Desktop Entry]\nExec="{self.app}"')
        host = self.root.host_path(AUTOSTART)
        subprocess.run(["mount", "--bind", self.root.host_path(f"{DATA}/entries"), host], check=True)
        self.addCleanup(subprocess.run, ["umount", host], check=True)
        self.root.chattr("+i", locked)
        self.addCleanup(self.root.chattr, "-i", locked)
        self.flag("RemoveGlobalLoginItemForAppWithPath", self.app, False)

    def test_without_the_folder_there_is_nothing_to_do(self):
        os.rmdir(self.root.host_path(AUTOSTART))
        self.flag("RemoveGlobalLoginItemForAppWithPath", self.app)


if __name__ == "__main__":
    harness.main()
