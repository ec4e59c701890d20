#!/usr/bin/env python3
"""Resources/make-operations.py: what it makes of an operation, and that it refuses
a reply that no block takes. The unit tests hold the names and types of all
operations to the contract."""
import pathlib
import subprocess
import sys
import tempfile
import unittest

MAKER = pathlib.Path(__file__).resolve().parent.parent.parent / "Resources/make-operations.py"
METHOD = """<node><interface name="org.keepwell.KWPrivilegedOperation"><method name="CopyItem">
<arg type="s" name="from" direction="in"/><arg type="as" name="kinds" direction="in"/>
<arg type="{}" name="success" direction="out"/><arg type="(sxa{{sv}})" name="error" direction="out"/>
</method></interface><interface name="org.example.Other"><method name="Other"/></interface></node>"""


class MakeOperationsTest(unittest.TestCase):
    def setUp(self):
        scratch = tempfile.TemporaryDirectory()
        self.addCleanup(scratch.cleanup)
        self.root = pathlib.Path(scratch.name)

    def make(self, kind):
        (self.root / "description.xml").write_text(METHOD.format(kind), encoding="utf-8")
        return subprocess.run([sys.executable, MAKER, self.root / "description.xml",
                               self.root / "made"], text=True, capture_output=True, check=False)

    def made(self, name):
        lines = (self.root / "made" / name).read_text(encoding="utf-8").splitlines()
        self.assertEqual(lines[0], "// Made from description.xml by make-operations.py.")
        return lines[1:]

    def test_it_makes_each_list(self):
        run = self.make("b")
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        self.assertEqual(self.made("OperationTable.inc"), [
            'describe("copyItem:kinds:withReply:", "CopyItem", {"from", "kinds"}, '
            '&KWPrivilegedOperation::copyItem, {"success", "error"}),'])
        head = "(const std::string &from, const std::vector<std::string> &kinds, " \
               "const RequestOptions &options)"
        self.assertEqual(self.made("ClientCalls.inc"), [
            f"auto Client::copyItemAsync{head} -> decltype(copyItemAsync(from, kinds, options)) {{",
            '  return start(&Client::copyItemAsync, engine_, {"CopyItem", {from, kinds}}, options);',
            "}",
            f"auto Client::copyItem{head} -> decltype(copyItem(from, kinds, options)) {{",
            "  return copyItemAsync(from, kinds, options).get();",
            "}"])
        message = "- (void)copyItem:(NSString *)from kinds:(NSArray *)kinds " \
                  "withReply:(KWFlagBlock)reply"
        self.assertEqual(self.made("OperationMessages.inc"), [f"{message};"])
        self.assertEqual(self.made("OperationRequests.inc"), [
            '{"CopyItem", "ta", [](Agent agent, const Call &call) { [agent '
            "copyItem:call.text(0) kinds:call.texts(1) withReply:call.flag().get()]; }},"])
        self.assertEqual(self.made("OperationMethods.inc"), [
            f"{message} {{",
            "  serve(*served, _cmd, {requiredText(from), requiredTexts(kinds)}, replyTo(reply));",
            "}"])

    def test_it_writes_a_list_only_when_it_changes(self):
        self.make("b")
        before = (self.root / "made/OperationTable.inc").stat().st_mtime_ns
        self.make("b")
        self.assertEqual((self.root / "made/OperationTable.inc").stat().st_mtime_ns, before)

    def test_it_refuses_a_reply_that_no_block_takes(self):
        run = self.make("d")
        self.assertEqual(run.stderr, "make-operations.py: no block takes the reply of CopyItem\n")
        self.assertEqual(run.returncode, 1)


if __name__ == "__main__":
    unittest.main()
