"""Removal of system software through the real agent: kernel extensions, package
receipts, and the architectures of a real universal binary."""
import contextlib
import os
import plistlib
import shutil
import subprocess

from Support import harness
from Support.root import DATA, ThrowAwayRoot
from Support.services import ServicesTestCase

KEXTUNLOAD = "/sbin/kextunload"
PKGUTIL = "/usr/sbin/pkgutil"
DITTO = "/usr/bin/ditto"
X86, ARM = "x86_64", "arm64"
# The work of ditto on an architecture, by the tool that this host has.
DITTO_BY_LIPO = 'exec {lipo} -thin "$2" "$3" -output "$4"'


class SystemSoftwareTest(ServicesTestCase):
    def kext(self, info, name="Example.kext"):
        path = f"{DATA}/{name}"
        self.root.write(f"{path}/Contents/MacOS/Example", "code")
        if info is not None:
            self.root.write(f"{path}/Contents/Info.plist", info)
        return path

    def test_an_extension_is_unloaded_by_its_identifier_and_deleted(self):
        for form in (plistlib.FMT_XML, plistlib.FMT_BINARY):
            self.root.stand_in(KEXTUNLOAD)
            path = self.kext(plistlib.dumps({"CFBundleIdentifier": "org.example.kext"}, fmt=form))
            self.flag("RemoveKextAtPath", path)
            self.assertFalse(self.root.exists(path))
            self.assertEqual(self.root.calls(), [[KEXTUNLOAD, "-p", "-b", "org.example.kext"]])
            self.root.forget_calls()
        self.assertIn(f"Will unload kext at path {path}", self.root.log())

    def test_an_extension_that_stays_loaded_is_still_deleted(self):
        info = plistlib.dumps({"CFBundleIdentifier": "org.example.busy"})
        for script in ("exit 3", "kill -9 $$", "echo a; echo b >&2; exit 1"):
            self.root.stand_in(KEXTUNLOAD, script=script)
            path = self.kext(info)
            self.root.chattr("+i", f"{path}/Contents/MacOS/Example")
            self.flag("RemoveKextAtPath", path)
            self.assertFalse(self.root.exists(path))
        self.assertIn("Failed unload kext with bundle id org.example.busy. Will still just remove "
                      "kext file. Will be unloaded on relaunch.", self.root.log())

    def test_an_item_without_an_identifier_is_neither_unloaded_nor_deleted(self):
        self.root.stand_in(KEXTUNLOAD)
        for info in (None, b"", b"garbage", plistlib.dumps({}), plistlib.dumps(["x"]),
                     plistlib.dumps({"CFBundleIdentifier": 1}), b"<dict>" * 50000):
            path = self.kext(info)
            self.flag("RemoveKextAtPath", path, False)
            self.assertTrue(self.root.exists(path))
            self.assertIn(f"Failed to get bundle ID for kext {path}", self.root.log())
            self.root.empty()
        self.flag("RemoveKextAtPath", f"{DATA}/missing.kext", False)
        self.assertEqual(self.root.calls(), [])

    def test_a_receipt_is_forgotten_when_pkgutil_says_so(self):
        for identifier, script, expected in (
                ("org.example.p", "", True), ("-x", "exit 1", False), ("", "kill -9 $$", False),
                ("a b\"'$(x)", "echo a; echo b >&2", True)):
            self.root.stand_in(PKGUTIL, script=script)
            self.flag("RemovePackageWithID", identifier, expected)
            self.assertEqual(self.root.calls(), [[PKGUTIL, "--forget", identifier]])
            self.root.forget_calls()
        os.chmod(self.root.host_path(PKGUTIL), 0o644)
        self.flag("RemovePackageWithID", "org.example.p")

    def test_tools_are_waited_for_though_the_agent_was_started_with_their_ends_ignored(self):
        """As started by a supervisor that ignores or blocks SIGCHLD."""
        with ThrowAwayRoot(start=False) as root, contextlib.ExitStack() as stack:
            root.agent_prefix = "/usr/bin/env --ignore-signal=CHLD --block-signal=CHLD "
            root.start_bus()
            stack.callback(root.stop_bus)
            for script, expected in (("exit 0", True), ("exit 1", False)):
                root.stand_in(PKGUTIL, script=script)
                reply = root.busctl("RemovePackageWithID", "s", "org.example.p")
                self.assertEqual(reply.flag, expected)

    def lipo(self):
        lipo = shutil.which("llvm-lipo") or shutil.which("llvm-lipo-14")
        clang = shutil.which("clang") or shutil.which("clang-14")
        if not lipo or not clang:
            self.skipTest("clang and llvm-lipo are not installed")
        return lipo, clang

    def universal(self, lipo, clang):
        """A universal binary of two architectures, and each of them alone."""
        folder = self.root.host_path(DATA) + "/build"
        os.makedirs(folder)
        with open(f"{folder}/a.c", "w", encoding="utf-8") as file:
            file.write("int table[3000] = {1}; int answer(void) { return 42; }\n")
        thin = {}
        for name in (X86, ARM):
            subprocess.run([clang, "-c", f"--target={name}-apple-macos11", f"{folder}/a.c", "-o",
                            f"{folder}/{name}.o"], check=True)
            with open(f"{folder}/{name}.o", "rb") as file:
                thin[name] = file.read()
        subprocess.run([lipo, "-create", f"{folder}/{X86}.o", f"{folder}/{ARM}.o", "-output",
                        f"{folder}/fat"], check=True)
        return f"{DATA}/build/fat", thin

    def test_a_universal_binary_keeps_one_architecture_and_shrinks(self):
        lipo, clang = self.lipo()
        for name in (X86, ARM):
            self.root.empty()
            self.root.forget_calls()
            path, thin = self.universal(lipo, clang)
            before = self.root.read(path)
            self.root.stand_in(DITTO, script=DITTO_BY_LIPO.format(lipo=lipo))
            self.flag("SlimBinaryWithPath", path, True, ["--arch", name])
            self.assertEqual(self.root.calls(), [[DITTO, "--arch", name, path, path + ".ditto"]])
            self.assertLess(len(self.root.read(path)), len(before) * 2 // 3)
            self.assertEqual(self.root.read(path), thin[name])
            archs = subprocess.run([lipo, "-archs", self.root.host_path(path)], check=True,
                                   capture_output=True, text=True).stdout.split()
            self.assertEqual(archs, [name])
            self.assertFalse(self.root.exists(path + ".ditto"))

    def test_an_architecture_that_is_not_there_leaves_the_binary(self):
        lipo, clang = self.lipo()
        path, _ = self.universal(lipo, clang)
        before = self.root.read(path)
        self.root.stand_in(DITTO, script=DITTO_BY_LIPO.format(lipo=lipo))
        self.flag("SlimBinaryWithPath", path, False, ["--arch", "ppc"])
        self.assertEqual(self.root.read(path), before)

    def test_a_failed_ditto_leaves_the_binary_and_its_copy(self):
        path = self.root.write(f"{DATA}/bin", "binary", 0o755)
        for script in ("exit 1", "kill -9 $$"):
            self.root.stand_in(DITTO, script=f"echo half > {path}.ditto\n{script}")
            self.flag("SlimBinaryWithPath", path, False, ["--arch", "i386"])
            self.assertEqual(self.root.read(path), b"binary")
            self.assertEqual(self.root.read(path + ".ditto"), b"half\n")

    def test_a_missing_binary_is_nothing_to_do(self):
        self.root.stand_in(DITTO)
        self.flag("SlimBinaryWithPath", f"{DATA}/missing", True, ["--arch", "i386"])
        self.assertEqual(self.root.calls(), [])


if __name__ == "__main__":
    harness.main()
