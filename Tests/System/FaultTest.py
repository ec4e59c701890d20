"""Each call of a request fails once, with each error that it may give. The
answer must tell of the work done and agree with the state of the disk, the next
request must work, and the process must keep nothing.

KEEPWELL_FAULTS=full tries every error of every call; otherwise each call fails
with one of its errors, another at each call."""
import errno
import os
import xml.etree.ElementTree as ElementTree

from Support import figures, harness, scenes, toolscenes
from Support.bus import INTERFACE
from Support.faults import FULL, FaultTestCase
from Support.processes import is_running, is_sanitized
from Support.root import DATA

DESCRIPTION = os.path.join(os.path.dirname(__file__), "../../Resources",
                           "org.keepwell.KWPrivilegedOperation.xml")
MOST_MEMORY = 4 << 20  # that may have come to be held after all faults of a scene
# Calls that are repeated, or go on with the rest; the answer stays the same.
PASSING = {errno.EINTR, scenes.HALF}
# The scenes that share a row.
REQUESTS = {
    "existence, size": (scenes.Exists, scenes.Size),
    "removal of a tree; of a locked one; by several threads":
        (scenes.Removal, scenes.LockedRemoval, scenes.SharedRemoval),
    "shredding": (scenes.Shredding,),
    "truncation": (scenes.Truncation,),
    "move on one volume; across: a tree, a file, one with attributes and an inherited access list":
        (scenes.Move, scenes.MoveAcross, scenes.MoveFileAcross, scenes.MoveLabelledAcross),
    "move to the Trash": (scenes.Trash,),
    "overrides database, launchd.conf": (scenes.Overrides, scenes.Configuration),
    "package: known, unknown": (toolscenes.ForgetPackage, toolscenes.UnknownPackage),
    "startup items, periodic script, reindexing":
        (toolscenes.StartItem, toolscenes.StopItem, toolscenes.Periodic, toolscenes.Reindex),
    "flushing names: done, refused by one tool": (toolscenes.FlushNames, toolscenes.FlushHalf),
    "unified log, log store": (toolscenes.EraseLogs, toolscenes.EraseStore),
    "permissions": (toolscenes.RepairPermissions,),
    "disabling a job: loaded, absent, one that will not go":
        (toolscenes.DisableJob, toolscenes.DisableAbsentJob, toolscenes.DisableStubbornJob),
    "enabling a job: absent, one that cannot be loaded, loaded":
        (toolscenes.EnableJob, toolscenes.EnableBadJob, toolscenes.EnableLoadedJob),
    "removal of a job, of an extension": (toolscenes.RemoveJob, toolscenes.RemoveKext),
    "slimming a binary": (toolscenes.SlimBinary,),
    "global login items": (toolscenes.GlobalItems,),
    "echo": (toolscenes.Echo,),
}


class FaultTest(FaultTestCase):
    def run_once(self, scene, name="", number=0, error=0):
        """The complaint, the flag and the names of the calls. The call of this
        number among those of its name fails."""
        scene.prepare()
        scene.lack = error in scenes.LACKS and name in scenes.LACKING
        self.root.faults.arm(number, error, name)
        flag = scene.ask(self.client)
        calls = self.root.faults.disarm()
        failed = name if 0 < number <= calls.count(name) else None
        return scene.complaint(flag, failed), flag, calls

    def check_scene(self, kind):
        scene = kind(self.root)
        for _ in range(3):  # opens, starts and keeps everything of the first use
            complaint, flag, calls = self.run_once(scene)
            self.assertEqual((complaint, flag, scene.leftovers()), ("", scene.usual, []))
        self.assertGreater(len(calls), 0)
        self.pid = self.root.agent_pid()
        held, memory, runs, changed = self.held(), self.memory(), 0, 0
        for place, (name, number) in enumerate(scenes.places(calls), 1):
            errors = scenes.PLAUSIBLE[name]
            for error in errors if FULL else [errors[place % len(errors)]]:
                with self.subTest(scene=kind.__name__, call=f"{place} {name}", error=error):
                    complaint, flag, made = self.run_once(scene, name, number, error)
                    self.assertEqual(complaint, "")
                    self.assertTrue(is_running(self.pid))
                    if error in PASSING or name in scenes.OF_THE_BUS:
                        self.assertEqual(flag, scene.usual)
                    self.wait_until_held(held)
                    runs += made.count(name) >= number
                    changed += flag != scene.usual
                    if scene.leftovers():
                        complaint, *_ = self.run_once(scene)
                        self.assertEqual((complaint, scene.leftovers()), ("", []))
        self.assertEqual(self.run_once(scene)[0], "")
        self.assertEqual(self.canaries.damage(), [])
        grown = self.memory() - memory
        self.told[kind] = len(calls), runs, grown
        if not is_sanitized(self.pid):
            self.assertLess(grown, MOST_MEMORY)
        self.assertGreater(runs, 0)
        return changed

    def test_each_member_has_a_scene(self):
        interface = ElementTree.parse(DESCRIPTION).find(f"interface[@name='{INTERFACE}']")
        members = {method.get("name") for method in interface.iterfind("method")}
        self.assertEqual(sorted(kind.__name__ for kinds in REQUESTS.values() for kind in kinds),
                         sorted(kind.__name__ for kind in scenes.ALL + toolscenes.ALL))
        # The member that ends the agent has no answer.
        self.assertEqual({kind.member for kind in scenes.ALL + toolscenes.ALL},
                         members - {"PleaseTerminate"})

    def test_each_call_of_each_request_fails_once(self):
        self.told, changed = {}, []
        for request, kinds in REQUESTS.items():
            for kind in kinds:
                self.root.empty(DATA)
                changed += [kind] if self.check_scene(kind) else []
            calls, faults, kept = zip(*(self.told[kind] for kind in kinds))
            figures.row(request, figures.each(calls), sum(faults), figures.memory(max(kept)))
        # Many requests need each of their calls.
        self.assertGreater(len(changed), len(scenes.ALL + toolscenes.ALL) // 3)


if __name__ == "__main__":
    harness.main()
