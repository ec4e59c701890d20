"""The layout of the installer for macOS, and the steps that sign and pack it, with
stand-ins for the tools that only a Mac has."""
import glob
import os
import plistlib
import shutil
import stat
import subprocess
import sys
import tempfile
import unittest
import xml.etree.ElementTree as ElementTree

SOURCE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
sys.path[:0] = [f"{SOURCE}/Tests/System", f"{SOURCE}/Tests"]

from Conformance.services import thin_binary, universal_binary  # pylint: disable=C0413
from Support import harness  # pylint: disable=wrong-import-position

HERE = f"{SOURCE}/Packaging/macos"
NAME = "org.keepwell.pro.agent"
TOOL = f"Library/PrivilegedHelperTools/{NAME}"
JOB = f"Library/LaunchDaemons/{NAME}.plist"
COMMAND = "usr/local/bin/keepwell"
MAKER = 'anchor apple generic and certificate leaf[subject.OU] = "{}"'
TOOLS = ("codesign", "pkgbuild", "productbuild", "xcrun", "launchctl", "PlistBuddy")


class MacInstallerTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="keepwell-installer-", dir="/var/tmp")
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        self.programs = f"{self.folder}/programs"
        self.lists = f"{harness.build_folder}/Resources"
        self.layout = f"{self.folder}/layout"
        os.mkdir(self.programs)
        for name in ("keepwell-agent", "keepwell"):
            self.program(name, universal_binary(["x86_64", "arm64"]) + name.encode())

    def program(self, name, content):
        with open(f"{self.programs}/{name}", "wb") as file:
            file.write(content)

    def lay_out(self, *words):
        return subprocess.run([f"{HERE}/lay-out", "--programs", self.programs, "--lists",
                               self.lists, *words, self.layout], check=False,
                              capture_output=True, text=True)

    def laid_out(self):
        done = self.lay_out("--manual", f"{SOURCE}/Packaging/man/keepwell-agent.8")
        self.assertEqual((done.returncode, done.stderr), (0, ""))

    def read_list(self, path):
        with open(path, "rb") as file:
            return plistlib.load(file)

    def test_each_file_is_at_its_place_with_its_mode(self):
        self.laid_out()
        root = f"{self.layout}/root"
        found = {}
        for folder, folders, files in os.walk(root):
            for name in folders + files:
                path = f"{folder}/{name}"
                found[os.path.relpath(path, root)] = oct(stat.S_IMODE(os.lstat(path).st_mode))
        folders = {"Library", "Library/LaunchDaemons", "usr", "usr/local", "usr/local/bin",
                   "usr/local/share", "usr/local/share/keepwell", "usr/local/share/man",
                   "usr/local/share/man/man8"}
        self.assertEqual(found, {
            **dict.fromkeys(folders, "0o755"), "Library/PrivilegedHelperTools": "0o1755",
            TOOL: "0o544", JOB: "0o644", COMMAND: "0o755",
            "usr/local/share/keepwell/keepwell-output.schema.json": "0o644",
            "usr/local/share/man/man8/keepwell-agent.8": "0o644"})
        for path, name in ((TOOL, "keepwell-agent"), (COMMAND, "keepwell")):
            with open(f"{root}/{path}", "rb") as file:
                file.seek(-len(name), os.SEEK_END)
                self.assertEqual(file.read(), name.encode())

    def library(self):
        """The arguments that add the client library to the layout."""
        self.program("libkeepwell.dylib", universal_binary(["x86_64", "arm64"]))
        return ("--library", f"{self.programs}/libkeepwell.dylib",
                "--headers", f"{harness.build_folder}/include/keepwell")

    def test_the_library_comes_with_its_headers_and_its_other_names(self):
        library = self.library()
        done = self.lay_out(*library)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        root = f"{self.layout}/root/usr/local"
        self.assertEqual(sorted(os.listdir(f"{root}/include/keepwell")),
                         sorted(os.listdir(f"{harness.build_folder}/include/keepwell")))
        self.assertIn("Client.h", os.listdir(f"{root}/include/keepwell"))
        self.assertEqual(sorted(os.listdir(f"{root}/lib")),
                         ["libkeepwell.2.dylib", "libkeepwell.dylib"])
        self.assertEqual(os.readlink(f"{root}/lib/libkeepwell.dylib"), "libkeepwell.2.dylib")
        self.stand_ins()
        self.run_step(f"{HERE}/make-package", self.layout, f"{self.folder}/out.pkg")
        self.assertEqual([call[-1] for call in self.calls()[4:6]],
                         [f"{root}/lib/libkeepwell.2.dylib"] * 2)
        self.program("libkeepwell.dylib", thin_binary("arm64"))
        shutil.rmtree(self.layout)
        self.assertIn("not universal", self.lay_out(*library).stderr)

    def test_the_job_list_is_the_embedded_one_with_the_programs_path(self):
        self.laid_out()
        job = self.read_list(f"{self.layout}/root/{JOB}")
        self.assertEqual(job.pop("ProgramArguments"), [f"/{TOOL}"])
        self.assertEqual(job, self.read_list(f"{self.lists}/Agent-Launchd.plist"))

    def test_clients_require_the_agents_name_and_the_maker_that_it_requires_of_them(self):
        self.laid_out()
        clients, = self.read_list(f"{self.lists}/Agent-Info.plist")["SMAuthorizedClients"]
        team = clients.rpartition(" = ")[2].strip('"')
        self.assertEqual(len(team), 10)
        self.assertTrue(clients.endswith(" and " + MAKER.format(team)))
        self.assertEqual(self.read_list(f"{self.layout}/client.plist"), {
            "SMPrivilegedExecutables": {NAME: f'identifier "{NAME}" and {MAKER.format(team)}'}})

    def test_the_maker_is_chosen_when_configuring(self):
        shutil.copytree(f"{SOURCE}/Resources", f"{self.folder}/source/Resources")
        for name in ("CMake", "Sources/Protocol"):
            shutil.copytree(f"{SOURCE}/{name}", f"{self.folder}/source/{name}")
        with open(f"{self.folder}/source/CMakeLists.txt", "w", encoding="utf-8") as file:
            file.write("cmake_minimum_required(VERSION 3.25)\n"
                       "project(Keepwell VERSION 2.11 LANGUAGES NONE)\n"
                       "list(APPEND CMAKE_MODULE_PATH ${CMAKE_SOURCE_DIR}/CMake)\n"
                       "include(GNUInstallDirs)\ninclude(KeepwellOptions)\n"
                       "add_subdirectory(Resources)\n")
        subprocess.run(["cmake", "-S", f"{self.folder}/source", "-B", f"{self.folder}/build",
                        "-DKEEPWELL_TEAM_ID=AB12CD34EF"], check=True, capture_output=True)
        self.lists = f"{self.folder}/build/Resources"
        self.laid_out()
        entry = self.read_list(f"{self.layout}/client.plist")["SMPrivilegedExecutables"][NAME]
        self.assertEqual(entry, f'identifier "{NAME}" and {MAKER.format("AB12CD34EF")}')

    def test_missing_programs_and_others_than_universal_ones_are_refused(self):
        def is_refused(text):
            done = self.lay_out()
            self.assertNotEqual(done.returncode, 0)
            self.assertIn(text, done.stderr)
            self.assertFalse(os.path.exists(self.layout))

        for content in (thin_binary("arm64"), universal_binary(["x86_64"]), b"#!/bin/sh\n", b""):
            self.program("keepwell", content)
            is_refused("not universal")
        os.unlink(f"{self.programs}/keepwell")
        is_refused("No such file")
        self.program("keepwell", universal_binary(["x86_64", "arm64"]))
        lists, self.lists = self.lists, self.folder
        is_refused("No such file")
        self.lists = lists
        self.laid_out()
        self.assertIn("is there already", self.lay_out().stderr)

    def test_the_agent_can_be_laid_out_alone(self):
        os.unlink(f"{self.programs}/keepwell")
        done = self.lay_out("--agent-alone")
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        self.assertEqual(os.listdir(f"{self.layout}/root"), ["Library"])
        self.stand_ins()
        self.run_step(f"{HERE}/make-package", self.layout, f"{self.folder}/out.pkg")
        self.assertEqual([call[0] for call in self.calls()],
                         ["codesign", "codesign", "pkgbuild", "productbuild"])

    # The steps.
    def stand_ins(self, script=""):
        """Programs of these names that record how they are called."""
        os.makedirs(f"{self.folder}/bin", exist_ok=True)
        for name in TOOLS:
            path = f"{self.folder}/bin/{name}"
            with open(path, "w", encoding="utf-8") as file:
                file.write(f'#!/bin/sh\n{{ printf "%s" {name}; printf "\\t%s" "$@"; echo; }} '
                           f'>>{self.folder}/calls\n{script}\n')
            os.chmod(path, 0o755)

    def run_step(self, *argv, **variables):
        environment = {"PATH": f"{self.folder}/bin:{harness.PATH}", **variables}
        return subprocess.run(argv, check=False, capture_output=True, text=True, env=environment)

    def calls(self):
        if not os.path.exists(f"{self.folder}/calls"):
            return []
        with open(f"{self.folder}/calls", encoding="utf-8") as file:
            lines = [line.rstrip("\n").split("\t") for line in file]
        os.unlink(f"{self.folder}/calls")
        return lines

    def package(self, **variables):
        self.laid_out()
        self.stand_ins()
        done = self.run_step(f"{HERE}/make-package", self.layout, f"{self.folder}/out.pkg",
                             **variables)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        return self.calls()

    def test_without_certificates_the_signature_is_for_this_mac_alone(self):
        root = f"{self.layout}/root"
        calls = self.package()
        self.assertEqual(calls[:4], [
            ["codesign", "--force", "--sign", "-", "--identifier", NAME, "--options", "runtime",
             f"{root}/{TOOL}"],
            ["codesign", "--verify", "--strict", f"{root}/{TOOL}"],
            ["codesign", "--force", "--sign", "-", "--identifier", "org.keepwell.command",
             "--options", "runtime", f"{root}/{COMMAND}"],
            ["codesign", "--verify", "--strict", f"{root}/{COMMAND}"]])
        pack, product = calls[4:]
        self.assertEqual(pack[:-1], [
            "pkgbuild", "--root", root, "--scripts", f"{HERE}/scripts", "--identifier",
            "org.keepwell.pkg", "--version", "2.11", "--ownership", "recommended"])
        self.assertEqual(product, [
            "productbuild", "--distribution", f"{HERE}/Distribution.xml", "--package-path",
            os.path.dirname(pack[-1]), f"{self.folder}/out.pkg"])
        self.assertEqual(stat.S_IMODE(os.stat(f"{root}/{TOOL}").st_mode), 0o544)

    def test_with_a_certificate_the_tool_must_meet_the_requirement_of_its_clients(self):
        root = f"{self.layout}/root"
        self.laid_out()
        self.stand_ins('[ "${0##*/}" != PlistBuddy ] || echo the requirement')
        done = self.run_step(f"{HERE}/make-package", self.layout, f"{self.folder}/out.pkg",
                             KEEPWELL_SIGN_PROGRAMS="Application: A B")
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        calls = self.calls()
        self.assertEqual(calls[0], [
            "codesign", "--force", "--sign", "Application: A B", "--identifier", NAME, "--options",
            "runtime", "--timestamp", f"{root}/{TOOL}"])
        self.assertEqual(calls[4:6], [
            ["PlistBuddy", "-c", f"Print :SMPrivilegedExecutables:{NAME}",
             f"{self.layout}/client.plist"],
            ["codesign", "--verify", "--strict", "-R=the requirement", f"{root}/{TOOL}"]])

    def test_a_package_is_notarized_when_a_profile_is_named(self):
        calls = self.package(KEEPWELL_SIGN_INSTALLER="Installer: A B",
                             KEEPWELL_NOTARY_PROFILE="profile")
        output = f"{self.folder}/out.pkg"
        self.assertEqual(calls[-3][-4:], ["--sign", "Installer: A B", "--timestamp", output])
        self.assertEqual(calls[-2:], [
            ["xcrun", "notarytool", "submit", "--keychain-profile", "profile", "--wait", output],
            ["xcrun", "stapler", "staple", output]])

    def test_a_program_that_cannot_be_signed_is_not_packed(self):
        self.laid_out()
        self.stand_ins("exit 1")
        done = self.run_step(f"{HERE}/make-package", self.layout, f"{self.folder}/out.pkg")
        self.assertNotEqual(done.returncode, 0)
        self.assertEqual([call[0] for call in self.calls()], ["codesign"])

    def test_the_distribution_names_the_package_that_is_made(self):
        tree = ElementTree.parse(f"{HERE}/Distribution.xml").getroot()
        identifiers = {each.get("id") for each in tree.iter("pkg-ref")}
        self.assertEqual(identifiers, {"org.keepwell.pkg"})
        self.assertEqual([each.text for each in tree.iter("pkg-ref") if each.text],
                         ["keepwell.pkg"])
        self.assertEqual(tree.find("options").get("hostArchitectures"), "x86_64,arm64")
        self.assertEqual(tree.find(".//os-version").get("min"), "11.0")

    def test_the_scripts_of_the_package_end_the_former_job_and_load_the_new_one(self):
        scripts = sorted(glob.glob(f"{HERE}/scripts/*"))
        self.assertEqual([os.path.basename(path) for path in scripts],
                         ["postinstall", "preinstall"])
        postinstall, preinstall = scripts
        arguments = ["package", "/", "/"]
        self.stand_ins()
        self.assertEqual(self.run_step(preinstall, *arguments).returncode, 0)
        self.assertEqual(self.calls(), [["launchctl", "print", f"system/{NAME}"],
                                        ["launchctl", "bootout", f"system/{NAME}"]])
        self.assertEqual(self.run_step(postinstall, *arguments).returncode, 0)
        self.assertEqual(self.calls(), [["launchctl", "enable", f"system/{NAME}"],
                                        ["launchctl", "bootstrap", "system", f"/{JOB}"]])
        self.assertEqual(self.run_step(postinstall, "package", "/", "/Volumes/Other").returncode, 0)
        self.assertEqual(self.calls(), [])
        self.stand_ins("exit 113")  # launchd knows no such job
        self.assertEqual(self.run_step(preinstall, *arguments).returncode, 0)
        self.assertEqual(self.calls(), [["launchctl", "print", f"system/{NAME}"]])
        self.assertNotEqual(self.run_step(postinstall, *arguments).returncode, 0)


if __name__ == "__main__":
    harness.main(needs_root=False)
