"""The systemd unit: systemd accepts it, it is as tight as before, and wide
enough for the agent's work, which this test does within the unit's limits."""
import json
import os
import re
import stat
import struct
import subprocess
import tempfile
import unittest

from Support import harness, processes
from Support.bus import wait_until
from Support.root import DATA, ThrowAwayRoot, mount

UNIT = "keepwell-agent.service"
# The highest exposure by systemd's analysis; the unit names each reason.
EXPOSURE = 3.3
KEPT = {"chown": 0, "dac_override": 1, "fowner": 3, "fsetid": 4, "kill": 5,
        "linux_immutable": 9, "mknod": 27, "setfcap": 31}


def unit_path():
    return os.path.join(harness.build_folder, "Resources", UNIT)


class UnitFileTest(unittest.TestCase):
    def test_systemd_understands_it(self):
        # The program in the build folder, since it need not be installed.
        with open(unit_path(), encoding="utf-8") as file:
            text = re.sub(r"(?m)^ExecStart=.*$",
                          f"ExecStart={harness.build_folder}/keepwell-agent", file.read())
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, UNIT)
            with open(path, "w", encoding="utf-8") as file:
                file.write(text)
            done = subprocess.run(["systemd-analyze", "verify", "--man=no", path],
                                  capture_output=True, text=True, check=False)
        self.assertEqual((done.returncode, done.stderr), (0, ""))

    def test_it_leaves_no_more_open_than_it_did(self):
        done = subprocess.run(["systemd-analyze", "security", "--offline=yes", "--no-pager",
                               unit_path()], capture_output=True, text=True, check=True)
        found = re.search(r"Overall exposure level for \S+: ([0-9.]+)", done.stdout)
        print("exposure", found[1])
        self.assertLessEqual(float(found[1]), EXPOSURE)

    def test_each_open_setting_has_its_reason_in_the_file(self):
        done = subprocess.run(["systemd-analyze", "security", "--offline=yes", "--json=short",
                               unit_path()], capture_output=True, text=True, check=True)
        rows = json.loads(done.stdout)
        with open(unit_path(), encoding="utf-8") as file:
            text = file.read()
        opened = [row for row in rows if row["set"] is False]
        self.assertGreater(len(opened), 5)
        for row in opened:
            for directive in re.findall(r"(\w+)=", row["name"]):
                # The parts of one directive have different names.
                if directive == "RootImage":
                    continue  # an image's RootDirectory=
                self.assertIn(directive + "=", text, row)

    def test_the_bus_starts_this_very_unit(self):
        with open(os.path.join(harness.build_folder, "Resources",
                               "org.keepwell.pro.agent.service"), encoding="utf-8") as file:
            activation = dict(line.split("=", 1) for line in file.read().splitlines()
                              if "=" in line and not line.startswith("#"))
        with open(unit_path(), encoding="utf-8") as file:
            unit = file.read().splitlines()
        self.assertEqual(activation["SystemdService"], UNIT)
        self.assertIn("BusName=" + activation["Name"], unit)
        self.assertIn("ExecStart=" + activation["Exec"], unit)


class WithinTheUnitTest(unittest.TestCase):
    """Work that the other system tests leave out; they run within the unit's
    limits too."""

    @classmethod
    def setUpClass(cls):
        harness.skip_if_sanitized("it makes system calls that the unit refuses")
        harness.unit = unit_path()
        cls.root = cls.enterClassContext(ThrowAwayRoot())

    def tearDown(self):
        self.root.empty()

    def status(self):
        return processes.fields(self.root.agent_pid())

    def test_the_agent_has_the_rights_of_the_unit_and_no_others(self):
        self.root.busctl("Echo", "s", "")
        status = self.status()
        expected = sum(1 << bit for bit in KEPT.values())
        for kind in ("CapPrm", "CapEff", "CapBnd"):
            self.assertEqual(int(status[kind], 16), expected, kind)
        self.assertEqual((status["NoNewPrivs"], status["Seccomp"]), ("1", "2"))
        self.assertGreaterEqual(int(status["Seccomp_filters"]), 2)

    def test_a_move_to_another_volume_keeps_owners_modes_nodes_and_capabilities(self):
        tree = self.root.mkdir(f"{DATA}/tree")
        host = self.root.host_path(tree)
        os.mkfifo(f"{host}/pipe")
        os.mknod(f"{host}/device", stat.S_IFCHR | 0o640, os.makedev(1, 3))
        self.root.write(f"{tree}/program", "#!/bin/sh\n")
        os.chown(f"{host}/program", 1234, 5678)
        os.chmod(f"{host}/program", 0o6751)
        capability = struct.pack("<5I", 0x02000001, 1 << 10, 0, 0, 0)  # binding low ports
        self.root.write(f"{tree}/server")
        os.setxattr(f"{host}/server", "security.capability", capability)
        os.chown(host, 1234, 5678)
        before = {name: os.lstat(f"{host}/{name}") for name in os.listdir(host)}
        reply = self.root.busctl("MoveItemAtPath", "ss", tree, "/tmp/moved")
        self.assertEqual((reply.flag, reply.error), (True, None))
        moved = self.root.host_path("/tmp/moved")
        for name, was in before.items():
            now = os.lstat(f"{moved}/{name}")
            self.assertEqual((now.st_mode, now.st_uid, now.st_gid, now.st_rdev),
                             (was.st_mode, was.st_uid, was.st_gid, was.st_rdev), name)
        self.assertEqual(os.getxattr(f"{moved}/server", "security.capability"), capability)
        self.assertFalse(self.root.exists(tree))
        self.assertTrue(self.root.busctl("RemoveItemAtPath", "s", "/tmp/moved").flag)

    def test_files_that_others_locked_away_are_sized_truncated_shredded_and_removed(self):
        for name in ("a", "b", "c"):
            path = self.root.write(f"{DATA}/private/{name}", "x" * 5000, 0)
            os.chown(self.root.host_path(path), 1234, 1234)
        folder = self.root.host_path(f"{DATA}/private")
        os.chown(folder, 1234, 1234)
        os.chmod(folder, 0)
        self.root.chattr("+i", f"{DATA}/private/c")
        self.assertGreaterEqual(self.root.busctl("SizeOfItemAtPath", "s", f"{DATA}/private")
                                .values[0], 15000)
        self.assertTrue(self.root.busctl("TruncateFileAtPath", "s", f"{DATA}/private/a").flag)
        self.assertEqual(self.root.read(f"{DATA}/private/a"), b"")
        self.assertTrue(self.root.busctl("SecurelyRemoveItemAtPath", "s",
                                         f"{DATA}/private/b").flag)
        self.root.chattr("+i", f"{DATA}/private")
        self.assertTrue(self.root.busctl("RemoveItemAtPath", "s", f"{DATA}/private").flag)
        self.assertEqual(self.root.listdir(DATA), [])

    def test_a_tool_at_its_fixed_path_runs_and_signals_processes_of_others(self):
        victim = self.root.popen(["setpriv", "--reuid", "1234", "--clear-groups", "sleep", "600"])
        self.addCleanup(victim.kill)
        wait_until(lambda: os.stat(f"/proc/{victim.pid}").st_uid == 1234)
        self.root.stand_in("/usr/sbin/dscacheutil")
        self.root.stand_in("/usr/bin/killall", script=f"kill -HUP {victim.pid}")
        self.assertTrue(self.root.busctl("FlushDNS").flag)
        self.assertEqual(victim.wait(20), -1)

    def test_the_agent_sees_the_mounts_of_its_clients_as_they_are(self):
        self.root.busctl("Echo", "s", "")
        self.root.mkdir(f"{DATA}/tree/volume")
        volume = self.root.host_path(f"{DATA}/tree/volume")
        mount("-t", "tmpfs", "tmpfs", volume)
        self.addCleanup(subprocess.run, ["umount", "-q", volume], check=False,
                        capture_output=True)
        self.root.write(f"{DATA}/tree/volume/precious", "content")
        mount("-o", "remount,bind,ro", volume)
        for path in (f"{DATA}/tree/volume/precious", f"{DATA}/tree"):
            self.assertFalse(self.root.busctl("RemoveItemAtPath", "s", path).flag)
            self.assertEqual(self.root.read(f"{DATA}/tree/volume/precious"), b"content")
        subprocess.run(["umount", volume], check=True)
        self.assertTrue(self.root.busctl("RemoveItemAtPath", "s", f"{DATA}/tree").flag)
        self.assertFalse(self.root.exists(f"{DATA}/tree"))

    def test_nothing_that_it_runs_reaches_the_network(self):
        self.root.stand_in("/usr/bin/mdutil", script=f"cat /proc/net/dev > {DATA}/devices\n"
                           f"readlink /proc/self/ns/net > {DATA}/network")
        self.root.busctl("StartSpotlightReindex")
        # This root also has few devices, but another network.
        self.assertNotEqual(self.root.read(f"{DATA}/network").decode().strip(),
                            os.readlink("/proc/self/ns/net"))
        devices = re.findall(r"(?m)^ *(\S+):", self.root.read(f"{DATA}/devices").decode())
        self.assertEqual(devices, ["lo"])


if __name__ == "__main__":
    harness.main()
