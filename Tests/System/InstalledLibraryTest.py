"""The library as it is installed: the test builds a program against it as any
user would, by CMake and by pkg-config, shared and static, and the program asks
a real agent."""
import os
import re
import subprocess
import tempfile
import unittest

from Support import harness
from Support.bus import PrivateBus

SOURCE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
EXAMPLE = f"{SOURCE}/Examples/Sizes"
CONTENT = 3 * 4096


def output(*argv, **more):
    done = subprocess.run(argv, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          check=False, **more)
    if done.returncode != 0:
        raise AssertionError(f"{' '.join(argv)}: {done.stdout}")
    return done.stdout


def has_path(text, folder):
    """Whether a path in the text leads to the folder or into it."""
    return bool(re.search(rf"((?<![\w./-])|(?<=-[IL])){re.escape(folder)}(?![\w.-])", text))


class InstalledLibraryTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        if harness.is_instrumented():
            harness.skip("built with a sanitizer or counters: a program without cannot use the library")
        harness.require_tools("cmake", "c++", "pkg-config", "nm", "readelf")
        cls._folder = tempfile.TemporaryDirectory(prefix="keepwell-library-", dir="/var/tmp")
        cls.addClassCleanup(cls._folder.cleanup)
        cls.folder = cls._folder.name
        cls.prefix = f"{cls.folder}/prefix"
        for component in ("library", "development"):
            output("cmake", "--install", harness.build_folder, "--prefix", cls.prefix,
                   "--component", component)
        cls.files = sorted(os.path.relpath(os.path.join(folder, name), cls.prefix)
                           for folder, _, names in os.walk(cls.prefix) for name in names)
        pc = [name for name in cls.files if name.endswith("/keepwell.pc")]
        cls.libraries = os.path.join(cls.prefix, os.path.dirname(os.path.dirname(pc[0])))
        cls.environment = {**os.environ, "PKG_CONFIG_PATH": f"{cls.libraries}/pkgconfig"}
        cls.bus = PrivateBus(f"{cls.folder}")
        cls.bus.start_bus()
        cls.addClassCleanup(cls.bus.stop_bus)
        cls.item = f"{cls.folder}/item"
        with open(cls.item, "wb") as file:
            file.write(b"x" * CONTENT)
            file.flush()
            os.fsync(file.fileno())

    def flags(self, *words):
        return output("pkg-config", *words, "keepwell", env=self.environment).split()

    def assert_asks_the_agent(self, program, needs_library):
        needed = output("readelf", "--dynamic", program)
        self.assertEqual("[libkeepwell.so.2]" in needed, needs_library, needed)
        answer = output(program, self.bus.address, self.item, f"{self.folder}/missing",
                        env={**os.environ, "LD_LIBRARY_PATH": self.libraries})
        allocated = os.stat(self.item).st_blocks * 512
        self.assertEqual(answer, f"{allocated}\t{self.item}\n0\t{self.folder}/missing\n")

    def build_by_cmake(self, name, *options):
        build = f"{self.folder}/{name}"
        output("cmake", "-S", EXAMPLE, "-B", build, f"-DCMAKE_PREFIX_PATH={self.prefix}", *options)
        output("cmake", "--build", build)
        return f"{build}/sizes"

    def test_cmake_finds_the_shared_library(self):
        self.assert_asks_the_agent(self.build_by_cmake("shared"), needs_library=True)

    def test_cmake_finds_the_static_library(self):
        program = self.build_by_cmake("static", "-DKeepwell_USE_STATIC_LIBS=ON")
        self.assert_asks_the_agent(program, needs_library=False)

    def test_pkg_config_finds_both(self):
        made = f"{self.folder}/sizes.o"
        output("c++", "-std=c++20", *self.flags("--cflags"), "-c", f"{EXAMPLE}/main.cpp",
               "-o", made)
        shared, static = f"{self.folder}/sizes-shared", f"{self.folder}/sizes-static"
        output("c++", made, *self.flags("--libs"), "-o", shared)
        self.assert_asks_the_agent(shared, needs_library=True)
        libs = [flag.replace("-lkeepwell", "-l:libkeepwell.a")
                for flag in self.flags("--static", "--libs")]
        output("c++", made, *libs, "-o", static)
        self.assert_asks_the_agent(static, needs_library=False)

    def test_each_header_compiles_alone_and_brings_nothing_of_the_bus_library(self):
        headers = [name for name in self.files if name.endswith(".h")]
        self.assertEqual(sorted(os.path.basename(name) for name in headers),
                         ["Client.h", "ClientError.h", "ErrorValue.h", "Export.h", "Replies.h",
                          "Request.h"])
        # Names that a program may define itself, and names that the platform
        # defines for all.
        own = "class NS;\nenum { FileNoSuchFileError, Done, Cancelled };\n"
        unit = f"{self.folder}/header.cpp"
        for header in headers:
            with open(unit, "w", encoding="utf-8") as file:
                file.write(f"{own}#include <keepwell/{os.path.basename(header)}>\n")
            used = output("c++", "-std=c++20", "-Wall", "-Wextra", "-Wpedantic", "-Werror",
                          "-fsyntax-only", "-H", "-I", f"{self.prefix}/include", unit)
            self.assertNotIn("systemd", used)
            self.assertFalse(has_path(used, SOURCE), used)
            with open(f"{self.prefix}/{header}", encoding="utf-8") as file:
                self.assertNotRegex(file.read(), r"namespace NS|\benum (?!class)")

    def test_installed_files_tell_nothing_of_the_build_folder(self):
        for name in self.files:
            if name.endswith((".cmake", ".pc", ".h")):
                with open(os.path.join(self.prefix, name), encoding="utf-8") as file:
                    text = file.read()
                for folder in (SOURCE, harness.build_folder, self.prefix):
                    self.assertFalse(has_path(text, folder), (folder, name))

    def test_the_shared_library_exports_the_public_classes_alone(self):
        listed = output("nm", "--dynamic", "--demangle", "--defined-only",
                        f"{self.libraries}/libkeepwell.so")
        names = [re.sub(r"^[0-9a-f]* . ", "", line).replace("@@KEEPWELL_2", "")
                 for line in listed.splitlines()]
        allowed = re.compile(r"(typeinfo for |typeinfo name for |vtable for )?"
                             r"(kw::(Client|ClientError|Request<kw::\w+>|Error)(?!\w|::State)|"
                             r"KEEPWELL_2)")
        strange = [name for name in names if not allowed.match(name)]
        self.assertEqual(strange, [])
        for operation in ("removeItemAtPath", "removeItemAtPathAsync", "repairPermissionsAsync"):
            self.assertTrue(any(name.startswith(f"kw::Client::{operation}(") for name in names))
        self.assertIn("[libkeepwell.so.2]",
                      output("readelf", "--dynamic", f"{self.libraries}/libkeepwell.so"))


if __name__ == "__main__":
    harness.main(needs_root=False)
