"""The completions: each shell really offers every command and every option that
the command itself knows."""
import os
import subprocess
import sys
import tempfile
import unittest

SOURCE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
sys.path[:0] = [f"{SOURCE}/Tests/System", f"{SOURCE}/Packaging"]

import description  # pylint: disable=wrong-import-position
from Support import harness  # pylint: disable=wrong-import-position

BASH = """
source "$1"
while IFS= read -r line; do
  eval "COMP_WORDS=($line)"
  COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
  _keepwell
  [ ${#COMPREPLY[@]} -eq 0 ] || printf '%s\\n' "${COMPREPLY[@]}"
  echo ---
done
"""
FISH = """
source $argv[1]
while read -l line
    complete -C "$line"
    echo ---
end
"""
# Prints the questions to zsh's completion system instead.
ZSH = """
compdef() { : }
_arguments() { print -rl -- "$@"; state=command }
_files() { : }
_describe() { print -rl -- "${(@P)4}" }
source "$1" >/dev/null
shift
for name; do $name; print -r -- ---; done
"""


def options_of(command):
    return sorted(name for option in command.known_options() for name in option.names)


class CompletionsTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        harness.require_tools("bash", "zsh", "fish")
        cls.program = description.of_program(f"{harness.build_folder}/keepwell")
        cls.commands = list(cls.program.walk())

    def made(self, shell):
        return f"{harness.build_folder}/Packaging/keepwell.{shell}"

    def run_shell(self, argv, lines=()):
        """In a folder with one file, for the questions that files answer."""
        with tempfile.TemporaryDirectory() as folder:
            for name in ("some file", "other"):
                with open(f"{folder}/{name}", "w", encoding="utf-8"):
                    pass
            done = subprocess.run(argv, input="".join(line + "\n" for line in lines), cwd=folder,
                                  capture_output=True, text=True, check=False,
                                  env={"PATH": os.environ["PATH"], "HOME": folder,
                                       "LANG": "C.UTF-8"})
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        return done.stdout

    def bash(self, *lines):
        out = self.run_shell(["bash", "--norc", "-c", BASH, "bash", self.made("bash")], lines)
        return [sorted(each.splitlines()) for each in out.split("---\n")[:-1]]

    def fish(self, *lines):
        out = self.run_shell(["fish", "--no-config", "-c", FISH, self.made("fish")], lines)
        return [sorted(line.split("\t")[0] for line in each.splitlines())
                for each in out.split("---\n")[:-1]]

    def test_there_is_something_to_complete(self):
        paths = [command.path for command in self.commands]
        for path in ("remove", "launchd disable", "maintenance repair-permissions"):
            self.assertIn(path, paths)

    def test_bash_and_fish_offer_each_command(self):
        above = [command for command in self.commands if command.commands]
        files = ["other", "some file"]  # for a command that takes paths as well
        expected = [sorted([each.name for each in command.commands] +
                           (files if command.arguments else [])) for command in above]
        self.assertEqual(self.bash(*(f"keepwell {command.path} ''" for command in above)),
                         expected)
        self.assertEqual(self.fish(*(f"keepwell {command.path} ".replace("  ", " ")
                                     for command in above)), expected)

    def test_bash_and_fish_offer_each_option(self):
        lines = [f"keepwell {command.path} --".replace("  ", " ") for command in self.commands]
        expected = [[name for name in options_of(command) if name.startswith("--")]
                    for command in self.commands]
        self.assertEqual(self.bash(*lines), expected)
        self.assertEqual(self.fish(*lines), expected)

    def test_zsh_offers_each_command_and_option(self):
        names = ["_".join(["_keepwell", *command.path.replace("-", "_").split()])
                 for command in self.commands]
        out = self.run_shell(["zsh", "-f", "-c", ZSH, "zsh", self.made("zsh"), *names])
        for command, text in zip(self.commands, out.split("---\n"), strict=False):
            told = text.splitlines()
            for name in options_of(command):
                # (those that exclude it)--option[its help]:value:its completion
                self.assertRegex(text, rf"(?m)^(\([^)]*\)|\*)?{name}\[", command.path)
            for each in command.commands:
                self.assertTrue([line for line in told if line.startswith(each.name + ":")], each)

    def test_values_are_offered_where_an_option_takes_one(self):
        for shell in (self.bash, self.fish):
            self.assertEqual(shell("keepwell --bus s", "keepwell size --bus s",
                                   "keepwell --bus session maintenance periodic m"),
                             [["session", "system"], ["session", "system"], ["monthly"]])

    def test_files_are_offered_where_a_path_is_wanted_and_only_there(self):
        self.assertEqual(self.bash("keepwell size ''", "keepwell remove so", "keepwell echo ''",
                                   "keepwell size -- o", "keepwell find --under ot"),
                         [["other", "some file"], ["some file"], [], ["other"], ["other"]])
        self.assertEqual(self.fish("keepwell size ", "keepwell remove so", "keepwell echo "),
                         [["other", "some file"], ["some file"], []])

    def test_bash_takes_a_value_behind_an_equals_sign(self):
        self.assertEqual(self.bash("keepwell --bus = se", "keepwell --bus = session ma"),
                         [["session"], ["maintenance"]])

    def test_zsh_understands_the_whole_file(self):
        self.run_shell(["zsh", "-n", self.made("zsh")])


if __name__ == "__main__":
    harness.main(needs_root=False)
