"""The list of scenarios, their run, and the table of results."""
import collections
import importlib
import json
import time
import traceback
import xml.etree.ElementTree as ElementTree

PASSED, FAILED, NOT_APPLICABLE = "passed", "failed", "not applicable"

# Subjects besides the operations: work of the command without the agent, or with
# any operation.
COMMAND_SUBJECTS = ("keepwell find", "keepwell inspect", "keepwell launchd info",
                    "cancellation", "several clients at once", "errors of use",
                    "tools that this host lacks")

# Operations that no scenario can judge through the command, with the reason.
WITHOUT_SCENARIO = {}

# The areas outside of its folder that a scenario may change when --allow names them.
AREAS = {
    "agent": "ends the agent, and with it its work for other clients",
    "trash": "moves an item to the Trash of the agent's user, and removes it there",
    "jobs": "loads, disables and removes a launchd job made for the purpose",
    "packages": "installs an empty package made for the purpose, and forgets its receipt",
    "login-items": "adds login items made for the purpose, and removes them",
    "launchd-conf": "edits /etc/launchd.conf, and puts it back",
    "caches": "flushes the caches of host names",
    "spotlight": "has the search index of the system's volume rebuilt",
    "permissions": "repairs the permissions of the system's packages",
    "logs": "erases the system's logs for good",
}

_INTERFACE = "org.keepwell.KWPrivilegedOperation"


class Failed(Exception):
    """Something is not as the contract has it."""


class NotApplicable(Exception):
    """This host, this user or these options leave nothing to judge."""


Scenario = collections.namedtuple("Scenario", "name subjects area run")
Result = collections.namedtuple("Result", "scenario outcome reason seconds")

SCENARIOS = []
_FILES = ("agent", "files", "removal", "sizes", "services", "maintenance")


def load():
    """Fills SCENARIOS."""
    for name in _FILES:
        importlib.import_module(f"{__package__}.{name}")


def covers(*subjects, area=None, name=None):
    """Makes a scenario of a function that gets a Place. Its name, read as a
    sentence, is that of the scenario."""
    def add(function):
        words = name or function.__name__.replace("_", " ")
        SCENARIOS.append(Scenario(words, subjects, area, function))
        return function
    return add


def operations(description):
    """The members of the interface in their order, from the file that describes it."""
    root = ElementTree.parse(description).getroot()
    return [method.get("name") for interface in root.findall("interface")
            if interface.get("name") == _INTERFACE for method in interface.findall("method")]


def complaints(members, scenarios=None):
    """The faults of the list of scenarios itself."""
    scenarios = SCENARIOS if scenarios is None else scenarios
    covered = {subject for scenario in scenarios for subject in scenario.subjects}
    for member in members:
        if member not in covered and member not in WITHOUT_SCENARIO:
            yield f"{member} has no scenario"
        if member in covered and member in WITHOUT_SCENARIO:
            yield f"{member} has a scenario, and a reason for having none"
    for subject in sorted(covered - set(members) - set(COMMAND_SUBJECTS)):
        yield f"{subject} is neither an operation nor another subject"
    names = collections.Counter(scenario.name for scenario in scenarios)
    for name in sorted(name for name, count in names.items() if count > 1):
        yield f"two scenarios are called {name!r}"
    for scenario in scenarios:
        if scenario.area and scenario.area not in AREAS:
            yield f"{scenario.name}: there is no area {scenario.area}"


def _outcome(scenario, make_place):
    try:
        with make_place() as place:
            scenario.run(place)
    except NotApplicable as reason:
        return NOT_APPLICABLE, str(reason)
    except Failed as reason:
        return FAILED, str(reason)
    except Exception:  # pylint: disable=broad-except
        return FAILED, traceback.format_exc()
    return PASSED, ""


def run(scenarios, allowed, make_place, tell):
    """Runs them in order, each in a place of its own, and tells of each."""
    results = []
    for scenario in scenarios:
        start = time.monotonic()
        if scenario.area and scenario.area not in allowed:
            outcome, reason = NOT_APPLICABLE, f"not allowed: --allow {scenario.area}"
        else:
            outcome, reason = _outcome(scenario, make_place)
        results.append(Result(scenario, outcome, reason, time.monotonic() - start))
        tell(results[-1])
    return results


def _counts(results, subject):
    own = [result for result in results if subject in result.scenario.subjects]
    return own, collections.Counter(result.outcome for result in own)


def _reasons(results):
    """Each reason once, with the number of its scenarios."""
    counted = collections.Counter(result.reason.splitlines()[-1] for result in results
                                  if result.outcome == NOT_APPLICABLE)
    return [f"{count}: {reason}" for reason, count in counted.items()]


def table(results, subjects):
    """The lines of the table: a line for each subject that has scenarios."""
    width = max(map(len, subjects))
    yield f"{'operation':{width}}  scenarios  passed  failed  not applicable"
    for subject in subjects:
        own, count = _counts(results, subject)
        if not own:
            continue
        reasons = "; ".join(_reasons(own))
        yield (f"{subject:{width}}  {len(own):9}  {count[PASSED]:6}  {count[FAILED]:6}  "
               f"{count[NOT_APPLICABLE]:14}  {reasons}").rstrip()


def summary(results, members):
    """One line: how many operations were judged, and the scenarios' results."""
    count = collections.Counter(result.outcome for result in results)
    judged = [member for member in members
              if set(_counts(results, member)[1]) & {PASSED, FAILED}]
    return (f"{len(judged)} of {len(members)} operations judged; {len(results)} scenarios: "
            f"{count[PASSED]} passed, {count[FAILED]} failed, "
            f"{count[NOT_APPLICABLE]} not applicable")


def report(results, host):
    """The same for programs."""
    return json.dumps({
        "host": host,
        "results": [{"scenario": result.scenario.name, "operations": result.scenario.subjects,
                     "outcome": result.outcome, "reason": result.reason,
                     "seconds": round(result.seconds, 3)} for result in results]}, indent=1)
