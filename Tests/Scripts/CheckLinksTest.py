#!/usr/bin/env python3
"""Scripts/check-links finds a function that an object needs of a room above it,
and passes those of a room below."""
import pathlib
import subprocess
import tempfile
import unittest

SOURCE = pathlib.Path(__file__).resolve().parent.parent.parent
ROOMS = """kw_room(kw_low Low)
kw_room(kw_middle Middle kw_low)
kw_room(kw_high High kw_middle)
"""


class CheckLinksTest(unittest.TestCase):
    def setUp(self):
        scratch = tempfile.TemporaryDirectory()
        self.addCleanup(scratch.cleanup)
        self.root = pathlib.Path(scratch.name)
        (self.root / "Sources").mkdir()
        (self.root / "Sources/CMakeLists.txt").write_text(ROOMS, encoding="utf-8")

    def build(self, **bodies):
        """Makes a library of each room from a body."""
        for room, body in bodies.items():
            objects = self.root / f"{room}.o"
            subprocess.run(["c++", "-x", "c++", "-c", "-", "-o", objects], input=body, text=True,
                           check=True)
            library = self.root / f"Sources/libkw_{room}.a"
            library.unlink(missing_ok=True)
            subprocess.run(["ar", "rcs", library, objects], check=True)

    def complaints(self):
        run = subprocess.run([f"{SOURCE}/Scripts/check-links", self.root, self.root], text=True,
                             capture_output=True, check=False)
        self.assertEqual(run.stderr, "")
        self.assertEqual(run.returncode, 1 if run.stdout else 0)
        return run.stdout.splitlines()

    def test_functions_of_rooms_below_pass(self):
        self.build(low="namespace NS { void low() {} }",
                   middle="namespace NS { void low(); void middle() { low(); } }",
                   high="namespace NS { void low(); } namespace kw { void high() { NS::low(); } }")
        self.assertEqual(self.complaints(), [])

    def test_a_function_of_a_room_above_is_found(self):
        self.build(low="namespace kw { void high(); } namespace NS { void low() { kw::high(); } }",
                   middle="namespace NS { struct Some { void act() const; };"
                          " void middle(const Some &some) { some.act(); } }",
                   high="namespace kw { void high() {} } namespace NS {"
                        " struct Some { void act() const; }; void Some::act() const {} }")
        self.assertEqual(self.complaints(), ["Low needs kw::high() of High",
                                             "Middle needs NS::Some::act() const of High"])

    def test_a_function_that_no_room_has_passes(self):
        self.build(low="void other(); namespace NS { void missing(); "
                       "void low() { other(); missing(); } }", middle="", high="")
        self.assertEqual(self.complaints(), [])


if __name__ == "__main__":
    unittest.main()
