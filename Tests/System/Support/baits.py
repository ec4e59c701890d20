"""The names of the items that an attacker exchanges, and the places outside of
the root to which a link among them would lead a process that follows it: during
tests the machine's own /tmp has an item of each such name (machine.py)."""
OUTSIDE, HARBOUR = "/tmp/outside", "/tmp/harbour"
ITEM, BESIDE = "/tmp/item", "/tmp/out-item"
FRESH, LEFT = "/tmp/fresh", "/tmp/left"
BERTH = f"{HARBOUR}/berth"
BRANCHES = 6
# The folders of a branch, and the target of the link beside each. The names are
# those of the folder outside, so that a walk that is led there finds its way.
LEVELS = (("", OUTSIDE), ("/inner", f"{OUTSIDE}/inner"),
          ("/inner/deeper", f"{OUTSIDE}/inner/deeper"))
# A single folder around everything that changes places, or none.
TOPS = ("", "/tree")
# Names of other tests and of their items outside.
_OTHERS = ("/tmp/device", "/tmp/link", "/tmp/job-link", "/tmp/moved", f"{BERTH}/d",
           f"{OUTSIDE}/inner/link", f"{OUTSIDE}/inner/fifo")
_OTHER_FILES = ("/tmp/job.plist", f"{OUTSIDE}/inner/two", f"{OUTSIDE}/inner/deeper/three",
                f"{OUTSIDE}/locked", f"{OUTSIDE}/inner/locked", "/tmp/.Trash-0/files/item",
                "/tmp/.Trash-0/files/x", "/tmp/.Trash-0/info/x.trashinfo")


def beside(path):
    """The item that changes places with a folder or file of a branch."""
    parent, _, name = path.rpartition("/")
    return f"{parent}/out-{name}"


def back(item, top):
    """The item that changes places with the berth."""
    return f"{item}{top}/back/inner"


def exchanged(item, top):
    """All items that change places with a link, and the target of the link."""
    for branch in range(BRANCHES):
        for level, target in LEVELS:
            yield f"{item}{top}/{branch}{level}", target
            yield f"{item}{top}/{branch}{level}/one", f"{OUTSIDE}/one"


def pairs(top):
    """All pairs that change places, the upper ones first."""
    found = [ITEM, BESIDE, back(ITEM, top), BERTH]
    for path, _ in exchanged(ITEM, top):
        found += [path, beside(path)]
    return found


def led_astray():
    """The place of each for a process that follows the links above it."""
    places = set()
    for top in TOPS:
        for link, target in [(ITEM, OUTSIDE), *exchanged(ITEM, top)]:
            places |= {target + path.removeprefix(link) for path in pairs(top)
                       if path.startswith(f"{link}/")}
    return places


def files_and_folders():
    """The items that must be at these places, so that a process that is led
    there does harm."""
    paths = {path for top in TOPS for path in pairs(top)} | led_astray()
    files = {path for path in paths if path.endswith(("/one", "/out-one"))}
    return sorted(files.union(_OTHER_FILES)), sorted((paths - files).union(_OTHERS, (FRESH, LEFT)))
