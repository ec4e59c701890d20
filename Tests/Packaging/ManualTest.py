"""The manual pages: without fault to both formatters, and complete."""
import glob
import os
import re
import subprocess
import sys
import unittest
import xml.etree.ElementTree as ElementTree

SOURCE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
sys.path[:0] = [f"{SOURCE}/Tests/System", f"{SOURCE}/Packaging"]

import description  # pylint: disable=wrong-import-position
from Support import harness  # pylint: disable=wrong-import-position


def pages():
    return sorted(glob.glob(f"{SOURCE}/Packaging/man/*.[1-8]") +
                  glob.glob(f"{harness.build_folder}/Packaging/*.[1-8]"))


def page(name):
    return next(path for path in pages() if os.path.basename(path) == name)


def shown(name):
    """As text, on a line as wide as it may be."""
    done = subprocess.run(["mandoc", "-T", "utf8", "-O", "width=900", page(name)], check=True,
                          capture_output=True, text=True)
    return re.sub(".\b", "", done.stdout)


class ManualTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        harness.require_tools("mandoc", "man")

    def test_every_page_is_there(self):
        self.assertEqual([os.path.basename(path) for path in sorted(pages(), key=os.path.basename)],
                         ["keepwell-agent.8", "keepwell.1", "libkeepwell.3",
                          "org.keepwell.KWPrivilegedOperation.5"])

    def test_no_formatter_finds_fault_with_them(self):
        for path in pages():
            with self.subTest(page=os.path.basename(path)):
                done = subprocess.run(["mandoc", "-T", "lint", "-W", "style", path],
                                      capture_output=True, text=True, check=False)
                # Whether another page is installed here says nothing of this one.
                found = [line for line in (done.stdout + done.stderr).splitlines()
                         if "referenced manual not found" not in line
                         and "outdated mandoc.db" not in line]
                self.assertEqual(found, [])
                done = subprocess.run(["man", "--warnings", "--local-file", path],
                                      capture_output=True, text=True, check=True,
                                      env={"PATH": os.environ["PATH"], "LANG": "C.UTF-8",
                                           "MANWIDTH": "80", "MANPAGER": "cat"})
                self.assertEqual(done.stderr, "")
                self.assertGreater(len(done.stdout), 500)

    def test_the_commands_page_tells_each_command_and_option(self):
        program = description.of_program(f"{harness.build_folder}/keepwell")
        text = shown("keepwell.1")
        for command in program.walk():
            self.assertIn(f"\n   keepwell {command.path}\n" if command.path else "\nOPTIONS\n",
                          text)
            self.assertIn(command.summary.rstrip(".") if command.path else "SYNOPSIS", text)
            section = text.split(f"\n   keepwell {command.path}\n")[-1].split("\n   keepwell ")[0]
            self.assertIn(" ".join(command.note.split()), " ".join(section.split()))
            for line, _ in command.examples:
                self.assertIn(" ".join(line.split()), section)
            for option in command.options:
                for name in option.names:
                    if command.path and name in ("-h", "--help"):
                        continue  # told once
                    self.assertIn(name, section if command.path else text, command.path)
                    self.assertIn(option.help.rstrip("."), text)

    def test_the_interfaces_page_tells_each_member(self):
        text = shown("org.keepwell.KWPrivilegedOperation.5")
        root = ElementTree.parse(f"{SOURCE}/Resources/org.keepwell.KWPrivilegedOperation.xml")
        members = root.findall("interface/method") + root.findall("interface/signal")
        self.assertEqual(len(members), 32)
        for member in members:
            self.assertRegex(text, rf"\b{member.get('name')}\b")
            for argument in member.findall("arg"):
                self.assertIn(f"{argument.get('name')} ({argument.get('type')})", text)

    def test_the_librarys_page_tells_each_request(self):
        text = shown("libkeepwell.3")
        root = ElementTree.parse(f"{SOURCE}/Resources/org.keepwell.KWPrivilegedOperation.xml")
        for member in root.findall("interface[1]/method"):
            name = member.get("name")
            own = name[0].lower() + name[1:] if name[1].islower() else name
            self.assertRegex(text, rf"(?i)\b{own}\b")


if __name__ == "__main__":
    harness.main(needs_root=False)
