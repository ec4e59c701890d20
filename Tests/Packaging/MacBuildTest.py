"""The build on a Mac, as far as another host can tell: configured for macOS with a
folder in the place of the SDK, it takes all of the platform from there, and
neither the stubs nor the headers that stand in for it with the cross compiler."""
import glob
import json
import os
import re
import subprocess
import sys
import tempfile
import unittest

SOURCE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
sys.path[:0] = [f"{SOURCE}/Tests/System"]

from Support import harness  # pylint: disable=wrong-import-position

# Takes a program that does nothing for Apple's compiler, so that only CMake's
# answers to a Mac are seen, and nothing is compiled.
TOOLCHAIN = """
set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_VERSION 23)
set(CMAKE_SYSTEM_PROCESSOR arm64)
set(CMAKE_CROSSCOMPILING {cross})
foreach(language C CXX OBJCXX ASM)
  set(CMAKE_${{language}}_COMPILER /bin/true)
  set(CMAKE_${{language}}_COMPILER_ID AppleClang)
  set(CMAKE_${{language}}_COMPILER_VERSION 15.0)
  set(CMAKE_${{language}}_COMPILER_ID_RUN TRUE)
  set(CMAKE_${{language}}_COMPILER_FORCED TRUE)
  set(CMAKE_${{language}}_STANDARD_COMPUTED_DEFAULT 17)
endforeach()
set(CMAKE_INSTALL_NAME_TOOL /bin/true)
set(CMAKE_OSX_SYSROOT {sdk})
set(CMAKE_OSX_DEPLOYMENT_TARGET 11.0)
"""
STAND_INS = re.compile(r"/Stubs|HeaderOnly|/usr/(?:include|lib)|-nostdlib|-lcxx")
LINK = re.compile(r" -o ((?:lib)?keepwell[\w.-]*) ")
FRAMEWORKS = "-framework Foundation -framework CoreFoundation -framework CoreServices " \
             "-framework AppKit"


class MacBuildTest(unittest.TestCase):
    def setUp(self):
        harness.require_tools("cmake", "ninja", "clang++")
        folder = tempfile.TemporaryDirectory(prefix="keepwell-mac-", dir="/var/tmp")
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        self.sdk = f"{self.folder}/MacOSX.sdk"
        os.makedirs(f"{self.sdk}/usr/include")
        self.headers = f"{self.folder}/packages/include"
        self.icu = f"{self.folder}/icu"
        self.write(f"{self.headers}/fmt/format.h", "")
        self.write(f"{self.icu}/include/unicode/unum.h", "")

    @staticmethod
    def write(path, text):
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "w", encoding="utf-8") as file:
            file.write(text)

    def configure(self, *words, cross="OFF"):
        """The commands that compile, with their sources, and those that link."""
        build = f"{self.folder}/build"
        self.write(f"{self.folder}/toolchain.cmake", TOOLCHAIN.format(sdk=self.sdk, cross=cross))
        done = subprocess.run(
            ["cmake", "-S", SOURCE, "-B", build, "-G", "Ninja", "--fresh",
             f"-DCMAKE_TOOLCHAIN_FILE={self.folder}/toolchain.cmake",
             f"-DFMT_HEADERS={self.headers}", *words],
            check=False, capture_output=True, text=True)
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        with open(f"{build}/compile_commands.json", encoding="utf-8") as file:
            compiled = {(each["file"], each["command"]) for each in json.load(file)}
        commands = subprocess.run(["ninja", "-C", build, "-t", "commands"], check=True,
                                  capture_output=True, text=True).stdout
        linked = {}
        for line in commands.splitlines():
            made = LINK.search(line)
            if made:
                linked[made.group(1)] = line
        return compiled, linked

    def with_sdk(self, *words):
        return self.configure(f"-DICU_HEADERS={self.icu}/include",
                              "-DCMAKE_OSX_ARCHITECTURES=x86_64;arm64", *words)

    def test_each_command_takes_the_sdk_and_nothing_that_stands_in_for_it(self):
        compiled, linked = self.with_sdk()
        commands = [command for _, command in compiled] + list(linked.values())
        self.assertGreater(len(commands), 150)
        for command in commands:
            self.assertIsNone(STAND_INS.search(command), command)
            if not command.endswith(".S"):  # which includes no header
                self.assertIn(f"-isysroot {self.sdk} ", command)
                self.assertIn("-mmacosx-version-min=11.0", command)

    def test_all_bodies_of_macos_are_compiled_and_none_of_linux(self):
        compiled, _ = self.with_sdk()
        files = {os.path.relpath(file, SOURCE) for file, _ in compiled}
        expected = {os.path.relpath(f"{folder}/{name}", SOURCE)
                    for folder, _, names in os.walk(f"{SOURCE}/Sources") for name in names
                    if name.endswith((".mm", ".cpp", ".S")) and
                    (name.endswith(".mm") or os.path.basename(folder) in ("macOS", "POSIX"))}
        self.assertGreater(len(expected), 60)
        self.assertEqual(expected - files, set())
        self.assertEqual([file for file in files if "/Linux/" in file], [])

    def test_the_programs_are_linked_with_the_frameworks_for_both_architectures(self):
        _, linked = self.with_sdk()
        self.assertEqual(set(linked), {"keepwell-agent", "keepwell", "libkeepwell.2.dylib"})
        for name, command in linked.items():
            with self.subTest(name):
                for word in ("-arch x86_64", "-arch arm64", "-licucore", "-lexpat", FRAMEWORKS):
                    self.assertIn(word, command)
                self.assertNotRegex(command, r" -[LF]")

    def test_the_library_has_its_list_of_exports_and_the_name_of_its_place(self):
        _, linked = self.with_sdk()
        library = linked["libkeepwell.2.dylib"]
        self.assertIn(f"-exported_symbols_list -Xlinker {SOURCE}/Sources/Client/libkeepwell.exports",
                      library)
        self.assertIn("-install_name /usr/local/lib/libkeepwell.2.dylib ", library)
        for name in ("keepwell-agent", "keepwell"):
            self.assertNotIn("-exported_symbols_list", linked[name])

    def test_declarations_of_the_platform_give_way_to_the_headers_of_the_sdk(self):
        found = 0
        for path in glob.glob(f"{SOURCE}/Sources/**/macOS/**/*.h", recursive=True):
            with open(path, encoding="utf-8") as file:
                text = file.read()
            headers = re.findall(r"__has_include\(<([^>]+)>\)", text)
            for header in headers:
                self.write(f"{self.sdk}/usr/include/{header}", "from_the_sdk\n")
            if headers:
                found += 1
                done = subprocess.run(
                    ["clang++", "-x", "objective-c++", "-E", "-P", "-nostdinc", "-nostdinc++",
                     "-isystem", f"{self.sdk}/usr/include", path],
                    check=False, capture_output=True, text=True)
                self.assertEqual(done.stdout.split(), ["from_the_sdk"] * len(headers), path)
        self.assertGreaterEqual(found, 4)

    def test_another_icu_is_linked_whole(self):
        compiled, linked = self.configure(f"-DKEEPWELL_ICU_ROOT={self.icu}")
        for _, command in compiled:
            self.assertNotIn("U_DISABLE_RENAMING", command)
        for command in linked.values():
            self.assertIn(f"-L{self.icu}/lib -licui18n -licuuc", command)
            self.assertNotIn("-licucore", command)

    def test_the_cross_compiler_takes_headers_of_this_host(self):
        """So the search for them above would find them. The example needs none."""
        compiled, _ = self.configure("-DKEEPWELL_MACOS_ARCH=x86_64", cross="ON")
        self.assertTrue(all("HeaderOnly" in command for file, command in compiled
                            if file.endswith(".cpp") and "/Examples/" not in file))


if __name__ == "__main__":
    harness.main(needs_root=False)
