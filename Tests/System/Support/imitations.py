"""Imitations of macOS's tools for the throw-away root: programs that do, on files
of their own, the work that the scenarios and the agent expect of the tools at
these paths."""

STATE = "/var/lib/imitated"

# Knows the jobs by their labels. A load with -w of an unknown list, an unload of
# a job that is not loaded and a listing of an unknown label fail as launchctl's.
_LAUNCHCTL = f"""#!/usr/bin/python3
import os, plistlib, sys
jobs = "{STATE}/jobs"
os.makedirs(jobs, exist_ok=True)
verb, *words = [word for word in sys.argv[1:] if word != "-w"]
def label():
    try:
        with open(words[0], "rb") as file:
            return plistlib.load(file)["Label"]
    except (OSError, ValueError, KeyError, TypeError, plistlib.InvalidFileException):
        sys.exit("invalid property list")
name = label() if verb in ("load", "unload") else words[0]
path = f"{{jobs}}/{{name}}"
if verb == "load":
    open(path, "w").close()
elif verb in ("unload", "remove", "list") and not os.path.exists(path):
    sys.exit("Could not find service")
elif verb in ("unload", "remove"):
    os.unlink(path)
elif verb == "list":
    print("{{", f'"Label" = "{{name}}";', "}};")
elif verb in ("start", "stop") and not os.path.exists(path) and "apple" not in name:
    sys.exit(3)
"""

# Thins a universal binary, as "ditto --arch ARCH SOURCE DESTINATION" does.
_DITTO = """#!/usr/bin/python3
import struct, sys
if len(sys.argv) != 5 or sys.argv[1] != "--arch":
    sys.exit("Usage: ditto --arch arch src dst")
wanted = {"x86_64": 0x01000007, "arm64": 0x0100000C}[sys.argv[2]]
data = open(sys.argv[3], "rb").read()
magic, count = struct.unpack_from(">2I", data)
assert magic == 0xCAFEBABE
for index in range(count):
    cpu, _, offset, size, _ = struct.unpack_from(">5I", data, 8 + 20 * index)
    if cpu == wanted:
        with open(sys.argv[4], "wb") as file:
            file.write(data[offset:offset + size])
        import os, shutil
        shutil.copymode(sys.argv[3], sys.argv[4])
        sys.exit(0)
sys.exit(1)
"""

# Receipts are files of the packages' identifiers.
_PKGBUILD = """#!/usr/bin/python3
import sys
words = sys.argv[1:]
with open(words[-1], "w") as file:
    file.write(words[words.index("--identifier") + 1])
"""
_INSTALLER = f"""#!/bin/sh
mkdir -p {STATE}/receipts
: > "{STATE}/receipts/$(cat "$2")"
"""
_PKGUTIL = f"""#!/bin/sh
[ -e "{STATE}/receipts/$2" ] || {{ echo "No receipt for '$2' found at '/'." >&2; exit 1; }}
[ "$1" = --forget ] && rm "{STATE}/receipts/$2"
exit 0
"""

_PERIODIC = """#!/bin/sh
[ -d "$1" ] || { echo "periodic: $1 not found" >&2; exit 1; }
for script in "$1"/*; do [ -x "$script" ] && "$script"; done
exit 0
"""
_REPAIR = """#!/bin/sh
for n in 1 2 3 4 5 6 7 8; do echo "chunk $n"; sleep 0.01; done
"""
_LOG = """#!/bin/sh
[ "$*" = "erase --all" ] && [ "$(dd bs=16 count=1 2>/dev/null)" = y ]
"""
_NOTHING = "#!/bin/sh\nexit 0\n"
_UNKNOWN = "#!/bin/sh\necho 'not found' >&2\nexit 1\n"

TOOLS = {
    "/bin/launchctl": _LAUNCHCTL,
    "/usr/bin/ditto": _DITTO,
    "/usr/bin/pkgbuild": _PKGBUILD,
    "/usr/sbin/installer": _INSTALLER,
    "/usr/sbin/pkgutil": _PKGUTIL,
    "/usr/sbin/periodic": _PERIODIC,
    "/usr/libexec/repair_packages": _REPAIR,
    "/usr/bin/log": _LOG,
    "/usr/sbin/dscacheutil": _NOTHING,
    "/usr/bin/killall": _NOTHING,
    "/usr/bin/mdutil": _NOTHING,
    "/sbin/SystemStarter": _UNKNOWN,
    "/sbin/kextunload": _UNKNOWN,
}


def install(root):
    for path, text in TOOLS.items():
        root.write(path, text, 0o755)
    root.mkdir("/var/log/asl")
