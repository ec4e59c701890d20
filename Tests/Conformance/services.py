"""Scenarios: launchd jobs, login items, startup items, kernel extensions, packages,
universal binaries, the configuration of launchd. The items that they need of
the system are made for the purpose under names of their own, and gone afterwards."""
import os
import plistlib
import struct
import subprocess

from .place import REFUSED, expect, expect_content, expect_gone, expect_no_reason, expect_true
from .suite import NotApplicable, covers

ENABLE, DISABLE, REMOVE = (f"{verb}LaunchdAgentAtPath" for verb in ("Enable", "Disable", "Remove"))
LAUNCHCTL = "/bin/launchctl"
TOOLS = "/Library/PrivilegedHelperTools"


def _label(what):
    return f"org.keepwell.conformance.{what}.{os.getpid()}"


def _job(place, label, name=None):
    """The list of a job that does nothing when it is started."""
    return place.file(f"{name or label}.plist", plistlib.dumps(
        {"Label": label, "ProgramArguments": ["/bin/sleep", "0"]}))


# Jobs that launchd does not know.
@covers(DISABLE)
def a_job_that_is_not_loaded_counts_as_disabled(place):
    place.host.require_tool(LAUNCHCTL)
    path = _job(place, _label("idle"))
    place.done("launchd", "disable", path)
    expect_true(os.path.exists(path), "the list stays")
    expect(place.said("launchd", "disable", path), f"Disabled {path}\n", "the text")


@covers(DISABLE)
def a_list_without_a_label_counts_as_disabled(place):
    place.host.require_tool(LAUNCHCTL)
    for content in (b"", b"garbage", plistlib.dumps(["Label"])):
        path = place.file("odd.plist", content)
        place.done("launchd", "disable", path)
        expect_content(path, content)
    place.done("launchd", "disable", place.path("missing.plist"))


@covers(ENABLE)
def a_missing_list_is_not_enabled(place):
    place.host.require_tool(LAUNCHCTL)
    expect_no_reason(place.refused("launchd", "enable", place.path("missing.plist")))


@covers(REMOVE)
def a_removed_list_is_gone_and_a_refused_one_stays(place):
    place.host.require_tool(LAUNCHCTL)
    path = _job(place, _label("never-loaded"))
    # Whether launchctl tells of a job that it does not know on standard output,
    # which counts as a failure, depends on its version.
    answer = place.run("--json", "launchd", "remove", path)
    expect_true(answer.status in (0, REFUSED), str(answer))
    expect(os.path.exists(path), answer.status == REFUSED, f"that the list stays, after {answer}")


@covers("keepwell launchd info")
def a_jobs_settings_are_read_from_its_list(place):
    for form in (plistlib.FMT_XML, plistlib.FMT_BINARY):
        path = place.file("job.plist", plistlib.dumps(
            {"Label": _label("told"), "RunAtLoad": True, "StartCalendarInterval": {"Hour": 3},
             "ProgramArguments": ["/Applications/None.app/Contents/MacOS/None"]}, fmt=form))
        told = place.done("launchd", "info", path)
        expect([told[key] for key in ("label", "runAtLoad", "periodic", "loaded", "application")],
               [_label("told"), True, True, False, "/Applications/None.app"], "the settings")
    place.refused("launchd", "info", place.file("odd.plist", b"garbage"))


class _SystemJob:
    """A job made for the purpose, and unloaded afterwards."""

    def __init__(self, place, what):
        place.host.require_tool(LAUNCHCTL)
        place.host.require_root("to load jobs of the system and ask about them")
        self.label = _label(what)
        self.path = _job(place, self.label)

    def __enter__(self):
        return self

    def load(self):
        subprocess.run([LAUNCHCTL, "load", "-w", self.path], check=True, capture_output=True)

    def __exit__(self, *_):
        subprocess.run([LAUNCHCTL, "unload", self.path], check=False, capture_output=True)


@covers(ENABLE, area="jobs")
def an_enabled_job_is_loaded(place):
    with _SystemJob(place, "enabled") as job:
        for _ in range(2):  # the second time it is so already
            place.done("launchd", "enable", job.path)
            expect(place.host.job_is_loaded(job.label), True, "that the job is loaded")


@covers(DISABLE, area="jobs")
def a_disabled_job_is_not_loaded_and_its_list_stays(place):
    with _SystemJob(place, "disabled") as job:
        job.load()
        expect(place.host.job_is_loaded(job.label), True, "that the job is loaded at first")
        place.done("launchd", "disable", job.path)
        expect(place.host.job_is_loaded(job.label), False, "that the job is loaded when disabled")
        expect_true(os.path.exists(job.path), "the list stays")


@covers(REMOVE, area="jobs")
def a_removed_job_is_unloaded_and_its_tool_of_the_lists_name_goes(place):
    place.host.require_tool(LAUNCHCTL)
    place.host.require_root("to load a job of the system and make its tool")
    label, name = _label("removed"), _label("tool")
    path = _job(place, label, name)
    made = not os.path.isdir(TOOLS)
    os.makedirs(TOOLS, exist_ok=True)
    tools = [f"{TOOLS}/{name}", f"{TOOLS}/{label}"]
    try:
        for tool in tools:
            with open(tool, "xb"):
                pass
        subprocess.run([LAUNCHCTL, "load", path], check=True, capture_output=True)
        place.done("launchd", "remove", path)
        expect(place.host.job_is_loaded(label), False, "that the job is loaded when removed")
        expect_gone(path, tools[0])
        expect_true(os.path.exists(tools[1]), "the tool of the label's name stays")
    finally:
        subprocess.run([LAUNCHCTL, "remove", label], check=False, capture_output=True)
        for tool in filter(os.path.exists, tools):
            os.unlink(tool)
        if made:
            os.removedirs(TOOLS)


# Startup items: the answer is yes for any result of the tool.
@covers("StartStartupItem")
def an_unknown_startup_item_counts_as_started(place):
    _ask_for_startup_item(place, "start")


@covers("StopStartupItem")
def an_unknown_startup_item_counts_as_stopped(place):
    _ask_for_startup_item(place, "stop")


def _ask_for_startup_item(place, verb):
    place.host.require_tool("/sbin/SystemStarter")
    for name in ("No Item of Keepwell's Conformance", "keepwell \"quoted\""):
        expect(place.said("startup", verb, name), f"Asked to {verb} {name}\n", "the text")


# Login items.
@covers("RemoveGlobalLoginItemForAppWithPath")
def an_application_that_is_no_login_item_counts_as_removed(place):
    path = place.file("My App/run")
    expect(place.said("login-item", "remove-global", path),
           f"No login item of all users starts {path}\n", "the text")
    expect_content(path, b"content")


@covers("RemoveGlobalLoginItemForAppWithPath", area="login-items")
def the_login_item_of_an_application_goes_and_others_stay(place):
    folder = "/etc/xdg/autostart"
    if place.host.name != "Linux":
        raise NotApplicable("no tool of this host adds a login item of all users")
    place.host.require_root(f"to write in {folder}")
    app = place.file("My App/run")
    os.chmod(app, 0o755)
    entries = [f"{folder}/{_label(what)}.desktop" for what in ("a", "b")]
    made = not os.path.isdir(folder)
    os.makedirs(folder, exist_ok=True)
    try:
        for entry, program in zip(entries, (app, "/bin/sh")):
            with open(entry, "x", encoding="utf-8") as file:
                file.write(f'[Desktop Entry]\nType=Application\nExec="{program}" %U\n')
        place.done("login-item", "remove-global", app)
        expect([os.path.exists(entry) for entry in entries], [False, True], "what is left")
    finally:
        for entry in filter(os.path.exists, entries):
            os.unlink(entry)
        if made:
            os.removedirs(folder)


DATABASE = "/private/var/db/launchd.db/com.apple.launchd.peruser.0/overrides.plist"


@covers("RemoveSMLoginItem")
def without_a_database_no_login_item_is_registered(place):
    if os.path.exists(DATABASE):
        raise NotApplicable(f"there is {DATABASE}, which the request would rewrite")
    place.done("login-item", "remove-sm", _label("absent"))
    expect_gone(DATABASE)


@covers("RemoveSMLoginItem", area="login-items")
def a_registered_login_item_goes_and_others_stay(place):
    place.host.require_root(f"to write {DATABASE}")
    item, other = _label("item"), _label("other")
    marks = "_com.apple.SMLoginItemBookmarks"
    planted = {item: {"Disabled": False}, other: {"Disabled": True},
               marks: {item: b"bookmark", other: b"x"}}
    with _Replaced(DATABASE, plistlib.dumps(planted, fmt=plistlib.FMT_BINARY)):
        place.done("login-item", "remove-sm", item)
        with open(DATABASE, "rb") as file:
            content = file.read()
        expect(plistlib.loads(content), {other: {"Disabled": True}, marks: {other: b"x"}},
               "the database")
        expect_true(content.startswith(b"<?xml"), "the database is XML")


class _Replaced:
    """Puts another file at a path of the system, with the folders above it, and
    the former state back."""

    def __init__(self, path, content):
        self._path, self._content = path, content

    def __enter__(self):
        self._made = []
        folder = os.path.dirname(self._path)
        while not os.path.isdir(folder):
            self._made.append(folder)
            folder = os.path.dirname(folder)
        os.makedirs(os.path.dirname(self._path), exist_ok=True)
        self._kept = None
        if os.path.lexists(self._path):
            self._kept = f"{self._path}.keepwell-conformance"
            os.rename(self._path, self._kept)
        with open(self._path, "xb") as file:
            file.write(self._content)

    def __exit__(self, *_):
        if os.path.lexists(self._path):
            os.unlink(self._path)
        if self._kept:
            os.rename(self._kept, self._path)
        for folder in self._made:
            os.rmdir(folder)


# System software.
@covers("RemoveKextAtPath")
def an_extension_that_is_not_loaded_is_deleted(place):
    place.host.require_tool("/sbin/kextunload")
    for form in (plistlib.FMT_XML, plistlib.FMT_BINARY):
        place.file("Example.kext/Contents/MacOS/Example")
        place.file("Example.kext/Contents/Info.plist",
                   plistlib.dumps({"CFBundleIdentifier": _label("kext")}, fmt=form))
        place.done("kext", "remove", place.path("Example.kext"))
        expect_gone(place.path("Example.kext"))


@covers("RemoveKextAtPath")
def an_extension_without_an_identifier_stays(place):
    place.host.require_tool("/sbin/kextunload")
    path = place.file("Example.kext/Contents/MacOS/Example")
    for info in (None, b"garbage", plistlib.dumps({"CFBundleName": "x"})):
        if info is not None:
            place.file("Example.kext/Contents/Info.plist", info)
        expect_no_reason(place.refused("kext", "remove", place.path("Example.kext")))
        expect_content(path, b"content")
    expect_no_reason(place.refused("kext", "remove", place.path("missing.kext")))


PKGUTIL = "/usr/sbin/pkgutil"


@covers("RemovePackageWithID")
def an_unknown_package_is_not_forgotten(place):
    place.host.require_tool(PKGUTIL)
    expect_no_reason(place.refused("package", "forget", _label("unknown")))


@covers("RemovePackageWithID", area="packages")
def a_packages_receipt_is_forgotten(place):
    for tool in (PKGUTIL, "/usr/bin/pkgbuild", "/usr/sbin/installer"):
        place.host.require_tool(tool)
    place.host.require_root("to install a package")
    identifier, package = _label("package"), place.path("empty.pkg")
    for argv in (["/usr/bin/pkgbuild", "--nopayload", "--identifier", identifier, "--version", "1",
                  package],
                 ["/usr/sbin/installer", "-pkg", package, "-target", "/"]):
        made = subprocess.run(argv, check=False, capture_output=True)
        if made.returncode != 0:
            raise NotApplicable(f"{argv[0]} fails: {made.stderr.decode(errors='replace').strip()}")
    expect(_has_receipt(identifier), True, "that the package is installed")
    place.done("package", "forget", identifier)
    expect(_has_receipt(identifier), False, "that the package is known")


def _has_receipt(identifier):
    return subprocess.run([PKGUTIL, "--pkg-info", identifier], check=False,
                          capture_output=True).returncode == 0


# Universal binaries.
DITTO = "/usr/bin/ditto"
SLIM = "SlimBinaryWithPath"
CPU_TYPES = {"x86_64": (0x01000007, 3), "arm64": (0x0100000C, 0)}
ALIGNMENT = 14  # of a slice, as a power of two


def thin_binary(architecture):
    """The least program of one architecture: a header of Mach-O without commands,
    and bytes behind it that differ between the architectures."""
    kind, subkind = CPU_TYPES[architecture]
    executable, no_undefined_symbols = 2, 1
    header = struct.pack("<8I", 0xFEEDFACF, kind, subkind, executable, 0, 0,
                         no_undefined_symbols, 0)
    return header + architecture.encode() * 1000


def universal_binary(architectures):
    slices = [thin_binary(each) for each in architectures]
    table = struct.pack(">2I", 0xCAFEBABE, len(slices))
    body = b""
    place = 1 << ALIGNMENT
    for architecture, content in zip(architectures, slices):
        table += struct.pack(">5I", *CPU_TYPES[architecture], place, len(content), ALIGNMENT)
        body = body.ljust(place - (1 << ALIGNMENT), b"\0") + content
        place += -(-len(content) // (1 << ALIGNMENT)) * (1 << ALIGNMENT)
    return table.ljust(1 << ALIGNMENT, b"\0") + body


@covers(SLIM)
def a_universal_binary_keeps_the_named_architecture(place):
    place.host.require_tool(DITTO)
    for architecture in CPU_TYPES:
        path = place.file(f"program {architecture}", universal_binary(list(CPU_TYPES)))
        os.chmod(path, 0o755)
        place.done("slim", path, "--arch", architecture)
        expect_content(path, thin_binary(architecture))
        expect(os.stat(path).st_mode & 0o777, 0o755, "the mode afterwards")
        expect_gone(path + ".ditto")


@covers(SLIM)
def a_binary_that_ditto_refuses_stays(place):
    place.host.require_tool(DITTO)
    content = universal_binary(list(CPU_TYPES))
    path = place.file("program", content)
    expect_no_reason(place.refused("slim", path, "--no-option-of-ditto"))
    expect_content(path, content)


@covers(SLIM)
def a_missing_binary_is_nothing_to_slim(place):
    path = place.path("missing")
    expect(place.said("slim", path, "--arch", "x86_64"), f"Slimmed {path}\n", "the text")
    expect_gone(path, path + ".ditto")


# The configuration of launchd.
CONFIGURATION = "/etc/launchd.conf"
SET = "setenv DYLD_INSERT_LIBRARIES"


@covers("RemoveLibraryFromLauchdConf", area="launchd-conf")
def a_library_goes_from_the_configuration_with_a_backup(place):
    place.host.require_root(f"to write {CONFIGURATION}")
    backup = f"{CONFIGURATION}.prev"
    for before, after in (
            (f"limit maxfiles 1024\n{SET} /a:/x\n\nend", f'limit maxfiles 1024\n{SET} "/a"\nend\n'),
            (f"{SET} /x\n", ""), (f'{SET} "/a:/b"\n', f"{SET} /a:/b\n")):
        with _Replaced(backup, b"former"), _Replaced(CONFIGURATION, before.encode()):
            place.done("launchd-conf", "remove-library", "/x")
            expect_content(CONFIGURATION, after.encode())
            expect_content(backup, before.encode())
