#!/usr/bin/env python3
"""CONTRIBUTING.md lists each script, and each script describes itself."""
import os
import pathlib
import re
import subprocess
import unittest

SOURCE = pathlib.Path(__file__).resolve().parent.parent.parent
ROW = re.compile(r"^\| `Scripts/([\w-]+)", re.MULTILINE)


class ScriptsTableTest(unittest.TestCase):
    def setUp(self):
        self.scripts = sorted(path.name for path in (SOURCE / "Scripts").iterdir()
                              if path.is_file())

    def test_the_table_lists_each_script_once(self):
        text = (SOURCE / "CONTRIBUTING.md").read_text(encoding="utf-8")
        self.assertEqual(sorted(ROW.findall(text)), self.scripts)

    def test_each_script_can_be_run_and_begins_with_its_purpose(self):
        for name in self.scripts:
            path = SOURCE / "Scripts" / name
            self.assertTrue(os.access(path, os.X_OK), name)
            self.assertRegex(path.read_text(encoding="utf-8"),
                             r'\A#!/usr/bin/env (bash\n# |python3\n""")[A-Z]', name)

    def check_arguments(self, name, given, status, output):
        done = subprocess.run([SOURCE / "Scripts" / name, given], cwd="/", timeout=10,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        self.assertEqual((name, done.returncode), (name, status), done.stdout)
        self.assertIn(output, done.stdout)

    def scripts_with(self, text):
        return [name for name in self.scripts
                if name != "arguments" and text in (SOURCE / "Scripts" / name).read_text("utf-8")]

    def test_shell_scripts_without_free_arguments_explain_themselves_and_refuse_others(self):
        strict = self.scripts_with(". Scripts/arguments ")
        self.assertIn("lint", strict)
        for name in strict:
            purpose = (SOURCE / "Scripts" / name).read_text("utf-8").splitlines()[1][2:]
            self.check_arguments(name, "--help", 0, purpose)
            self.check_arguments(name, "--no-such-option", 2, "--no-such-option")

    def test_python_scripts_explain_themselves_and_refuse_others(self):
        # A shell runs any arguments, and Doxygen calls its filter with one file.
        strict = set(self.scripts_with('python3\n"""')) - {"shell", "doxygen-comments"}
        self.assertIn("draw-architecture", strict)
        for name in strict:
            purpose = (SOURCE / "Scripts" / name).read_text("utf-8").splitlines()[1][3:]
            self.check_arguments(name, "--help", 0, purpose)
            self.check_arguments(name, "--no-such-option", 2, f"{name}: error: ")


if __name__ == "__main__":
    unittest.main()
