"""Scenarios: removal, shredding, the Trash, and stopping a removal half-way."""
import json
import os
import signal
import socket
import subprocess

from .files import make_odd_items
from .place import (REFUSED, SECONDS, expect, expect_content, expect_error, expect_gone,
                    expect_no_reason, expect_true)
from .suite import Failed, NotApplicable, covers

REMOVE, SHRED, TRASH = "RemoveItemAtPath", "SecurelyRemoveItemAtPath", "MoveToTrashItemAtPath"


# Removal.
@covers(REMOVE)
def removal_of_files_folders_and_links(place):
    place.file("tree/folder/file")
    place.mkdir("empty")
    place.file("outside/file")
    place.link("outside", "link to folder")
    place.link("nowhere", "dangling")
    os.mkfifo(place.path("fifo"))
    for name in ("tree", "empty", "link to folder", "dangling", "fifo"):
        place.done("remove", place.path(name))
        expect_gone(place.path(name))
    expect_content(place.path("outside/file"), b"content")


@covers(REMOVE)
def removal_of_a_socket(place):
    here = os.open(".", os.O_RDONLY)
    os.chdir(place.folder)  # the path of a socket must be short
    try:
        with socket.socket(socket.AF_UNIX) as made:
            made.bind("socket")
    finally:
        os.fchdir(here)
        os.close(here)
    place.done("remove", place.path("socket"))
    expect_gone(place.path("socket"))


@covers(REMOVE)
def removal_of_a_missing_item_is_done(place):
    expect(place.done("remove", place.path("missing"))["missing"], True, "missing")
    expect(place.said("remove", place.path("missing")),
           f"{place.path('missing')}: there was nothing there\n", "the text")


@covers(REMOVE)
def removal_of_one_name_leaves_the_other_names(place):
    os.link(place.file("file"), place.path("other name"))
    place.done("remove", place.path("file"))
    expect_content(place.path("other name"), b"content")
    expect_gone(place.path("file"))


@covers(REMOVE)
def removal_of_items_with_odd_names(place):
    paths = make_odd_items(place, "odd")
    place.done("remove", "--", *paths[::2])
    place.done("remove", "-0", text=b"".join(os.fsencode(path) + b"\0" for path in paths[1::2]))
    expect(os.listdir(place.path("odd")), [], "what is left")


@covers(REMOVE)
def removal_of_a_folder_that_holds_odd_names(place):
    make_odd_items(place, "odd")
    place.done("remove", place.path("odd"))
    expect_gone(place.path("odd"))


@covers(REMOVE)
def removal_of_names_that_are_no_text(place):
    place.mkdir("folder")
    try:
        with open(os.fsencode(place.path("folder")) + b"/bad\xff", "wb"):
            pass
    except OSError:
        raise NotApplicable("this volume holds only names of valid UTF-8") from None
    place.done("remove", place.path("folder"))
    expect_gone(place.path("folder"))


@covers(REMOVE)
def removal_tells_of_each_path_in_order(place):
    paths = [place.file(str(number)) for number in range(30)] + [place.path("missing")]
    told = place.objects("remove", *paths)
    expect([each["path"] for each in told], paths, "the paths")
    expect_gone(*paths)


@covers(REMOVE)
def removal_of_a_large_folder(place):
    for number in range(3000):
        place.small_file(f"tree/{number % 30}/{number}")
    place.done("remove", place.path("tree"))
    expect_gone(place.path("tree"))


@covers(REMOVE)
def removal_of_a_folder_that_is_deeper_than_a_path_may_be_long(place):
    folder = os.open(place.mkdir("deep"), os.O_RDONLY)
    try:
        for _ in range(300):
            os.mkdir("a folder in it", dir_fd=folder)
            below = os.open("a folder in it", os.O_RDONLY, dir_fd=folder)
            os.close(folder)
            folder = below
        os.close(os.open("file", os.O_CREAT | os.O_WRONLY, dir_fd=folder))
    finally:
        os.close(folder)
    place.done("remove", place.path("deep"))
    expect_gone(place.path("deep"))


@covers(REMOVE)
def removal_of_a_folder_that_is_closed_to_the_user(place):
    place.file("closed/file")
    os.chmod(place.path("closed"), 0)
    place.done("remove", place.path("closed"))
    expect_gone(place.path("closed"))


@covers(REMOVE)
def removal_of_an_item_of_root(place):
    if os.geteuid() == 0:
        raise NotApplicable("the user is root")
    place.prepared("move", place.file("file"), place.path("of root/file"))
    expect(os.stat(place.path("of root")).st_uid, 0, "the owner of the made folder")
    place.done("remove", place.path("of root"))
    expect_gone(place.path("of root"))


@covers(REMOVE)
def removal_of_a_locked_file(place):
    path = place.file("locked")
    place.lock(path)
    place.done("remove", path)
    expect_gone(path)


@covers(REMOVE)
def removal_from_a_locked_folder(place):
    path = place.file("folder/file")
    place.lock(place.path("folder"))
    place.done("remove", path)
    expect(os.listdir(place.path("folder")), [], "the folder")


@covers(REMOVE)
def removal_of_a_tree_that_is_locked_throughout(place):
    path = place.file("tree/inner/file")
    place.lock(path, place.path("tree/inner"), place.path("tree"))
    place.done("remove", place.path("tree"))
    expect_gone(place.path("tree"))


@covers(REMOVE)
def removal_of_a_link_to_a_locked_file_leaves_the_file(place):
    path = place.file("locked")
    place.lock(path)
    place.done("remove", place.link("locked", "link"))
    expect_gone(place.path("link"))
    expect_content(path, b"content")


@covers(REMOVE)
def removal_leaves_an_append_only_file_and_says_so(place):
    path = place.file("log")
    place.host.allow_appending_only(path)
    error = place.refused("remove", path)
    expect_error(error, 513, path)
    expect((error["underlying"]["domain"], error["underlying"]["code"]), ("NSPOSIXErrorDomain", 1),
           "the cause")
    expect_content(path, b"content")
    expect_true(place.said("remove", path, status=REFUSED).startswith(
        f"keepwell: {path} could not be removed: "), "the text of the failure")


@covers(REMOVE)
def removal_keeps_what_it_was_told_to_keep(place):
    for name in ("a.pdf", "b.txt", "folder/c.pdf", "folder/d.txt"):
        place.file(f"tree/{name}")
    place.done("remove", "--keep", "*.pdf", place.path("tree"))
    left = sorted(name for _, _, files in os.walk(place.path("tree")) for name in files)
    expect(left, ["a.pdf", "c.pdf"], "what is left")


@covers(REMOVE, SHRED, TRASH, "TruncateFileAtPath")
def a_dry_run_changes_nothing(place):
    path = place.file("tree/file", bytes(10000))
    for command, item in (("remove", "tree"), ("shred", "tree"), ("trash", "tree"),
                          ("truncate", "tree/file")):
        for word in ("-n", "--dry-run"):
            expect(place.objects(command, word, place.path(item))[0]["dryRun"], True, "dryRun")
    expect_content(path, bytes(10000))


# Shredding.
@covers(SHRED)
def shredding_of_files_and_trees(place):
    place.file("secret", b"secret" * 5000)
    place.file("tree/folder/secret", b"secret")
    place.file("tree/empty", b"")
    place.file("outside")
    place.link("../outside", "tree/link")
    for name in ("secret", "tree"):
        place.done("shred", place.path(name))
        expect_gone(place.path(name))
    expect_content(place.path("outside"), b"content")


@covers(SHRED)
def shredding_of_a_missing_item_fails_without_a_reason_of_the_agent(place):
    expect_no_reason(place.refused("shred", place.path("missing")))


@covers(SHRED)
def shredding_of_a_link_leaves_its_target(place):
    place.file("file")
    place.done("shred", place.link("file", "link"))
    expect_gone(place.path("link"))
    expect_content(place.path("file"), b"content")


@covers(SHRED)
def shredding_overwrites_the_file_under_its_other_names(place):
    if place.host.shreds_all_names is None:
        raise NotApplicable("this platform leaves open what becomes of other names")
    secret = b"secret" * 2000
    os.link(place.file("file", secret), place.path("other name"))
    place.done("shred", place.path("file"))
    expect_gone(place.path("file"))
    with open(place.path("other name"), "rb") as file:
        expect_true(b"secret" not in file.read(), "the data are overwritten")


@covers(SHRED)
def shredding_of_odd_names_and_many_files(place):
    make_odd_items(place, "odd")
    for number in range(50):
        place.small_file(f"odd/{number % 5}/{number}")
    place.done("shred", place.path("odd"))
    expect_gone(place.path("odd"))


@covers(SHRED)
def shredding_unlocks_the_item_alone(place):
    path = place.file("locked")
    place.lock(path)
    place.done("shred", path)
    expect_gone(path)
    inner = place.file("tree/locked")
    place.lock(inner)
    expect_no_reason(place.refused("shred", place.path("tree")))
    expect_content(inner, b"content")


# The Trash. A user's own rights put an item in the user's Trash, without the
# agent; so these items are such as only the agent can move.
@covers(TRASH)
def the_trash_refuses_a_missing_item(place):
    expect_error(place.refused("trash", place.path("missing")), 4)


@covers(TRASH, area="trash")
def the_trash_of_the_agent_takes_what_the_user_cannot_move(place):
    name = f"keepwell-conformance-{os.getpid()}"
    path = place.file(f"from/{name}")
    if os.geteuid() == 0:
        place.lock(path)
    else:
        place.prepared("move", path, place.path(f"of root/{name}"))
        path = place.path(f"of root/{name}")
    said = place.said("trash", path)
    try:
        if said == f"Moved {path} to the Trash\n" and place.host.name == "macOS":
            raise NotApplicable("the user's own rights move even a locked item")
        expect(said, f"Moved {path} to the Trash of the agent's user\n", "the text")
        expect_gone(path)
        found = _found_in_trash(place, name)
        if not found:
            raise Failed(f"{name} is in no Trash of the agent's user")
        if os.geteuid() == 0:
            expect_content(found[0][0], b"content")
    finally:
        for item, descriptions in _found_in_trash(place, name):
            for each in (item, *descriptions):
                place.run("remove", "--yes", each)


def _found_in_trash(place, name):
    def exists(path):  # root alone can look itself
        return os.path.lexists(path) if os.geteuid() == 0 else place.run("exists", path).status == 0
    return [(item, descriptions) for item, descriptions in place.host.agent_trashes(name)
            if exists(item)]


# Stopping.
FILES = 20_000


def _make_many(place, count):
    """A tree of so many empty files, with a sample of each of its folders."""
    samples = []
    for folder in range(20):
        at = os.open(place.mkdir(f"tree/{folder}"), os.O_RDONLY)
        for number in range(count // 20):
            os.close(os.open(str(number), os.O_CREAT | os.O_WRONLY, dir_fd=at))
        os.close(at)
        names = os.listdir(place.path(f"tree/{folder}"))
        samples += [place.path(f"tree/{folder}/{name}") for name in (names[0], names[-1])]
    return samples


def _count(place):
    return sum(len(files) for _, _, files in os.walk(place.path("tree")))


@covers("cancellation", REMOVE)
def an_interrupt_stops_a_removal_half_way(place):
    for count in (FILES, 4 * FILES, 16 * FILES):
        samples = _make_many(place, count)
        with place.start("--json", "remove", place.path("tree")) as command:
            while command.poll() is None and all(map(os.path.lexists, samples)):
                pass
            command.send_signal(signal.SIGINT)
            try:
                text = command.communicate(timeout=120)[0]
            except subprocess.TimeoutExpired:
                command.kill()
                raise Failed("an interrupted removal did not end within 120 s") from None
        if command.returncode == 0:
            expect_gone(place.path("tree"))
            continue  # it was done before the interrupt: once more with a larger tree
        error = json.loads(text)["error"]
        expect((command.returncode, error["kind"]), (130, "cancelled"), "status and kind")
        left = _count(place)
        expect_true(0 < left < count, f"{left} of {count} files are left")
        place.run("exists", place.path("tree"))  # the agent serves on
        expect(_count(place), left, "the number of files that are left, somewhat later")
        return
    raise Failed(f"a removal of {count} files was done before an interrupt at its beginning")


@covers("several clients at once")
def requests_of_several_clients_are_all_answered(place):
    for number in range(8):
        for name in range(100):
            place.small_file(f"{number}/{name}")
    kept = place.file("kept")
    commands = []
    for number in range(8):
        commands.append(place.start("--json", "remove", place.path(str(number))))
        commands.append(place.start("--json", "exists", kept))
    for command in commands:
        text = command.communicate(timeout=SECONDS)[0]
        expect((command.returncode, json.loads(text)["success"]), (0, True), "status and success")
    expect(os.listdir(place.folder), ["kept"], "what is left")


@covers("errors of use")
def errors_of_use_ask_the_agent_nothing(place):
    for words in (("dance",), ("remove",), ("--timeout", "x", "echo", "a"), ("remove", ""),
                  ("move", place.path("only one"))):
        found = place.objects(*words, status=2)[-1]
        expect((found["success"], found["error"]["kind"]), (False, "usage"), f"answer to {words}")
