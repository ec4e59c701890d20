"""Scenarios: logs, caches, periodic scripts, the search index, permissions."""
import os
import subprocess

from .place import expect, expect_content, expect_true
from .suite import NotApplicable, covers

STORE = "/var/log/asl"


@covers("RunPeriodicScript")
def a_folder_of_scripts_is_run(place):
    place.host.require_tool("/usr/sbin/periodic")
    trace = place.path("trace")
    script = place.file("scripts/100.trace", f"#!/bin/sh\nid -u > '{trace}'\n".encode())
    os.chmod(script, 0o755)
    folder = place.path("scripts")
    expect(place.said("maintenance", "periodic", folder), f"Ran the periodic scripts {folder}\n",
           "the text")
    expect_content(trace, b"0\n")


@covers("RunPeriodicScript")
def unknown_scripts_count_as_run(place):
    place.host.require_tool("/usr/sbin/periodic")
    place.done("maintenance", "periodic", place.path("missing"))


@covers("FlushDNS", area="caches")
def the_caches_of_names_are_flushed(place):
    if not (place.host.has_tool("/usr/sbin/dscacheutil") or
            place.host.has_tool("/usr/sbin/discoveryutil")):
        raise NotApplicable("neither /usr/sbin/dscacheutil nor /usr/sbin/discoveryutil")
    expect(place.said("maintenance", "flush-dns"), "Flushed the caches of names\n", "the text")


@covers("StartSpotlightReindex", area="spotlight")
def a_new_search_index_is_asked_for(place):
    place.host.require_tool("/usr/bin/mdutil")
    expect(place.said("maintenance", "reindex-spotlight"), "Asked for a new search index\n",
           "the text")


@covers("RepairPermissions", area="permissions")
def permissions_are_repaired_with_the_tools_output(place):
    place.host.require_tool("/usr/libexec/repair_packages")
    *chunks, last = place.objects("maintenance", "repair-permissions")
    expect(last["success"], True, "success")
    expect_true(last["process"] > 0, f"{last} names the tool's process")
    expect_true(all("progress" in chunk for chunk in chunks), "the rest is progress")


@covers("RemoveASL", area="logs")
def the_system_log_store_is_emptied(place):
    if not os.path.isdir(STORE):
        raise NotApplicable(f"no {STORE}")
    place.host.require_root(f"to read {STORE} and to ask launchd itself")
    for label in ("com.apple.syslogd", "com.apple.aslmanager"):
        stopped = subprocess.run(["/bin/launchctl", "stop", label], check=False,
                                 capture_output=True)
        if stopped.returncode != 0:
            raise NotApplicable(f"launchctl itself cannot stop {label} on this host")
    planted = f"{STORE}/keepwell-conformance.{os.getpid()}.asl"
    with open(planted, "xb"):
        pass
    try:
        expect(place.said("maintenance", "erase-asl"), "Erased the system log store\n", "the text")
        expect_true(not os.path.exists(planted), "a log made for the purpose is gone")
        expect_true(os.path.isdir(STORE), "the folder stays")
    finally:
        if os.path.exists(planted):
            os.unlink(planted)


@covers("RemoveDiagnosticLogs", area="logs")
def the_unified_log_is_erased(place):
    place.host.require_tool("/usr/bin/log")
    told = place.done("maintenance", "erase-unified-log")
    expect(told.get("status", 0), 0, "the status of the tool")
