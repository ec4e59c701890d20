"""Scenarios: sizes of items, by the agent and by the command itself; search and
inspection."""
import os
import subprocess

from .files import make_odd_items
from .place import DONE, REFUSED, bytes_of, expect, expect_true
from .suite import Failed, NotApplicable, covers

SIZE, FIND, INSPECT = "SizeOfItemAtPath", "keepwell find", "keepwell inspect"


def _allocated(path):
    return os.lstat(path).st_blocks * 512


def allocated_as_the_agent_counts(path):
    """Each folder twice, everything else once for each name."""
    total = _allocated(path)
    if os.path.isdir(path) and not os.path.islink(path):
        total += _allocated(path)
        total += sum(allocated_as_the_agent_counts(entry.path) for entry in os.scandir(path))
    return total


def in_whole_io_blocks(path, folders):
    """The lengths of files and links, each in whole I/O blocks, and nothing for
    folders; folders themselves are listed."""
    if os.path.isdir(path) and not os.path.islink(path):
        return sum(in_whole_io_blocks(entry.path, folders) for entry in os.scandir(path))
    status = os.lstat(path)
    block = status.st_blksize or 4096
    return -(-status.st_size // block) * block


def make_tree(place):
    """With everything that a size can go wrong about."""
    path = place.file("tree/file", b"x" * 5000)
    os.link(path, place.path("tree/second name"))
    place.file("tree/folder/.hidden", b"x")
    place.file("tree/folder/empty", b"")
    place.mkdir("tree/empty folder")
    place.file("large", bytes(1 << 20))
    place.link("../large", "tree/link")
    place.link(".", "tree/folder/loop")
    with open(place.path("tree/sparse"), "wb") as file:
        file.truncate(8 << 20)
        os.fsync(file.fileno())
    make_odd_items(place, "tree/odd")
    return place.path("tree")


def settled(place, path, *words):
    """The size told by the command and the size by the same rule here. The disk
    may give out blocks in between, so both are asked for until the disk rests."""
    for _ in range(5):
        before = allocated_as_the_agent_counts(path)
        told = place.done("size", *words, path)["bytes"]
        if allocated_as_the_agent_counts(path) == before:
            return told, before
        os.sync()
    raise NotApplicable("the disk does not come to rest")


@covers(SIZE)
def the_size_of_a_file_is_that_of_its_blocks(place):
    for name, content in (("file", b"x" * 5000), ("empty", b""), ("large", b"xy" * 999_999)):
        told, expected = settled(place, place.file(name, content))
        expect(told, expected, f"size of {name}")


@covers(SIZE)
def the_size_of_a_tree_counts_folders_twice_and_each_hard_link(place):
    told, expected = settled(place, make_tree(place))
    expect(told, expected, "size of the tree")


@covers(SIZE)
def the_size_of_a_link_is_its_own(place):
    place.file("large", bytes(1 << 20))
    told, expected = settled(place, place.link("large", "link"))
    expect(told, expected, "size of the link")


@covers(SIZE)
def the_size_of_a_large_folder(place):
    for number in range(2000):
        place.small_file(f"tree/{number % 40}/{number}")
    told, expected = settled(place, place.path("tree"))
    expect(told, expected, "size of the tree")


@covers(SIZE)
def the_size_of_a_folder_that_is_closed_to_the_user(place):
    place.file("closed/file", b"x" * 50_000)
    _, expected = settled(place, place.path("closed"), "--local")
    os.chmod(place.path("closed"), 0)
    try:
        expect(place.done("size", place.path("closed"))["bytes"], expected, "size when closed")
    finally:
        os.chmod(place.path("closed"), 0o700)


@covers(SIZE)
def the_size_of_a_missing_item_is_an_error_of_the_command(place):
    error = place.refused("size", place.path("missing"))
    expect(error["description"], "there is nothing there", "the description")


@covers(SIZE)
def sizes_of_several_items_in_order(place):
    paths = [place.file(str(number), b"x" * 5000) for number in range(5)]
    found = place.objects("size", *paths)
    expect([each["path"] for each in found], paths, "the paths")
    lines = place.said("size", "--bytes", *paths).splitlines()
    expect(lines, [f"{each['bytes']}\t{each['path']}" for each in found], "the lines")


@covers(SIZE)
def the_command_measures_as_the_agent_does(place):
    tree = make_tree(place)
    told, expected = settled(place, tree, "--local")
    expect(told, expected, "size by --local")
    expect(place.done("size", tree)["bytes"], expected, "size by the agent")


@covers(SIZE)
def bulk_and_logical_sizes_are_lengths_in_whole_io_blocks(place):
    tree = make_tree(place)
    bulk = in_whole_io_blocks(tree, folders=False)
    for words in (("--local", "--bulk"), ("--local", "--logical")):
        expect(place.done("size", *words, tree)["bytes"], bulk, f"size by {words}")


@covers(SIZE)
def sizes_counted_once_are_those_of_du(place):
    tree = make_tree(place)
    for _ in range(5):
        before = _kilobytes_by_du(tree)
        told = place.done("size", "--once", tree)["bytes"]
        if _kilobytes_by_du(tree) == before:
            expect(-(-told // 1024), before, "size by --once, in KB")
            return
        os.sync()
    raise NotApplicable("the disk does not come to rest")


def _kilobytes_by_du(path):
    done = subprocess.run(["du", "-sk", path], check=False, capture_output=True)
    if done.returncode != 0:
        raise Failed(f"du: {done.stderr!r}")
    return int(done.stdout.split()[0])


# Search.
@covers(FIND)
def a_search_finds_names_in_any_case_and_passes_over_numbered_copies(place):
    for name in ("foo", "Foo Agent", "foo 2", "foo3", "sub/xFOOx/inner", "other"):
        place.file(f"tree/{name}")
    tree = place.path("tree")
    found = place.done("find", "Foo", "--under", tree)["paths"]
    expect(sorted(found), sorted([f"{tree}/foo", f"{tree}/Foo Agent", f"{tree}/sub/xFOOx"]),
           "the items that were found")


@covers(FIND)
def a_raw_search_finds_folders_twice_and_files_once(place):
    place.file("tree/foo file")
    place.mkdir("tree/foo folder")
    tree = place.path("tree")
    found = place.done("find", "foo", "--raw", "--under", tree)["paths"]
    expect(sorted(found), [f"{tree}/foo file", f"{tree}/foo folder", f"{tree}/foo folder"],
           "the items that were found")


@covers(FIND)
def a_search_enters_no_excluded_folder_and_no_deeper_than_told(place):
    for name in ("foo x", "a/foo a", "b/foo b"):
        place.file(f"tree/{name}")
    tree = place.path("tree")
    for words, names in ((("--exclude", "b"), ["a/foo a", "foo x"]), (("--shallow",), ["foo x"])):
        found = place.done("find", "foo", *words, "--under", tree)["paths"]
        expect(sorted(found), [f"{tree}/{name}" for name in names], f"found with {words}")


@covers(FIND)
def a_search_under_a_missing_folder_is_refused(place):
    place.refused("find", "foo", "--under", place.path("missing"))


@covers(FIND)
def a_search_finds_items_with_odd_names(place):
    paths = make_odd_items(place, "tree")
    for path in paths:
        name = os.path.basename(path)
        found = place.objects("find", "--all", "--under", place.path("tree"), "--", name,
                              status=DONE)[-1]
        expect_true(path in found["paths"], f"{path!r} is found")


# Inspection.
@covers(INSPECT)
def inspection_tells_kind_times_and_original(place):
    path = place.file("file")
    os.utime(path, (1_000_000_000, 1_100_000_000))
    place.link("file", "link")
    place.mkdir("folder")
    for name, kind in (("file", "file"), ("link", "link"), ("folder", "folder")):
        expect(place.done("inspect", place.path(name))["kind"], kind, f"kind of {name}")
    expect(place.done("inspect", path)["modified"], 1_100_000_000, "the time of its change")
    expect(place.done("inspect", path)["original"], path, "the original of a file")
    place.refused("inspect", place.path("missing"))


@covers(INSPECT)
def inspection_tells_of_a_lock(place):
    path = place.file("locked")
    expect(place.done("inspect", path)["flags"], [], "the flags of an ordinary file")
    place.lock(path)
    expect_true(place.done("inspect", path)["flags"], "a locked file has a flag")


@covers(INSPECT)
def inspection_tells_of_the_hidden_flag_alone(place):
    path = place.file(".file")
    expect(place.done("inspect", path)["hidden"], False, "hidden, of a name with a dot")
    if not place.host.hiding_words:
        raise NotApplicable("no flag hides a file on this host")
    subprocess.run([*place.host.hiding_words, path], check=True)
    expect(place.done("inspect", path)["hidden"], True, "hidden, with the flag")


@covers(INSPECT)
def inspection_keeps_the_bytes_of_names_that_are_no_text(place):
    path = os.fsencode(place.folder) + b"/bad\xff"
    try:
        with open(path, "wb"):
            pass
    except OSError:
        raise NotApplicable("this volume holds only names of valid UTF-8") from None
    found = place.done("inspect", path)
    expect(bytes_of(found, "path"), path, "the path")
    error = place.objects("remove", path, status=2)[-1]["error"]
    expect(error["kind"], "argument", "the kind of the error of a removal")
    expect_true(os.path.lexists(path), "it is still there")


@covers("errors of use")
def of_several_outcomes_the_worst_is_the_exit_status(place):
    path = place.file("file")
    told = place.objects("size", path, place.path("missing"), status=REFUSED)
    expect([each["success"] for each in told], [True, False], "the outcomes")
