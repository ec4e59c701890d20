"""The edit of launchd's configuration through the real agent."""
import os
import stat
import subprocess
import unittest

from Support import harness
from Support.root import DATA, ThrowAwayRoot

CONF = "/etc/launchd.conf"
BACKUP = CONF + ".prev"
SET = "setenv DYLD_INSERT_LIBRARIES"

# The former text of the file, the library to remove, and the text afterwards.
TABLE = (
    (f"{SET} /x\n", "/x", ""),
    (f"{SET} /x", "/x", ""),
    (f"{SET} /a:/x\n", "/x", f'{SET} "/a"\n'),
    (f"{SET} /x:/a\n", "/x", f'{SET} "/a"\n'),
    (f"{SET} /a:/x:/b", "/x", f'{SET} "/a:/b"\n'),
    (f'{SET} "/a:/x"\n', "/x", f'{SET} "/a"\n'),
    (f'{SET} "/a":"/x"\n', "/x", f'{SET} "/a"\n'),
    (f"{SET} /x:/x:/x\n", "/x", ""),
    (f"{SET}  /a : /x : /b  \n", "/x", f'{SET} "/a:/b"\n'),
    (f"{SET} /a:\t/x\t:/b\n", "/x", f'{SET} "/a:/b"\n'),
    (f"{SET} /a::/x\n", "/x", f'{SET} "/a:"\n'),
    # Not there, or only as a part of another name.
    (f"{SET} /a:/b\n", "/x", f"{SET} /a:/b\n"),
    (f'{SET} "/a:/b"\n', "/x", f"{SET} /a:/b\n"),
    (f"{SET} /xy:/a/x\n", "/x", f'{SET} "/xy:/a/x"\n'),
    (f"{SET} /X\n", "/x", f"{SET} /X\n"),
    (f"{SET} /a\n", "", f"{SET} /a\n"),
    # Other lines lose their quotes, empty ones go, the last gets its end.
    ('umask "022"\n', "/x", "umask 022\n"),
    ("a\n\n\nb\n\n", "/x", "a\nb\n"),
    ("\n\n", "/x", ""),
    ('"', "/x", ""),
    ("  \n\t\n", "/x", "  \n\t\n"),
    ("last", "/x", "last\n"),
    (f"limit 1\n{SET} /x\numask 022", "/x", "limit 1\numask 022\n"),
    (f"{SET} /x\n{SET} /a:/x\nend\n", "/x", f'{SET} "/a"\nend\n'),
    # A line that only mentions the variable is rebuilt too.
    (f"# {SET} /x /a\n", "/x", f'{SET} "/x /a"\n'),
    (f"# {SET} /a:/x\n", "/x", f'{SET} "/a"\n'),
    ("unsetenv /x\n", "/x", "unsetenv /x\n"),
    ("dyld_insert_libraries /x\n", "/x", "dyld_insert_libraries /x\n"),
    (f"{SET} /Grüße:/a b\n", "/a b", f'{SET} "/Grüße"\n'),
    (f"{SET} /a:/x\r\nb\r\n", "/x", f'{SET} "/a"\nb\r\n'),
)


class LaunchdConfigurationTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.root = cls.enterClassContext(ThrowAwayRoot())

    def setUp(self):
        for path in (CONF, BACKUP):
            if self.root.exists(path):
                os.unlink(self.root.host_path(path))

    def edit(self, library):
        reply = self.root.busctl("RemoveLibraryFromLauchdConf", "s", library)
        self.assertIsNone(reply.error)
        return reply.flag

    def edit_to_the_end(self, library):
        """The first answer may come before the edit is made; the next request of
        the same client comes after it."""
        client = self.root.client()
        flag = client.call("RemoveLibraryFromLauchdConf", "s", library)[0]
        client.call("Echo", "s", "")
        return flag

    def test_each_configuration_is_edited_with_a_backup(self):
        self.assertGreaterEqual(len(TABLE), 20)
        for before, library, after in TABLE:
            with self.subTest(before=before, library=library):
                self.root.write(CONF, before)
                self.assertTrue(self.edit(library))
                self.assertEqual(self.root.read(CONF).decode(), after)
                self.assertEqual(self.root.read(BACKUP).decode(), before)

    def test_the_backup_is_of_the_last_edit_alone(self):
        self.root.write(CONF, f"{SET} /a:/b:/c\n")
        self.edit("/a")
        self.edit("/b")
        self.assertEqual(self.root.read(BACKUP).decode(), f'{SET} "/b:/c"\n')
        self.assertEqual(self.root.read(CONF).decode(), f'{SET} "/c"\n')

    def test_mode_and_owner_stay(self):
        self.root.write(CONF, f"{SET} /x\n", 0o600)
        os.chown(self.root.host_path(CONF), 3, 4)
        self.edit("/x")
        status = os.stat(self.root.host_path(CONF))
        self.assertEqual((stat.S_IMODE(status.st_mode), status.st_uid, status.st_gid),
                         (0o600, 3, 4))

    def test_one_reply_is_sent_however_often_the_handler_answers(self):
        client = self.root.client()
        client.call("Echo", "s", "past the bus's own greetings")
        for content in (None, b"", b"umask 022\n", b"\xff\xfe"):
            with self.subTest(content=content):
                self.setUp()
                if content is not None:
                    self.root.write(CONF, content)
                serials = [client.send("RemoveLibraryFromLauchdConf", "s", "/x"),
                           client.send("Echo", "s", "after")]
                replies = [client.receive() for _ in serials]
                self.assertEqual([reply.reply_serial for reply in replies], serials)
                self.assertTrue(replies[0].values()[0])
                self.assertEqual(replies[1].values()[0], "after")

    def test_a_missing_configuration_is_made_empty_without_a_backup(self):
        self.root.write(BACKUP, "of an earlier edit")
        self.assertTrue(self.edit_to_the_end("/x"))
        self.assertEqual(self.root.read(CONF), b"")
        self.assertFalse(self.root.exists(BACKUP))

    def test_an_unreadable_configuration_is_kept_as_the_backup(self):
        self.root.write(CONF, b"\xff\xfe not UTF-8")
        self.assertTrue(self.edit_to_the_end("/x"))
        self.assertEqual(self.root.read(CONF), b"")
        self.assertEqual(self.root.read(BACKUP), b"\xff\xfe not UTF-8")

    def test_an_edit_of_an_empty_configuration_replaces_the_backup(self):
        for before in (b"\xff\xfe not UTF-8", b""):
            with self.subTest(before=before):
                self.root.write(CONF, before)
                self.root.write(BACKUP, "of an earlier edit")
                self.edit_to_the_end("/x")
                self.assertEqual(self.root.read(BACKUP), before)
                self.assertEqual(self.root.read(CONF), b"")

    def test_a_configuration_too_large_to_be_read_is_left_alone_with_its_backup(self):
        large = f"{SET} /x\n".encode() + b"#" * (16 << 20)
        self.root.write(CONF, large)
        self.root.write(BACKUP, "good")
        for _ in range(2):
            self.assertFalse(self.edit("/x"))
            self.assertTrue(self.root.read(CONF) == large)
            self.assertEqual(self.root.read(BACKUP), b"good")

    def test_the_edit_is_logged(self):
        self.root.write(CONF, f'logged "1"\n{SET} /x\n')
        self.edit("/x")
        self.assertIn(f"/etc/launchd.conf before edit: logged 1\\n{SET} /x\\n\\n"
                      "after: logged 1\\n\\n", self.root.log())

    def test_a_write_that_fails_is_answered_so_and_leaves_the_file(self):
        before = f"{SET} /a:/x\n"
        self.root.write(CONF, before)
        self.root.write(f"{DATA}/etc/launchd.conf", before)
        etc = self.root.host_path("/etc")
        subprocess.run(["mount", "--bind", self.root.host_path(f"{DATA}/etc"), etc], check=True)
        self.addCleanup(subprocess.run, ["umount", etc], check=True)
        subprocess.run(["mount", "-o", "remount,bind,ro", etc], check=True)
        self.assertFalse(self.edit("/x"))
        self.assertEqual(self.root.read(CONF).decode(), before)
        self.assertEqual(self.root.listdir("/etc"), ["launchd.conf"])


if __name__ == "__main__":
    harness.main()
