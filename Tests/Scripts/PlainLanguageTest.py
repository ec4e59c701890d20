#!/usr/bin/env python3
"""Scripts/plain-language: it finds each turn in the comments of each language,
passes over strings and code, and fails above its levels."""
import os
import re
import subprocess
import sys
import tempfile
import unittest

SOURCE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
PLAIN = "The walk closes the folder before it opens the next one. " * 20


class PlainLanguageTest(unittest.TestCase):
    def setUp(self):
        scratch = tempfile.TemporaryDirectory()
        self.addCleanup(scratch.cleanup)
        self.folder = scratch.name

    def run_on(self, *names, options=()):
        paths = [f"{self.folder}/{name}" for name in names]
        return subprocess.run([f"{SOURCE}/Scripts/plain-language", *options, *paths], text=True,
                              capture_output=True, check=False)

    def found(self, name, text):
        """(line, kind) of each turn in a file with this text."""
        path = f"{self.folder}/{name}"
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "w", encoding="utf-8") as file:
            file.write(text)
        run = self.run_on(name, options=["--list"])
        self.assertEqual(run.stderr, "")
        return [(int(line), kind) for line, kind in
                re.findall(rf"^{re.escape(path)}:(\d+): (\w+): ", run.stdout, re.MULTILINE)]

    def test_each_kind_of_turn_is_found(self):
        turns = {
            "riddle": ["It closes what is open.", "It asks who waits.", "Whatever comes is read.",
                       "What the bus keeps is lost.", "Who asks is told."],
            "nobody": ["Nobody reads it.", "It goes to whoever asks.", "Somebody holds it.",
                       "Anybody may ask."],
            "stands": ["It stands in the list.", "The rest stood there."],
            "phrase": ["It works none the less.", "It is done all the same.",
                       "It fails for want of memory.", "The item is no folder.",
                       "The bytes are no UTF-8."],
        }
        lines = [(kind, sentence) for kind, sentences in turns.items() for sentence in sentences]
        found = self.found("a.cpp", "\n\n".join(f"// {sentence}" for _, sentence in lines))
        for number, (kind, sentence) in enumerate(lines):
            self.assertIn((2 * number + 1, kind), found, sentence)

    def test_plain_sentences_pass(self):
        sentences = ("A client who asks twice is answered twice.",
                     "Those who wait are woken in order.",
                     "The list says what to keep.", "There is no limit.",
                     "The folder is no longer open.", "The letter stands for a value.",
                     "A stand-in answers for the tool.", "The threads stand still.")
        self.assertEqual(
            self.found("a.cpp", "\n\n".join(f"// {sentence}" for sentence in sentences)), [])

    def test_a_turn_across_lines_is_found_on_its_last_line(self):
        self.assertEqual(self.found("a.cpp", "// The walk closes what\n// is open.\nint x;\n"),
                         [(1, "riddle")])
        self.assertEqual(self.found("a.cpp", "// The walk is over. It closes\n// what is open.\n"),
                         [(2, "riddle")])

    def test_neighbouring_comments_are_not_joined(self):
        self.assertEqual(self.found("a.cpp", "int a; // says what\n\nint b; // is open\n"), [])

    def test_comments_of_cxx_are_read_and_literals_are_not(self):
        text = ('const char *a = "// nobody";\n'
                "const char *b = R\"x(\" /* nobody */ )x\"; // whoever\n"
                "char c = '\"'; int d = 1'000; /* nobody\n"
                " * somebody */ const char *e = \"nobody\";\n")
        for name in ("a.cpp", "a.h", "a.mm"):
            self.assertEqual(self.found(name, text), [(2, "nobody"), (3, "nobody"), (4, "nobody")])

    def test_comments_and_docstrings_of_python_are_read_and_strings_are_not(self):
        text = ('"""Nobody."""\nx = "nobody"  # nobody\n\n\n'
                'def f():\n    """One line.\n\n    Nobody."""\n    return "# nobody"\n')
        self.assertEqual(self.found("a.py", text), [(1, "nobody"), (2, "nobody"), (8, "nobody")])

    def test_comments_of_scripts_are_read_and_strings_are_not(self):
        text = '#!/bin/sh\n# nobody\nx="# nobody"; y=${#x} # nobody\n# somebody\necho \'# nobody\'\n'
        self.assertEqual(self.found("a", text), [(2, "nobody"), (3, "nobody"), (4, "nobody")])

    def test_comments_of_cmake_are_read_and_strings_are_not(self):
        text = '# nobody\nset(x "# nobody")\nset(y [[# nobody]])\nset(z 1) # nobody\n'
        self.assertEqual(self.found("CMakeLists.txt", text), [(1, "nobody"), (4, "nobody")])
        self.assertEqual(self.found("a.cmake", text), [(1, "nobody"), (4, "nobody")])

    def test_documents_are_read_without_their_code(self):
        text = ("# Nobody\n\n```sh\nnobody\n```\n\nIt runs `nobody` alone.\n\n"
                "<!-- nobody -->\n<!-- over\nnobody -->\n\nSomebody\n")
        self.assertEqual(self.found("a.md", text), [(1, "nobody"), (13, "nobody")])

    def test_manual_pages_are_read_without_their_examples(self):
        text = '.TH NOBODY 1\n.SH NOBODY\n.EX\nnobody\n.EE\n.\\" nobody\n.B nobody\nruns it.\n'
        self.assertEqual(self.found("a.1", text), [(7, "nobody")])
        self.assertEqual(self.found("a.1.in", text), [(7, "nobody")])

    def test_descriptions_and_help_texts_are_read(self):
        self.assertEqual(
            self.found("a.xml", '<!-- nobody -->\n<annotation name="a.DocString"\n'
                       '    value="Nobody"/>\n<x name="nobody"/>\n'),
            [(1, "nobody"), (3, "nobody")])
        for name in ("Commands+Some", "Session"):
            self.assertEqual(self.found(f"Sources/CommandLine/{name}.cpp",
                                        '#include "nobody"\n\nx("Nobody");\n'), [(3, "nobody")])
        self.assertEqual(self.found("Sources/Client/Session.cpp", 'x("Nobody");\n'), [])
        self.assertRegex(self.run_on("Sources/CommandLine/Commands+Some.cpp").stdout,
                         r"comments +0 words .*\n(.*\n)*help texts +1 words ")

    def test_names_of_tests_are_read(self):
        self.assertEqual(
            self.found("AnyTest.cpp", "TEST(Any, goesOn) {}\nTEST_F(Any, tellsWhatIsOpen) {}\n"
                       "void nobody();\n"), [(2, "riddle")])
        self.assertEqual(
            self.found("AnyTest.py", "class Any:\n    def test_it_stands_there(self):\n"
                       "        nobody()\n"), [(2, "stands")])

    def test_it_fails_above_a_level_and_names_it(self):
        self.found("good.md", PLAIN)
        self.found("bad.md", PLAIN + "Nobody reads it.\n")
        good, bad = self.run_on("good.md"), self.run_on("bad.md")
        self.assertEqual(good.returncode, 0, good.stdout)
        self.assertEqual(bad.returncode, 1)
        self.assertIn("documents: nobody: 4.48 per 1,000 words; 0.1 at most", bad.stdout)
        self.assertEqual(self.run_on("bad.md", options=["--nobody", "4.5"]).returncode, 0)

    def test_one_turn_in_a_kind_that_allows_none_fails_however_many_words(self):
        self.found("bad.md", PLAIN * 100 + "It stands there.\n")
        self.assertEqual(self.run_on("bad.md").returncode, 1)


if __name__ == "__main__":
    sys.exit(unittest.main())
