"""The sources as they come without git: they can be configured, and a warning of
another compiler does not keep them from being built."""
import os
import shutil
import subprocess
import sys
import tempfile
import unittest

SOURCE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
sys.path[:0] = [f"{SOURCE}/Tests/System"]

from Support import harness  # pylint: disable=wrong-import-position

FOLDERS = ("CMake", "Packaging", "Resources", "Sources")


class TarballTest(unittest.TestCase):
    def setUp(self):
        harness.require_tools("cmake", "ninja", "pkg-config")
        folder = tempfile.TemporaryDirectory(prefix="keepwell-tarball-", dir="/var/tmp")
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        for name in FOLDERS:
            shutil.copytree(f"{SOURCE}/{name}", f"{self.folder}/source/{name}", symlinks=True)
        for name in os.listdir(SOURCE):
            if os.path.isfile(f"{SOURCE}/{name}") and name != ".git":
                shutil.copy(f"{SOURCE}/{name}", f"{self.folder}/source/{name}")

    def commands(self):
        """How the compiler is called, once that is configured anew."""
        shutil.rmtree(f"{self.folder}/build", ignore_errors=True)
        # A program in its place shows that git is not asked.
        os.makedirs(f"{self.folder}/bin", exist_ok=True)
        with open(f"{self.folder}/bin/git", "w", encoding="utf-8") as file:
            file.write(f"#!/bin/sh\ntouch {self.folder}/asked\nexit 1\n")
        os.chmod(f"{self.folder}/bin/git", 0o755)
        subprocess.run(["cmake", "-S", f"{self.folder}/source", "-B", f"{self.folder}/build", "-G",
                        "Ninja", "-DKEEPWELL_BUILD_TESTS=OFF"], check=True, capture_output=True,
                       env={**os.environ, "PATH": f"{self.folder}/bin:{os.environ['PATH']}"})
        with open(f"{self.folder}/build/compile_commands.json", encoding="utf-8") as file:
            return file.read()

    def test_a_warning_fails_the_build_of_developers_alone(self):
        commands = self.commands()
        self.assertIn("-Wall", commands)
        self.assertNotIn("-Werror", commands)
        self.assertFalse(os.path.exists(f"{self.folder}/asked"))
        os.mkdir(f"{self.folder}/source/.git")
        self.assertIn("-Werror", self.commands())


if __name__ == "__main__":
    harness.main(needs_root=False)
