"""Calls every announced member once with a client that we did not write, from
the running agent's own introspection."""
import unittest
import xml.etree.ElementTree as ElementTree

from Support import harness
from Support.bus import CallFailed, INTERFACE, NAME, PATH
from Support.root import DATA, ThrowAwayRoot

NO_ERROR = r"\('', (?:int64 )?0, (?:@a\{sv\} )?\{\}\)"
YES, NO = rf"\(true, {NO_ERROR}\)", rf"\(false, {NO_ERROR}\)"
MISSING = "'/missing/item'"
NO_SUCH_FILE = r"\(false, \('NSCocoaErrorDomain', (?:int64 )?4, \{.*'NSUnderlyingError'.*\}\)\)"

# The arguments of each member and its expected answer.
MEMBERS = {
    "Echo": (["'text'"], rf"\('text', {NO_ERROR}\)"),
    "FileExistsAtPath": (["'/bin/sh'"], YES),
    "MoveItemAtPath": ([MISSING, f"'{DATA}/new'"], NO_SUCH_FILE),
    "RemoveItemAtPath": ([f"'{DATA}/removed'"], YES),
    "SecurelyRemoveItemAtPath": ([f"'{DATA}/shredded'"], YES),
    "MoveToTrashItemAtPath": ([f"'{DATA}/trashed'"], NO),  # the flag has the opposite sense
    "TruncateFileAtPath": ([f"'{DATA}/truncated'"], YES),
    "RemovePackageWithID": (["'com.example.pkg'"], YES),
    "RemoveKextAtPath": ([MISSING], NO),
    "RemoveASL": ([], YES),
    "SlimBinaryWithPath": ([MISSING, "['--arch', 'x86_64']"], YES),
    "RemoveLaunchdAgentAtPath": ([f"'{DATA}/job.plist'"], YES),
    "EnableLaunchdAgentAtPath": ([f"'{DATA}/job.plist'"], YES),
    "DisableLaunchdAgentAtPath": ([f"'{DATA}/job.plist'"], YES),
    "RemoveSMLoginItem": (["'com.example.item'"], YES),  # there is no database to take it from
    "StartStartupItem": (["'item'"], YES),
    "StopStartupItem": (["'item'"], YES),
    "RepairPermissions": ([], r"\(true, \d+, ''\)"),
    "RunPeriodicScript": (["'daily'"], YES),
    "StartSpotlightReindex": ([], YES),
    "RemoveGlobalLoginItemForAppWithPath": (["'/Applications/Odd.app'"], YES),
    "RemoveLibraryFromLauchdConf": (["'/usr/lib/odd.dylib'"], YES),
    "FlushDNS": ([], YES),
    "RemoveDiagnosticLogs": ([], rf"\('y', (?:int64 )?0, '', {NO_ERROR}\)"),
    "SizeOfItemAtPath": ([f"'{DATA}/sized'"], rf"\((?:int64 )?8192, {NO_ERROR}\)"),
    "PleaseTerminate": ([], None),  # last: the next call meets another agent
}


class EveryMemberTest(unittest.TestCase):
    def setUp(self):
        self.root = self.enterContext(ThrowAwayRoot())
        for tool in ("/bin/launchctl", "/sbin/SystemStarter", "/usr/libexec/repair_packages",
                     "/usr/sbin/pkgutil", "/usr/sbin/periodic", "/usr/bin/mdutil",
                     "/usr/sbin/dscacheutil", "/usr/bin/killall"):
            self.root.stand_in(tool)
        self.root.stand_in("/usr/bin/log", script="dd bs=16 count=1 2>/dev/null")
        self.root.mkdir("/var/log/asl")
        for name in ("removed", "shredded", "trashed", "truncated"):
            self.root.write(f"{DATA}/{name}", "text")
        self.root.write(f"{DATA}/job.plist", "<plist><dict><key>Label</key>"
                        "<string>com.example.job</string></dict></plist>")
        self.root.write(f"{DATA}/sized", "x" * 5000)
        self.root.write("/etc/launchd.conf", "setenv DYLD_INSERT_LIBRARIES /usr/lib/odd.dylib\n")

    def announced(self):
        """The members that the running agent announces, with their types."""
        done = self.root.run(["gdbus", "introspect", "--xml", "--address", self.root.address,
                              "--dest", NAME, "--object-path", PATH])
        interface = ElementTree.fromstring(done.stdout).find(f"interface[@name='{INTERFACE}']")
        return {method.get("name"): [argument.get("type") for argument in method.findall("arg")
                                     if argument.get("direction") != "out"]
                for method in interface.findall("method")}

    def test_gdbus_can_call_each_of_them(self):
        announced = self.announced()
        self.assertEqual(len(announced), 26)
        self.assertEqual(set(announced), set(MEMBERS))
        for name, (arguments, expected) in MEMBERS.items():
            with self.subTest(name):
                self.assertEqual(len(arguments), len(announced[name]))
                if expected:
                    self.assertRegex(self.root.gdbus(name, *arguments), rf"^{expected}$")
                    continue
                agent = self.root.agent_pid()
                with self.assertRaises(CallFailed):  # there is no reply to wait for
                    self.root.gdbus(name, *arguments)
                self.root.wait_for_end(agent)
        self.assertEqual(self.root.gdbus("Echo", "'again'").split(",")[0], "('again'")


if __name__ == "__main__":
    harness.main()
