#!/usr/bin/env python3
"""Scripts/mutate: the changes that it makes, and that it runs none of them
where they could do harm."""
import importlib.machinery
import importlib.util
import os
import subprocess
import sys
import unittest

SOURCE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))


def load():
    sys.dont_write_bytecode = True
    loader = importlib.machinery.SourceFileLoader("mutate", f"{SOURCE}/Scripts/mutate")
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader("mutate", loader))
    sys.modules["mutate"] = module
    loader.exec_module(module)
    return module


mutate = load()


def changed(text):
    """The lines that the changes of a text lead to."""
    return [mutant.after for mutant in mutate.mutants_of("a.cpp", text)]


class ChangesTest(unittest.TestCase):
    def test_each_kind_of_change_is_made(self):
        for text, expected in {
            "if (isOpen)\n": ["if (!(isOpen))"],
            "while (next())\n": ["while (!(next()))"],
            "a = b < c;\n": ["a = b <= c;"],
            "a = b == c;\n": ["a = b != c;"],
            "a = b && c;\n": ["a = b || c;"],
            "a = b + c;\n": ["a = b - c;"],
            "return false;\n": ["return true;"],
            "return 16;\n": ["return 17;"],
            "a = f(b, c);\n": ["a = f(c, b);"],
            "{\n  close();\n}\n": [";"],
        }.items():
            with self.subTest(text=text):
                self.assertIn(" ".join(expected), changed(text))

    def test_a_condition_keeps_its_texts(self):
        self.assertIn('if (!(a == "b"))', changed('if (a == "b")\n'))

    def test_sources_that_no_unit_test_can_see_are_left_alone(self):
        for folder, _ in mutate.ROOMS.values():
            for mutant in mutate.all_mutants(folder, []):
                self.assertNotRegex(mutant.path, "/macOS/|/main.cpp|/Terminal/|/Browser.cpp")

    def test_other_text_is_left_alone(self):
        for text in ("// a == b\n", "/* true\n false */\n", 'a = "1 == true";\n', "a = ' == ';\n",
                     "#if 1 == 2\n", "std::vector<int> a;\n", 'a = R"(b == 1)";\n',
                     "{\n  return f;\n}\n"):
            with self.subTest(text=text):
                self.assertEqual(changed(text), [])

    def test_a_change_is_known_again_when_lines_are_added(self):
        text = "if (isOpen)\n"
        (one,), (other,) = (mutate.mutants_of("a.cpp", each) for each in (text, "\n\n" + text))
        self.assertNotEqual(one.line, other.line)
        self.assertEqual(one.key(), other.key())

    def test_no_room_is_without_changes(self):
        for room, (folder, _) in mutate.ROOMS.items():
            self.assertGreater(len(list(mutate.all_mutants(folder, []))), 50, room)

    def test_a_sample_keeps_its_changes_when_another_goes(self):
        every = list(mutate.all_mutants("Sources/Tools", []))
        first = mutate.sample(every, 20, 1)
        self.assertEqual(mutate.sample(every, 20, 1), first)
        self.assertNotEqual(mutate.sample(every, 20, 2), first)
        rest = [mutant for mutant in every if mutant.key() != first[0].key()]
        self.assertEqual(mutate.sample(rest, 19, 1), first[1:])

    def test_the_tests_of_a_file_are_known_by_its_name_and_by_the_list(self):
        self.assertIn("RVFileSizerBulk", mutate.own_suites("Sources/Tools/RVFileSizer.cpp"))
        self.assertIn("CommandLineTest", mutate.own_suites("Sources/CommandLine/Program.cpp"))
        self.assertNotIn("Helpers", mutate.own_suites("Sources/CommandLine/Program.cpp"))

    def test_each_reason_names_a_change(self):
        every = {mutant.key() for folder, _ in mutate.ROOMS.values()
                 for mutant in mutate.all_mutants(folder, [])}
        self.assertEqual(mutate.explained() - every, set())


@unittest.skipUnless(os.geteuid() == 0, "needs root, for namespaces")
class ConfinementTest(unittest.TestCase):
    CONFINE = """
import os, sys
sys.path.insert(0, {tests!r})
import MutateTest
MutateTest.mutate.confine()
"""
    # Lists the paths that could be removed in the namespaces.
    PROBE = CONFINE + """
for path in {paths!r}:
    try:
        os.unlink(path)
        print(path)
    except OSError:
        pass
open({inside!r}, "w").close()
"""
    DISK = CONFINE + """
folder = MutateTest.mutate.DISK + "/folder"
os.mkdir(folder)
print(os.stat(folder).st_blocks > 0)
"""
    # Runs a program of tests that fails and leaves a file behind.
    LEAVER = CONFINE + """
program = MutateTest.mutate.ROOT / "build/of-this-test/Tests/leaver"
program.parent.mkdir(parents=True)
program.write_text("#!/bin/sh\\ntouch \\"$TMPDIR/left\\" && exit 1\\n")
program.chmod(0o755)
print(MutateTest.mutate.Bench(["leaver"], "build/of-this-test")._run("leaver", "*"))
print(os.path.exists(MutateTest.mutate.DISK), "left" in os.listdir(MutateTest.mutate.DISK))
"""

    def confined(self, program):
        """Runs the program in the namespaces; returns its output."""
        done = subprocess.run(
            ["unshare", "--mount", "--pid", "--fork", "--kill-child", "--mount-proc",
             "--propagation", "private", sys.executable, "-c", program],
            capture_output=True, text=True, check=False)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        return done.stdout

    def test_only_this_checkout_is_written_to_and_only_in_memory(self):
        outside = [f"{folder}/keepwell-mutate-probe" for folder in
                   (os.path.dirname(SOURCE), "/var/lib", "/tmp")]
        inside = f"{SOURCE}/keepwell-mutate-probe"
        for path in outside:
            with open(path, "w", encoding="utf-8"):
                self.addCleanup(os.unlink, path)
        probe = self.PROBE.format(tests=f"{SOURCE}/Tests/Scripts", paths=outside, inside=inside)
        self.assertEqual(self.confined(probe), "")
        self.assertFalse(os.path.exists(inside))
        for path in outside:
            self.assertTrue(os.path.exists(path), path)

    def test_folders_take_space_where_the_tests_work(self):
        disk = self.DISK.format(tests=f"{SOURCE}/Tests/Scripts")
        self.assertEqual(self.confined(disk), "True\n")

    def test_a_failed_test_leaves_nothing_that_takes_room_from_the_next(self):
        leaver = self.LEAVER.format(tests=f"{SOURCE}/Tests/Scripts")
        self.assertEqual(self.confined(leaver), "failed\nTrue False\n")


if __name__ == "__main__":
    unittest.main()
