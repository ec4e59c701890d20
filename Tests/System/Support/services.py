"""Shared by the tests of the operations on system services."""
import unittest

from .root import ThrowAwayRoot


class ServicesTestCase(unittest.TestCase):
    """One throw-away root for all tests of a class, emptied before each."""

    @classmethod
    def setUpClass(cls):
        cls.root = cls.enterClassContext(ThrowAwayRoot())

    def setUp(self):
        self.root.empty()
        self.root.forget_calls()

    def flag(self, member, path, expected=True, archs=None):
        """Asks with the path, and with the architectures if given, and checks
        the answer's flag."""
        arguments = ("s", path) if archs is None else ("sas", path, list(archs))
        reply = self.root.busctl(member, *arguments)
        self.assertIsNone(reply.error)
        self.assertEqual(reply.flag, expected, f"{member} {path}")

    def assert_calls(self, *expected):
        """Checks the tools that ran, with these arguments, since the last time."""
        self.assertEqual(self.root.calls(), [list(line) for line in expected])
        self.root.forget_calls()
