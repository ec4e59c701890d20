#!/usr/bin/env python3
"""The table of README.md that compares programs: a test shows each feature that
it claims for keepwell."""
import pathlib
import re
import unittest

SOURCE = pathlib.Path(__file__).resolve().parent.parent.parent
COLUMNS = ["", "keepwell", "ncdu", "gdu", "dust", "dua", "trash-cli", "rm"]
# The tests of each row.
SHOWN_BY = {
    "full-screen, in and out of folders": [
        "System/BrowseTest.py test_folders_are_sorted_and_lead_in_and_out"],
    "removes the marked items after one question": [
        "System/BrowseTest.py test_marked_items_go_after_one_question"],
    "sizes as text": [
        "Unit/CommandLine/SizeTest.cpp isToldLevelByLevelWithTheLargestFirst"],
    "output for programs": [
        "System/CommandOutputTest.py test_every_command_prints_output_of_the_schema",
        "Unit/CommandLine/SizeTest.cpp isOneObjectForPrograms"],
    "only the largest items, or from a least size": [
        "Unit/CommandLine/SizeTest.cpp canBeToldOfTheLargestAlone"],
    "one volume, exclusions, lengths of files": [
        "System/VolumesTest.py test_a_size_has_the_volumes_inside_unless_it_is_of_one_volume",
        "Unit/CommandLine/SizeTest.cpp leavesOutExcludedItemsWithTheirContents",
        "Unit/CommandLine/SizeTest.cpp canBeOfTheLengthsOfFiles"],
    "trial run with the space that becomes free": [
        "System/CommandOutputTest.py test_a_dry_run_counts_hard_links_outside"],
    "reads and removes files of root for other users": [
        "System/BrowseTest.py test_the_agent_measures_and_removes_items_that_a_member_cannot_read"],
    "removes locked items": [
        "System/RecordingTest.py test_the_recording_shows_the_screens_of_the_command"],
    "the desktop's Trash: put, list, restore, empty by age": [
        "System/SharedTrashTest.py test_the_other_lists_and_restores_items_that_keepwell_throws_away",
        "System/SharedTrashTest.py test_keepwell_lists_and_restores_items_that_the_other_throws_away",
        "System/SharedTrashTest.py test_each_empties_the_trash_of_the_other"],
    "protects folders of the system and homes": [
        "Unit/CommandLine/ProtectionTest.cpp foldersAreLeftAloneByEachCommand",
        "System/VolumesTest.py test_folders_are_protected_at_each_place_where_they_are_mounted"],
}


def rows():
    text = (SOURCE / "README.md").read_text(encoding="utf-8")
    section = text.partition("## Beside other programs\n")[2].partition("\n## ")[0]
    table = [[cell.strip() for cell in line.strip("|").split("|")]
             for line in section.splitlines() if line.startswith("|")]
    return table[0], table[2:]


class ReadmeTest(unittest.TestCase):
    def test_each_row_has_tests(self):
        head, body = rows()
        self.assertEqual(head, COLUMNS)
        self.assertEqual([row[0] for row in body], list(SHOWN_BY))
        for row in body:
            self.assertEqual(len(row), len(COLUMNS), row)
            self.assertNotIn(row[1], ("", "\u2013"), row)

    def test_the_tests_exist(self):
        for tests in SHOWN_BY.values():
            for path, name in map(str.split, tests):
                text = (SOURCE / "Tests" / path).read_text(encoding="utf-8")
                self.assertRegex(text, rf"(?m)^(    def {re.escape(name)}\(|TEST.*\b{name}\))")


if __name__ == "__main__":
    unittest.main()
