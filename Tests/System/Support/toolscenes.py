"""Scenes of the requests that run the system's tools, and of those that answer
without any effect. Stand-ins at the tools' paths record their arguments; these
records must agree with the answer as well."""
import os
import plistlib

from . import trees
from .root import DATA
from .scenes import OF_THE_BUS, READING, Removal, Scene

LAUNCHCTL = "/bin/launchctl"
JOB = "org.example.job"
# The calls whose failure keeps a tool from being started. It then counts as
# done, as a missing one does.
LAUNCHING = {"access", "faccessat", "pipe2", "dup", "posix_spawn", "spawn_actions",
             "pthread_create"}
SEEING = {"access", "faccessat"}
# The calls that wait for a running tool.
WAITING = {"waitpid", "nanosleep", "pidfd_open", "read-pipe", "write-pipe"}


# The tools print much, so that reading it takes allocations of its own.
WORDS = "more words\n" * 500
DICTIONARY = "{\\n" + '\\t"Key" = "value";\\n' * 300 + "};\\n"


def without_one(lines):
    return [lines[:at] + lines[at + 1:] for at in range(len(lines))]


class ToolScene(Scene):
    """Runs tools one after the other; their statuses are the answer."""
    tools = {}  # the stand-in of each tool
    always = False  # whether the answer is a yes for any status

    def prepare(self):
        for path, options in self.tools.items():
            self.root.stand_in(path, **options)
        self.root.forget_calls()

    def lines(self):
        """The runs of tools when nothing fails."""
        raise NotImplementedError

    def runs(self, failed):
        """All possible runs of tools when a call of that name failed."""
        return [self.lines(), *(without_one(self.lines()) if failed in LAUNCHING else [])]

    def complaint(self, flag, failed=None):
        made = self.root.calls()
        if made not in self.runs(failed):
            return f"runs of tools: {made}"
        return self.complaint_of_answer(flag, made, failed)

    def complaint_of_answer(self, flag, made, failed):
        statuses = [self.tools[path].get("status", 0) for path, *_ in made]
        expected = self.always or not any(statuses)
        return "" if flag is expected else f"{flag} after {made}"


class ForgetPackage(ToolScene):
    member = "RemovePackageWithID"
    arguments = ("org.example.package",)
    tool = "/usr/sbin/pkgutil"
    tools = {tool: {}}

    def lines(self):
        return [[self.tool, "--forget", *self.arguments]]


class UnknownPackage(ForgetPackage):
    usual = False
    tools = {ForgetPackage.tool: {"status": 1}}


class StartItem(ToolScene):
    member = "StartStartupItem"
    arguments = ("item",)
    tools = {"/sbin/SystemStarter": {"status": 1, "stdout": "no\n"}}
    always = True
    words = ("start", '"item"')

    def lines(self):
        tool, = self.tools
        return [[tool, *self.words]]


class StopItem(StartItem):
    member = "StopStartupItem"
    words = ("stop", '"item"')


class Periodic(StartItem):
    member = "RunPeriodicScript"
    arguments = words = ("daily",)
    tools = {"/usr/sbin/periodic": {"status": 1}}


class Reindex(StartItem):
    member = "StartSpotlightReindex"
    arguments = ()
    tools = {"/usr/bin/mdutil": {"status": 1}}
    words = ("-E", "/")


class FlushNames(ToolScene):
    member = "FlushDNS"
    tools = {"/usr/sbin/dscacheutil": {}, "/usr/bin/killall": {}}

    def lines(self):
        first, second = self.tools
        return [[first, "-flushcache"], [second, "-HUP", "mDNSResponder"]]


class FlushHalf(FlushNames):
    usual = False
    tools = {"/usr/sbin/dscacheutil": {"status": 1}, "/usr/bin/killall": {}}


class EraseLogs(ToolScene):
    """The answer holds the tool's output for the text on its standard input."""
    member = "RemoveDiagnosticLogs"
    tools = {"/usr/bin/log": {"script": "dd bs=16 count=1 2>/dev/null", "stderr": WORDS,
                              "status": 3}}
    usual = ["y", 3, WORDS, ("", 0, {})]

    def answer(self, client):
        return client.call(self.member)

    def lines(self):
        return [["/usr/bin/log", "erase", "--all"]]

    def complaint_of_answer(self, flag, made, failed):
        if flag == self.usual:
            return "" if made else "an answer, but no tool"
        *others, (domain, code, info) = flag
        if (others, domain, code) != (["", -1, ""], "org.keepwell.taskRunner", 0) or not info:
            return f"{flag} after {made}"
        # A tool that does not seem to be a program gets an answer before the
        # attempt.
        return "" if failed in LAUNCHING and (made == [] or failed in SEEING) else f"{flag}"


class EraseStore(ToolScene):
    member = "RemoveASL"
    tools = {LAUNCHCTL: {}}
    store = "/var/log/asl"

    def prepare(self):
        super().prepare()
        trees.clear(self.host(self.store))
        self.root.write(f"{self.store}/one", "x")
        self.root.write(f"{self.store}/folder/two", "x")

    def lines(self):
        return [[LAUNCHCTL, verb, f"com.apple.{name}"] for verb in ("stop", "start")
                for name in ("syslogd", "aslmanager")]

    def complaint_of_answer(self, flag, made, failed):
        left = self.root.listdir(self.store)
        # A failure to list or remove an item is only logged.
        if left and (failed is None or failed in LAUNCHING - {"dup"} | WAITING | OF_THE_BUS):
            return f"{left} is left after {failed}"
        return super().complaint_of_answer(flag, made, failed)


class RepairPermissions(ToolScene):
    """When the tool does not start, the answer is an error of the bus."""
    member = "RepairPermissions"
    scratch = "/run/keepwell-test/pid"
    tool = "/usr/libexec/repair_packages"
    tools = {tool: {"script": f"echo $$ > {scratch}", "stdout": "one\ntwo\n", "status": 1}}

    def answer(self, client):
        flag, self.process, text = client.call(self.member)
        return flag if text == "" else text

    def lines(self):
        return [[self.tool, "--output-format", "1", "--repair", "--standard-pkgs", "--volume", "/"]]

    def complaint_of_answer(self, flag, made, failed):
        if flag is not bool(made):
            return f"{flag} after {made}"
        started = int(self.root.read(self.scratch)) if made else self.process
        return "" if self.process == started else f"process {self.process}, not {started}"


def launchctl(listed="", unloaded="", loading=0):
    """A stand-in that knows the job if it lists something, and prints and exits
    as given when it unloads and loads."""
    return {LAUNCHCTL: {"script": "case $1 in\n"
                                  f"list) printf '{listed}' ;;\n"
                                  f"unload) printf '{unloaded}' ;;\n"
                                  f"load) exit {loading} ;;\nesac"}}


class JobScene(ToolScene):
    """With a job's list. An unreadable list has no label, and a job without a
    label is not loaded. A job is not loaded either when launchctl cannot be
    asked about it. A lack of the agent's own resources is an error instead, after
    which nothing runs."""
    plist = f"{DATA}/{JOB}.plist"
    arguments = (plist,)
    words = ()
    unread = unstarted = ()  # the arguments of launchctl that may be left, then
    uncounted = None  # and when a run whose failure does not count lacks a resource

    def prepare(self):
        super().prepare()
        self.root.write(self.plist, plistlib.dumps({"Label": JOB}))

    def lines(self):
        lines = {"list": ["list", JOB], "stop": ["stop", JOB], "load": ["load", "-w", self.plist],
                 "unload": ["unload", "-w", self.plist]}
        return [[LAUNCHCTL, *lines[word]] for word in self.words]

    def unfinished(self):
        return [self.lines()[:count] for count in range(len(self.lines()))]

    def runs(self, failed):
        if self.lack:
            return [self.lines(), *self.unfinished()]
        others = [*(self.unread if failed in READING else ()),
                  *(self.unstarted if failed in LAUNCHING else ())]
        return [self.lines()] + [self.lines_of(words) for words in others]

    def lines_of(self, words):
        lines = self.lines()
        return [next(line for line in lines if line[1] == word) for word in words]

    def complaint_of_answer(self, flag, made, failed):
        words = [line[1] for line in made]
        if self.lack and made in self.unfinished():
            good = not flag or words == self.uncounted
            return "" if good else f"{flag} after {made}, for a lack"
        expected = self.answer_after(words)
        return "" if flag is expected else f"{flag} after {made}"

    def answer_after(self, words):
        """The expected answer after launchctl ran with these arguments."""
        return True


class DisableJob(JobScene):
    member = "DisableLaunchdAgentAtPath"
    tools = launchctl(listed=DICTIONARY)
    words = ("list", "unload", "stop")
    unread = ((), ("list", "unload"))
    unstarted = ((), ("list", "stop"), ("list", "unload"))
    uncounted = ["list", "unload"]


class DisableAbsentJob(JobScene):
    member = "DisableLaunchdAgentAtPath"
    tools = launchctl()
    words = ("list",)
    unread = unstarted = ((),)


class DisableStubbornJob(JobScene):
    """launchctl prints something, which is a failure."""
    member = "DisableLaunchdAgentAtPath"
    tools = launchctl(listed=DICTIONARY, unloaded=WORDS)
    usual = False
    words = ("list", "unload")
    unread = ((),)

    def runs(self, failed):
        stops = [self.lines()[0], [LAUNCHCTL, "stop", JOB]]
        unstarted = [[], stops] if failed in LAUNCHING and not self.lack else []
        return super().runs(failed) + unstarted

    def answer_after(self, words):
        return "unload" not in words


class EnableJob(JobScene):
    member = "EnableLaunchdAgentAtPath"
    tools = launchctl()
    words = ("list", "list", "load")
    unread = (("list", "load"),)
    unstarted = (("list", "load"), ("list", "list"))
    uncounted = ["list", "list"]


class EnableBadJob(EnableJob):
    tools = launchctl(loading=1)
    usual = False

    def answer_after(self, words):
        return "load" not in words


class EnableLoadedJob(JobScene):
    """The agent asks again after a failure of the first question."""
    member = "EnableLaunchdAgentAtPath"
    tools = launchctl(listed=DICTIONARY)
    words = ("list",)


class RemoveJob(JobScene):
    member = "RemoveLaunchdAgentAtPath"
    tools = launchctl()
    tool = f"/Library/PrivilegedHelperTools/{JOB}"

    def prepare(self):
        super().prepare()
        self.root.write(self.tool, "tool")

    def lines(self):
        return [[LAUNCHCTL, "unload", self.plist]]

    def runs(self, failed):
        return [self.lines(), *([[]] if failed in LAUNCHING else [])]

    def complaint_of_answer(self, flag, made, failed):
        is_there, has_tool = self.root.exists(self.plist), self.root.exists(self.tool)
        if self.lack and not made and not (is_there and has_tool):
            return f"removed without an unload, for a lack: {flag}"
        # The list goes after its tool, unless the agent could not see the tool.
        if flag is is_there or (has_tool and not is_there and failed != "stat"):
            return f"{flag}, but the list is there: {is_there}, the tool: {has_tool}"
        return ""


class RemoveKext(Removal):
    """An extension whose identifier cannot be read stays as it is; one that
    cannot be unloaded still goes."""
    member = "RemoveKextAtPath"
    line = ["/sbin/kextunload", "-p", "-b", "org.example.kext"]

    def furnish(self, item):
        os.mkdir(f"{item}/Contents")
        with open(f"{item}/Contents/Info.plist", "wb") as file:
            plistlib.dump({"CFBundleIdentifier": self.line[-1]}, file)

    def prepare(self):
        super().prepare()
        self.root.stand_in(self.line[0], status=1)
        self.root.forget_calls()

    def complaint(self, flag, failed=None):
        made = self.root.calls()
        if made == [] and failed in READING and (flag, self.state(self.item)) == (False, "whole"):
            return ""
        if made != [self.line] and not (made == [] and failed in LAUNCHING):
            return f"runs of tools: {made}"
        return super().complaint(flag, failed)


class SlimBinary(ToolScene):
    """The binary is unchanged, or slimmed; or beside its place."""
    member = "SlimBinaryWithPath"
    signature = "sas"
    path = f"{DATA}/binary"
    copy = f"{path}.ditto"
    arguments = (path, ["--arch", "arm64"])
    tools = {"/usr/bin/ditto": {"script": 'printf slim > "$4"'}}

    def prepare(self):
        super().prepare()
        trees.clear(self.host(self.copy))
        self.root.write(self.path, "whole", 0o755)

    def lines(self):
        return [["/usr/bin/ditto", *self.arguments[1], self.path, self.copy]]

    def runs(self, failed):
        return super().runs(failed) + ([[]] if failed == "stat" else [])

    def complaint_of_answer(self, flag, made, failed):
        there = [self.root.read(path).decode() if self.root.exists(path) else ""
                 for path in (self.path, self.copy)]
        if made:
            good = [["slim", ""]] if flag else [["whole", "slim"], ["", "slim"]]
        else:  # the agent cannot see it, and so has nothing to do
            good = [["whole", ""]] if flag == (failed == "stat") else []
        return "" if there in good else f"{flag}, but {there} after {made}"


class GlobalItems(Scene):
    """Two entries of the program go, by its path and by its name, and one
    stays. The removal of the last one decides."""
    member = "RemoveGlobalLoginItemForAppWithPath"
    folder = "/etc/xdg/autostart"
    app = f"{DATA}/app"
    arguments = (app,)
    entries = {"a.desktop": f"Exec={app}", "b.desktop": "Exec=/bin/sh",
               "c.desktop": f"Name={app}\nExec=/opt/gone"}

    def prepare(self):
        self.root.empty(self.folder)
        self.root.write(self.app, "program", 0o755)
        for name, text in self.entries.items():
            self.root.write(f"{self.folder}/{name}", f"[Desktop Entry]\n{text}\n")

    def complaint(self, flag, failed=None):
        left = self.root.listdir(self.folder)
        stays = ["b.desktop"]
        good = [(stays, True)]
        if self.lack:
            return "" if (left, flag) in [*good, (list(self.entries), False)] else f"{flag}, {left}"
        if failed == "unlink":
            good = [(["a.desktop"] + stays, True), (stays + ["c.desktop"], False)]
        # A list that the host cannot give has no items, and the answer is yes.
        if failed in ("open", "statx", "getdents64"):  # with which folders are listed
            good.append((list(self.entries), True))
        if failed in READING:
            good += [(["a.desktop"] + stays, True), (stays + ["c.desktop"], True)]
        return "" if (left, flag) in good else f"{flag}, but {left}"


class Echo(Scene):
    member = "Echo"
    arguments = ("text",)
    usual = "text"

    def complaint(self, flag, failed=None):
        return "" if flag == self.usual else f"{flag!r}"


ALL = (ForgetPackage, UnknownPackage, StartItem, StopItem, Periodic, Reindex, FlushNames,
       FlushHalf, EraseLogs, EraseStore, RepairPermissions, DisableJob, DisableAbsentJob,
       DisableStubbornJob, EnableJob, EnableBadJob, EnableLoadedJob, RemoveJob, RemoveKext,
       SlimBinary, GlobalItems, Echo)
