"""Every example of the documents, run unchanged, by clients and tools that we
did not write, against an installed agent in a throw-away root.

How a fenced block is tried depends on the language it names:
  console  each line after "$ " is run, the lines after it are its expected output;
           a line of three dots stands for any lines, three dots in a line for
           any text
  sh       run as a script, which must succeed
  python   run; an "output" block after it is its expected output
  cpp      compiled against the installed library, run, likewise
  xml, ini read by a parser of such files
Comments before a block steer it: <!-- before: COMMAND --> sets the scene,
<!-- not run: REASON --> leaves it out. The end of the test lists the blocks left out.
"""
import configparser
import difflib
import os
import pathlib
import re
import subprocess
import unittest
import xml.etree.ElementTree as ElementTree

from Support import harness
from Support.systembus import SystemBusRoot

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
FENCE = re.compile(r"((?:<!-- (?:before|not run): .*? -->\n)*)^```(\w+)\n(.*?)^```$",
                   re.MULTILINE | re.DOTALL)
COMMENT = re.compile(r"<!-- (before|not run): (.*?) -->", re.DOTALL)
COMPILE = ("c++ -std=c++20 example.cpp -o example "
           "$(pkg-config --cflags --libs keepwell)")


class Block:
    def __init__(self, document, match):
        self.place = f"{document.name}:{match.string.count(chr(10), 0, match.start(2)) + 1}"
        self.language, self.text = match.group(2), match.group(3)
        comments = COMMENT.findall(match.group(1))
        self.before = [text for kind, text in comments if kind == "before"]
        self.left_out = next((text for kind, text in comments if kind == "not run"), None)
        self.output = None


def blocks_of(document):
    text = document.read_text(encoding="utf-8")
    found = []
    for match in FENCE.finditer(text):
        block = Block(document, match)
        if block.language == "output":
            found[-1].output = block.text
        else:
            found.append(block)
    # A comment at any place but right before a block would be lost silently.
    attached = sum(len(block.before) + bool(block.left_out) for block in found)
    assert attached == len(COMMENT.findall(text)), f"{document.name}: a comment without a block"
    assert 2 * text.count("\n```output") + 2 * len(found) == len(re.findall("^```", text, re.M)), \
        f"{document.name}: a block that names no language"
    return found


def documents():
    return [ROOT / "README.md", *sorted((ROOT / "Documentation").glob("*.md"))]


def pattern_of(expected):
    """The lines as a regular expression, in which dots match any text."""
    pattern = ""
    for line in expected.splitlines(keepends=True):
        if line.strip() == "...":
            pattern += r"(?:.*\n)*?"
        else:
            pattern += ".*?".join(map(re.escape, line.split("...")))
    return pattern


def commands_of(text):
    """The commands of a console block and the expected output of each."""
    result = []
    for line in text.splitlines(keepends=True):
        if line.startswith("$ "):
            result.append([line[2:], ""])
        elif line.startswith("> ") and not result[-1][1]:
            result[-1][0] += line[2:]
        else:
            result[-1][1] += line
    return result


class InstalledRoot(SystemBusRoot):
    """A throw-away root with a system bus, in which everything is installed."""

    def install(self):
        subprocess.run(["cmake", "--install", harness.build_folder], check=True,
                       stdout=subprocess.DEVNULL, env={**os.environ, "DESTDIR": self.root})
        self.check(["/sbin/ldconfig"])

    def environment(self):
        # Not the caller's PATH, so that only installed programs are found.
        return {**super().environment(), "PYTHONDONTWRITEBYTECODE": "1",
                "PATH": "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"}

    def shell(self, script):
        done = self.run(["bash", "-c", "cd /root && " + script])
        return done.returncode, done.stdout.decode() + done.stderr.decode()


class ExamplesTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.left_out = []

    def setUp(self):
        self.root = self.enterContext(InstalledRoot())

    def expect_output(self, block, expected, actual):
        if not re.fullmatch(pattern_of(expected), actual):
            self.fail(f"{block.place}: printed something else:\n" + "".join(difflib.unified_diff(
                expected.splitlines(True), actual.splitlines(True), "expected", "printed")))

    def try_console(self, block):
        for command, expected in commands_of(block.text):
            _, actual = self.root.shell(command)
            self.expect_output(block, expected, actual)

    def try_script(self, block):
        status, text = self.root.shell("set -e\n" + block.text)
        self.assertEqual(status, 0, f"{block.place}: {text}")

    def try_program(self, block, file, command):
        self.root.write(f"/root/{file}", block.text)
        status, text = self.root.shell(command)
        self.assertEqual(status, 0, f"{block.place}: {text}")
        if block.output is not None:
            self.expect_output(block, block.output, text)

    def reason_against(self, block):
        if block.language == "cpp" and harness.is_sanitized():
            return "a program without the sanitizer cannot use the library"
        return block.left_out

    def try_block(self, block):
        for command in block.before:
            status, text = self.root.shell(command)
            self.assertEqual(status, 0, f"{block.place}: {command}: {text}")
        if reason := self.reason_against(block):
            self.left_out.append(f"{block.place}: {reason}")
        elif block.language == "console":
            self.try_console(block)
        elif block.language == "sh":
            self.try_script(block)
        elif block.language == "python":
            self.try_program(block, "example.py", "python3 example.py")
        elif block.language == "cpp":
            self.try_program(block, "example.cpp", COMPILE + " && ./example")
        elif block.language == "xml":
            ElementTree.fromstring(block.text)
        elif block.language == "ini":
            configparser.ConfigParser().read_string(block.text)
        elif block.language != "text":
            self.fail(f"{block.place}: nobody knows how to try {block.language}")

    def testEveryExampleDoesWhatItsDocumentSays(self):
        tried = 0
        for document in documents():
            for block in blocks_of(document):
                with self.subTest(block.place):
                    self.try_block(block)
                    tried += not self.reason_against(block)
        print(f"{tried} examples; left out:", *self.left_out, sep="\n  ")
        self.assertGreater(tried, 0)


if __name__ == "__main__":
    harness.main()
