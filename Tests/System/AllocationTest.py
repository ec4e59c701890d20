"""Each allocation that a request makes by the language's own operator fails
once. The agent must answer the request with an error or do it, go on, keep
nothing of it, and do the next request.

KEEPWELL_FAULTS=full tries every allocation; otherwise the test tries some at
equal distances."""
import time

from Support import figures, harness, scenes, toolscenes
from Support.bus import is_running
from Support.faults import FULL, FaultTestCase
from Support.rawbus import BusError
from Support.root import DATA

FAILED = "org.freedesktop.DBus.Error.Failed"
MOST = 20  # of a scene in the short form
LATE = 100  # large answers, more than the agent sends to a client that reads none
LARGE = "x" * 100_000


class AllocationTest(FaultTestCase):
    def ask(self, scene, number=0, of_the_bus=False):
        """The answer, None for an error, and how many allocations there were."""
        scene.prepare()
        self.root.faults.arm_allocations(number, of_the_bus)
        try:
            flag = scene.answer(self.client)
        except BusError as error:
            self.assertEqual(error.name, FAILED)
            flag = None
        self.root.faults.disarm()
        # This call follows an early answer.
        self.assertEqual(self.client.call("Echo", "s", "done")[0], "done")
        return flag, self.root.faults.allocations

    def numbers(self, scene, of_the_bus=False):
        """The numbers of the allocations that fail."""
        for _ in range(2):
            flag, count = self.ask(scene, of_the_bus=of_the_bus)
            self.assertEqual((flag, scene.complaint(flag)), (scene.usual, ""))
        self.pid = self.root.agent_pid()
        self.client.call("Echo", "s", "that one has come and gone")
        return range(1, count + 1, 1 if FULL else max(1, count // MOST))

    def check_scene(self, kind):
        scene, failures = kind(self.root), 0
        numbers = self.numbers(scene)
        held = self.held()
        for number in numbers:
            with self.subTest(scene=kind.__name__, allocation=number):
                flag, _ = self.ask(scene, number)
                self.assertTrue(is_running(self.pid))
                self.wait_until_held(held)
                failures += flag is None
                if flag is not None:
                    self.assertEqual(flag, scene.usual)
                if flag is not None or kind in scenes.ATOMIC:
                    self.assertEqual(scene.complaint(flag), "")
        flag, _ = self.ask(scene)
        self.assertEqual((flag, scene.complaint(flag), scene.leftovers()), (scene.usual, "", []))
        self.assertEqual(self.canaries.damage(), [])
        return len(numbers), failures, int(self.root.agent_pid() != self.pid)

    def test_a_request_that_runs_out_of_memory_fails_alone(self):
        done = []
        for kind in scenes.ALL + toolscenes.ALL:
            self.root.empty(DATA)
            done.append(self.check_scene(kind))
            if kind is not toolscenes.Echo:  # the thread of the bus answers it
                self.assertGreater(done[-1][1], 0)
        figures.row(f"the threads that work on the {len(done)} scenes above, each",
                    *map(sum, zip(*done)))

    def test_the_thread_of_the_bus_answers_and_goes_on(self):
        done = []
        for kind in (scenes.Exists, scenes.Trash, toolscenes.ForgetPackage, toolscenes.Echo):
            scene, failures = kind(self.root), 0
            numbers = self.numbers(scene, True)
            for number in numbers:
                with self.subTest(scene=kind.__name__, allocation=number):
                    flag, _ = self.ask(scene, number, True)
                    self.assertIn(flag, (scene.usual, None))
                    self.assertTrue(is_running(self.pid))
                    failures += flag is None
            self.assertGreater(failures, 0)
            done.append((len(numbers), failures, int(self.root.agent_pid() != self.pid)))
        figures.row(f"the thread of the bus, for {len(done)} of them", *map(sum, zip(*done)))

    def read_late(self, number=0):
        """Asks for more than the agent sends at once, and then reads it while the
        allocation of that number fails. Returns the number of errors."""
        late, errors = self.root.client(timeout=20), 0
        serials = [late.send("Echo", "s", LARGE) for _ in range(LATE)]
        time.sleep(0.1)  # the agent keeps most of the answers now
        self.root.faults.arm_allocations(number, True)
        for serial in serials:
            try:
                self.assertEqual(late.wait(serial)[0], LARGE)
            except BusError as error:
                self.assertEqual(error.name, FAILED)
                errors += 1
        self.root.faults.disarm()
        late.close()
        return errors

    def test_a_client_that_reads_late_gets_all_answers(self):
        self.assertEqual((self.read_late(), self.read_late()), (0, 0))
        pid = self.root.agent_pid()
        count = self.root.faults.allocations
        for number in range(1, count + 1, 1 if FULL else max(1, count // MOST)):
            with self.subTest(allocation=number):
                self.assertLessEqual(self.read_late(number), 1)
        self.assertEqual(self.root.agent_pid(), pid)
        print(f"{count} allocations while a client read {LATE} late answers")


if __name__ == "__main__":
    harness.main()
