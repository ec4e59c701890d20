"""Kills the agent in the middle of work that must be done wholly or not at all:
just before each of its calls, and at random moments. Afterwards the old or the
new item must be there, and the next request must clear away any leftover.

KEEPWELL_KILLS sets the number of kills in all; about 60 without it."""
import os
import random
import signal
import threading
import time
import unittest

from Support import figures, harness, scenes, trees
from Support.faults import FaultyRoot
from Support.rawbus import BusError

KILLS = int(os.environ.get("KEEPWELL_KILLS", "60"))
WORK = {scenes.MoveAcross: "tree to another volume", scenes.MoveFileAcross: "file to another volume",
        scenes.Overrides: "overrides database", scenes.Configuration: "launchd.conf"}
NO_REPLY = "org.freedesktop.DBus.Error.NoReply"


class KillTest(unittest.TestCase):
    def setUp(self):
        self.root = self.enterContext(FaultyRoot())
        trees.mount("-t", "tmpfs", "tmpfs", self.root.host_path(self.root.mkdir(scenes.FAR)))
        self.random = random.Random(0)
        self.after = {}  # how often each outcome was seen

    def ask(self, scene):
        """The flag; None when the agent ended before its answer."""
        client = self.root.client()
        try:
            return scene.ask(client)
        except BusError as error:
            self.assertEqual(error.name, NO_REPLY)
            return None
        finally:
            client.close()

    def check(self, scene, flag):
        self.assertEqual(scene.complaint(flag), "")
        left = bool(scene.leftovers())
        self.after[flag, left] = self.after.get((flag, left), 0) + 1
        if left:
            # The next work there clears it away.
            scene.prepare_again()
            self.assertTrue(self.ask(scene))
            self.assertEqual(scene.leftovers(), [])

    def places_of(self, scene):
        """Its calls, without those that the thread of the bus makes by chance."""
        scene.prepare()
        self.ask(scene)
        scene.prepare()
        self.root.faults.arm()
        self.assertTrue(self.ask(scene))
        places = scenes.places(self.root.faults.disarm())
        return [place for place in places if place[0] not in scenes.OF_THE_BUS]

    def kill_before_call(self, scene, name, number):
        scene.prepare()
        self.root.busctl("Echo", "s", "started")
        self.root.faults.arm(number, scenes.KILL, name)
        flag = self.ask(scene)
        self.root.faults.disarm()
        self.check(scene, flag)

    def kill_at_random(self, scene, duration):
        scene.prepare()
        self.root.busctl("Echo", "s", "started")
        pid = self.root.agent_pid()
        moment = self.random.uniform(0, duration)
        killer = threading.Thread(target=lambda: (time.sleep(moment),
                                                  os.kill(pid, signal.SIGKILL)))
        killer.start()
        flag = self.ask(scene)
        killer.join()
        self.root.wait_for_end(pid)
        self.check(scene, flag)

    def test_the_old_or_the_new_is_there_whenever_the_agent_is_killed(self):
        each = max(2, KILLS // (2 * len(scenes.ATOMIC)))
        for kind in scenes.ATOMIC:
            with self.subTest(scene=kind.__name__):
                scene = kind(self.root)
                places = self.places_of(scene)
                chosen = self.random.sample(places, min(each, len(places)))
                for place in chosen:
                    self.kill_before_call(scene, *place)
                start = time.monotonic()
                scene.prepare()
                self.ask(scene)
                duration = time.monotonic() - start
                for _ in range(2 * each - len(chosen)):
                    self.kill_at_random(scene, duration)
                of_all = "at each" if len(chosen) == len(places) else f"of its {len(places)}"
                died = sum(times for (flag, _), times in self.after.items() if flag is None)
                left = sum(times for (_, left), times in self.after.items() if left)
                figures.row(WORK[kind], f"{len(chosen)}, {of_all}", 2 * each - len(chosen), died,
                            left)
                self.assertGreater(died, 0)
                self.after.clear()


if __name__ == "__main__":
    harness.main()
