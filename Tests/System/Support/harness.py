"""The command line of every system test, and the ways to be skipped with a
reason."""
import argparse
import os
import re
import shutil
import sys
import unittest

from . import machine

SKIPPED = 77
PATH = "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"
_SOURCE = os.path.abspath(f"{__file__}/../../../..")
_INSIDE = "KEEPWELL_TEST_NAMESPACE"
# The variables of the caller's environment for the tests and the sanitizers;
# all others are dropped.
_KEPT = re.compile(r"(KEEPWELL_\w+|[A-Z]+SAN_OPTIONS)\Z")


def skip(reason):
    """Ends the test, or the class whose set-up calls it, or all of them."""
    raise unittest.SkipTest(reason)


def end_skipped(reason):
    print("skipped:", reason)
    sys.exit(SKIPPED)


def tell_skipped(tests):
    """Prints the skipped tests of a script whose other tests ran, which ctest
    counts as passed; for Scripts/run-tests."""
    if path := os.environ.get("KEEPWELL_SKIPPED"):
        with open(path, "a", encoding="utf-8") as file:
            file.writelines(f"left out: {test}: {reason}\n" for test, reason in tests)


def require_tools(*names):
    missing = [name for name in names if not shutil.which(name)]
    if missing:
        skip("not installed: " + ", ".join(missing))


# Call these within main()'s test cases.
def is_sanitized():
    """Whether the programs are built with a sanitizer."""
    return _is_configured(r"KEEPWELL_SANITIZE:\w+=.")


def is_instrumented():
    """Whether they are built with a sanitizer or with counters, which make them
    slow and take memory of their own."""
    return is_sanitized() or _is_configured("KEEPWELL_COVERAGE:BOOL=ON")


def _is_configured(setting):
    with open(f"{build_folder}/CMakeCache.txt", encoding="utf-8") as file:
        return any(re.match(setting, line) for line in file)


def skip_if_sanitized(reason):
    """Skips a test that a sanitizer's build cannot do."""
    if is_sanitized():
        skip("built with a sanitizer: " + reason)


def make_environment():
    """Makes the same environment on every machine, for the test and its
    programs."""
    kept = {name: value for name, value in os.environ.items() if _KEPT.match(name)}
    os.environ.clear()
    os.environ.update(kept, PATH=PATH, HOME="/nonexistent", LANG="C.UTF-8")


def enter_namespace():
    """Continues in mount and process namespaces of its own, so that no mount
    and no process of the test outlives it."""
    if os.environ.get(_INSIDE):
        machine.replace_tmp([_SOURCE, build_folder])
        return
    if os.geteuid() != 0:
        skip("needs root, for mounts and file flags")
    require_tools("unshare", "mount", "chroot", "chattr", "mkfs.ext4", "dbus-daemon", "busctl")
    os.environ[_INSIDE] = "1"
    os.execvp("unshare", ["unshare", "--mount", "--pid", "--fork", "--kill-child", "--mount-proc",
                          "--propagation", "private", sys.executable, *sys.argv])


def main(needs_root=True):
    """Runs the test cases of the calling script."""
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", required=True, help="the build folder, with keepwell-agent")
    parser.add_argument("--unit", help="a systemd unit within whose limits the agent shall run")
    parser.add_argument("--broker", action="store_true", help="dbus-broker in place of dbus-daemon")
    parser.add_argument("tests", nargs="*", help="names of single tests")
    arguments = parser.parse_args()
    # The same module under the name by which the tests import it.
    shared = sys.modules["Support.harness"]
    shared.build_folder = os.path.abspath(arguments.build)
    shared.broker = arguments.broker
    make_environment()
    try:
        if needs_root:
            enter_namespace()
        else:
            require_tools("dbus-daemon", "busctl")
            if os.geteuid() == 0:  # other users can do no harm
                enter_namespace()
                machine.mask()
        os.environ["LSAN_OPTIONS"] = (f"suppressions={shared.build_folder}/lsan-suppressions:"
                                      "print_suppressions=0")
        if shared.broker:
            require_tools("dbus-broker", "dbus-broker-launch", "systemd-socket-activate")
        shared.unit = arguments.unit and os.path.abspath(arguments.unit)
        if shared.unit:
            shared.skip_if_sanitized("it makes system calls that the unit refuses")
    except unittest.SkipTest as reason:
        end_skipped(reason)
    result = unittest.main(argv=[sys.argv[0], *arguments.tests], verbosity=2, exit=False).result
    failed = not result.wasSuccessful()
    for path in machine.tmp_damage():
        print(f"not as it was, though no request led there: {path}", flush=True)
        failed = True
    # The tests of a class that is skipped as a whole do not count as run.
    skipped = [test for test, _ in result.skipped if isinstance(test, unittest.TestCase)]
    if not failed and result.skipped and len(skipped) == result.testsRun:
        end_skipped(result.skipped[0][1])
    if result.skipped:
        tell_skipped(result.skipped)
    sys.exit(1 if failed else 0)


build_folder = None
unit = None
broker = False  # whether roots have dbus-broker for their bus
