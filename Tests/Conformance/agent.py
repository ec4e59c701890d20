"""Scenarios: the agent itself, and the tools that a host lacks."""
import os
import time

from .place import NO_ANSWER, REFUSED, expect, expect_true
from .suite import NotApplicable, covers

# The commands that need a tool or a file of the system, with harmless arguments:
# where all are missing, the command refuses before it asks the agent.
NEEDING = (
    (("launchd", "enable", "/nowhere"), ("/bin/launchctl",)),
    (("launchd", "disable", "/nowhere"), ("/bin/launchctl",)),
    (("launchd", "remove", "/nowhere"), ("/bin/launchctl",)),
    (("startup", "start", "nothing"), ("/sbin/SystemStarter",)),
    (("startup", "stop", "nothing"), ("/sbin/SystemStarter",)),
    (("kext", "remove", "/nowhere"), ("/sbin/kextunload",)),
    (("package", "forget", "org.keepwell.nothing"), ("/usr/sbin/pkgutil",)),
    (("launchd-conf", "remove-library", "/nowhere"), ("/etc/launchd.conf",)),
    (("maintenance", "erase-asl"), ("/var/log/asl",)),
    (("maintenance", "erase-unified-log"), ("/usr/bin/log",)),
    (("maintenance", "flush-dns"), ("/usr/sbin/dscacheutil", "/usr/sbin/discoveryutil")),
    (("maintenance", "periodic", "nothing"), ("/usr/sbin/periodic",)),
    (("maintenance", "reindex-spotlight"), ("/usr/bin/mdutil",)),
    (("maintenance", "repair-permissions"), ("/usr/libexec/repair_packages",)),
)


def _refuses(words, paths):
    def scenario(place):
        for path in paths:
            if os.path.exists(path):
                raise NotApplicable(f"there is {path}")
        error = place.refused(*words)
        expect(error["kind"], "unavailable", f"the kind of {error}")
        expect_true(paths[0] in error["description"], f"{error} names {paths[0]}")
    return scenario


for _words, _paths in NEEDING:
    _command = " ".join(_words[:2])
    covers("tools that this host lacks", name=f"{_command} is refused without its tool")(
        _refuses(_words, _paths))


@covers("Echo")
def echo_repeats_any_text(place):
    for text in ("hello", "", " ", "Grüße 日本語 😀", "line\nbreak\ttab", "-rf", "\"quoted\" \\",
                 "x" * 100_000, "Gru\u0308n"):
        expect(place.done("echo", "--", text)["text"], text, "the text")


@covers("Echo")
def echo_prints_the_text(place):
    expect(place.said("echo", "hello"), "hello\n", "the text")


@covers("PleaseTerminate", area="agent")
def the_agent_ends_and_the_next_request_starts_another(place):
    place.prepared("echo", "started")
    before = place.host.agents()
    expect_true(before, "the agent is among the running processes")
    expect(place.said("terminate"), "The agent has ended.\n", "the text")
    end = time.monotonic() + 5
    while before & place.host.agents() and time.monotonic() < end:
        time.sleep(0.05)
    expect(before & place.host.agents(), set(), "the processes of the former agent")
    expect_true(place.run("echo", "again").status != NO_ANSWER, "the next agent answers")
    expect_true(place.host.agents(), "another agent is running")


@covers("errors of use")
def a_bus_that_is_not_there_is_no_answer(place):
    if place.host.name != "Linux":
        raise NotApplicable("the agent is reached by one name alone on this host")
    error = place.objects("--bus", f"unix:path={place.path('no bus')}", "echo", "x",
                          status=NO_ANSWER)[-1]["error"]
    expect(error["kind"], "unreachable", "the kind")


@covers("errors of use")
def a_refusal_is_told_on_standard_error_alone(place):
    answer = place.run("shred", place.path("missing"))
    expect((answer.status, answer.text), (REFUSED, ""), "status and output")
    expect_true(answer.errors.startswith("keepwell: "), f"{answer.errors!r} begins with the name")
