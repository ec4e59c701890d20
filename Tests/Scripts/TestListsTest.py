#!/usr/bin/env python3
"""The lists of tests in Tests/CMakeLists.txt agree with the tests themselves."""
import pathlib
import re
import unittest

TESTS = pathlib.Path(__file__).resolve().parent.parent


def listed(name):
    text = (TESTS / "CMakeLists.txt").read_text(encoding="utf-8")
    return sorted(re.search(rf"^set\({name} ([^)]+)\)", text, re.MULTILINE).group(1).split())


class TestListsTest(unittest.TestCase):
    def test_the_scripts_that_run_without_root_are_listed(self):
        scripts = [path.stem for path in (TESTS / "System").glob("*Test.py")
                   if "harness.main(needs_root=False)" in path.read_text(encoding="utf-8")]
        self.assertEqual(listed("without_root"), sorted(scripts))

    def test_each_race_is_listed(self):
        text = (TESTS / "System/RaceTest.py").read_text(encoding="utf-8")
        self.assertEqual(listed("races"),
                         sorted(re.findall(r"^    def test_(\w+)", text, re.MULTILINE)))


if __name__ == "__main__":
    unittest.main()
