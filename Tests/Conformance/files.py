"""Scenarios: existence, truncation, moves."""
import os
import stat

from .place import (REFUSED, expect, expect_content, expect_error, expect_gone, expect_no_reason,
                    expect_true)
from .suite import NotApplicable, covers

EXISTS, TRUNCATE, MOVE = "FileExistsAtPath", "TruncateFileAtPath", "MoveItemAtPath"

# Names that are hard to pass on: blanks, quotes, line ends, other scripts,
# composed and decomposed letters, what looks like an option or a pattern.
ODD_NAMES = ("a b", " lead and trail ", "it's \"quoted\"", "line\nbreak", "tab\there", "Grüße",
             "Gru\u0308n", "日本語", "😀", "-rf", "--", "*", "%s%n", "$(reboot)", "back\\slash",
             ".hidden", "x" * 200)


def make_odd_items(place, folder):
    """A file of each odd name that this volume can hold."""
    place.mkdir(folder)
    for name in ODD_NAMES:
        place.file(f"{folder}/{name}", name.encode())
    return [f"{place.path(folder)}/{name}" for name in os.listdir(place.path(folder))]


# Existence.
@covers(EXISTS)
def existence_follows_links(place):
    place.file("file")
    place.link("file", "link")
    place.link("nowhere", "dangling")
    for name, exists in (("file", True), ("", True), ("link", True), ("dangling", False),
                         ("missing", False), ("file/below", False)):
        found = place.objects("exists", place.path(name), status=0 if exists else REFUSED)[-1]
        expect((found["success"], found["exists"]), (True, exists), f"existence of {name!r}")


@covers(EXISTS)
def existence_of_items_with_odd_names(place):
    for path in make_odd_items(place, "odd"):
        expect(place.done("exists", "--", path)["exists"], True, f"existence of {path!r}")


@covers(EXISTS)
def existence_is_told_in_words(place):
    path = place.file("file")
    expect(place.said("exists", path), f"{path} exists\n", "the text")
    missing = place.run("exists", place.path("missing"))
    expect((missing.status, missing.text), (REFUSED, f"{place.path('missing')} does not exist\n"),
           "status and text of a missing item")


@covers(EXISTS)
def existence_in_a_folder_that_is_closed_to_the_user(place):
    path = place.file("closed/file")
    os.chmod(place.path("closed"), 0)
    try:
        expect(place.done("exists", path)["exists"], True, "existence in a closed folder")
    finally:
        os.chmod(place.path("closed"), 0o700)


# Truncation.
@covers(TRUNCATE)
def truncation_empties_files(place):
    for name, content in (("file", b"content"), ("large", bytes(5 << 20)), ("empty", b"")):
        path = place.file(name, content)
        mode = os.stat(path).st_mode
        place.done("truncate", path)
        expect_content(path, b"")
        expect(os.stat(path).st_mode, mode, "the mode afterwards")


@covers(TRUNCATE)
def truncation_follows_a_link_and_reaches_all_names(place):
    path = place.file("file")
    os.link(path, place.path("other name"))
    place.done("truncate", place.link("file", "link"))
    expect_content(place.path("other name"), b"")
    expect_true(os.path.islink(place.path("link")), "the link is still one")


@covers(TRUNCATE)
def truncation_refuses_folders_and_missing_items_without_a_reason_of_the_agent(place):
    place.file("folder/file")
    for name in ("folder", "missing", "folder/file/below"):
        expect_no_reason(place.refused("truncate", place.path(name)))
    expect_content(place.path("folder/file"), b"content")
    expect_gone(place.path("missing"))


@covers(TRUNCATE)
def truncation_unlocks_no_file(place):
    path = place.file("locked")
    place.lock(path)
    expect_no_reason(place.refused("truncate", path))
    expect_content(path, b"content")
    expect_true(place.host.is_locked(path), "the file is still locked")


# Moves.
@covers(MOVE)
def a_move_makes_missing_folders(place):
    source = place.file("from/file")
    inode = os.stat(source).st_ino
    destination = place.path("to/deep/another name")
    place.done("move", source, destination)
    expect_content(destination, b"content")
    expect(os.stat(destination).st_ino, inode, "the moved file's number")
    expect_gone(source)


@covers(MOVE)
def a_move_replaces_no_item(place):
    new, old = place.file("new", b"new"), place.file("old", b"old")
    folder = place.mkdir("empty folder")
    for destination in (old, folder):
        expect_error(place.refused("move", new, destination), 516)
    expect_content(old, b"old")
    expect_content(new, b"new")
    expect(os.listdir(folder), [], "the empty folder")


@covers(MOVE)
def a_move_to_the_folder_that_holds_the_item_moves_nothing(place):
    path = place.file("folder/file")
    place.done("move", path, place.path("folder"))
    expect(os.listdir(place.path("folder")), ["file"], "the folder")
    expect_content(path, b"content")


@covers(MOVE)
def a_move_of_a_missing_item_fails_with_the_platforms_error(place):
    expect_error(place.refused("move", place.path("missing"), place.path("new")), 4)
    expect_gone(place.path("new"))


@covers(MOVE)
def a_move_of_a_folder_into_itself_fails(place):
    place.file("folder/file")
    place.refused("move", place.path("folder"), place.path("folder/below"))
    expect_content(place.path("folder/file"), b"content")
    expect(os.listdir(place.path("folder")), ["file"], "the folder")


@covers(MOVE)
def a_move_takes_links_as_links_and_hard_links_as_names(place):
    target = place.file("target")
    place.done("move", place.link("target", "link"), place.path("moved link"))
    expect(os.readlink(place.path("moved link")), "target", "the moved link")
    os.link(target, place.path("second name"))
    place.done("move", place.path("second name"), place.path("third name"))
    expect(os.stat(place.path("third name")).st_ino, os.stat(target).st_ino, "the file's number")
    expect_gone(place.path("link"), place.path("second name"))


@covers(MOVE)
def a_move_takes_items_with_odd_names(place):
    for path in make_odd_items(place, "odd"):
        moved = path.replace("/odd/", "/moved/")
        place.done("move", "--", path, moved)
        expect_gone(path)
    expect(len(os.listdir(place.path("moved"))), len(ODD_NAMES), "the number of moved items")


@covers(MOVE)
def a_move_of_a_large_folder(place):
    for number in range(500):
        place.small_file(f"tree/{number % 20}/{number}")
    place.done("move", place.path("tree"), place.path("moved"))
    found = sum(len(files) for _, _, files in os.walk(place.path("moved")))
    expect(found, 500, "the number of moved files")
    expect_gone(place.path("tree"))


@covers(MOVE)
def a_move_unlocks_the_item_and_its_folder(place):
    path = place.file("from/file")
    place.lock(path, place.path("from"))
    place.done("move", path, place.path("to"))
    expect_content(place.path("to"), b"content")
    expect_true(not place.host.is_locked(place.path("to")), "the moved file is unlocked")


@covers(MOVE)
def a_move_unlocks_nothing_within_the_item(place):
    path = place.file("folder/locked")
    place.lock(path)
    place.done("move", place.path("folder"), place.path("moved"))
    expect_true(place.host.is_locked(place.path("moved/locked")), "the file is still locked")


@covers(MOVE)
def a_move_is_told_in_words(place):
    source, destination = place.file("file"), place.path("new")
    expect(place.said("move", source, destination), f"Moved {source} to {destination}\n",
           "the text")
    expect_true(place.said("move", source, destination, status=REFUSED).startswith(
        f"keepwell: {source} could not be moved to {destination}: "), "the text of a failure")


@covers(MOVE)
def a_dry_run_of_a_move_moves_nothing(place):
    source = place.file("file")
    expect(place.done("move", "-n", source, place.path("to/new"))["dryRun"], True, "dryRun")
    expect_content(source, b"content")
    expect_gone(place.path("to"))


@covers(MOVE)
def a_move_to_another_volume_keeps_the_tree(place):
    volume = place.other_volume()
    path = place.file("tree/file")
    place.file("tree/folder/empty", b"")
    place.link("file", "tree/link")
    place.link("nowhere", "tree/dangling")
    os.link(path, place.path("tree/second name"))
    os.chmod(path, 0o640)
    os.utime(path, (1_000_000_000, 1_100_000_000))
    place.done("move", place.path("tree"), f"{volume}/tree")
    expect_gone(place.path("tree"))
    expect_content(f"{volume}/tree/file", b"content")
    expect_content(f"{volume}/tree/second name", b"content")
    expect(os.listdir(f"{volume}/tree/folder"), ["empty"], "the folder within")
    for name, target in (("link", "file"), ("dangling", "nowhere")):
        expect(os.readlink(f"{volume}/tree/{name}"), target, name)
    status = os.stat(f"{volume}/tree/file")
    expect((stat.S_IMODE(status.st_mode), int(status.st_mtime)), (0o640, 1_100_000_000),
           "mode and time")


@covers(MOVE)
def a_move_to_another_volume_replaces_no_item(place):
    volume = place.other_volume()
    new = place.file("new", b"new")
    with open(f"{volume}/old", "wb") as file:
        file.write(b"old")
    expect_error(place.refused("move", new, f"{volume}/old"), 516)
    expect_content(new, b"new")
    expect_content(f"{volume}/old", b"old")


@covers(MOVE)
def a_move_into_a_folder_of_root(place):
    if os.geteuid() == 0:
        raise NotApplicable("the user is root")
    first, second = place.file("first"), place.file("second")
    place.done("move", first, place.path("of root/first"))  # the agent makes the folder
    expect(os.stat(place.path("of root")).st_uid, 0, "the owner of the made folder")
    place.done("move", second, place.path("of root/second"))
    expect(sorted(os.listdir(place.path("of root"))), ["first", "second"], "the folder of root")
