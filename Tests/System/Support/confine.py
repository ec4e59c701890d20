"""Runs a program within the limits of a systemd unit, for hosts on which no
systemd runs. It sets each limit in the same way as systemd does.

Usage: confine.py UNIT PROGRAM [ARGUMENT...]

A system call that the unit refuses ends the process here, so that a test sees
it, where systemd would let it fail. Directives that only systemd can enforce
(device lists, firewalls) and those that limit nothing are named below; one
that is in neither list is an error."""
import ctypes
import os
import resource
import subprocess
import sys

NAMESPACES = {"ProtectHostname": 0x4000000, "PrivateNetwork": 0x40000000}
CALLS = {"ProtectClock": ("@clock",), "ProtectHostname": ("sethostname", "setdomainname")}
DONE_BELOW = {"CapabilityBoundingSet", "NoNewPrivileges", "LimitCORE", "LimitNOFILE",
              "SystemCallFilter",
              "RestrictAddressFamilies", "MemoryDenyWriteExecute", "RestrictNamespaces",
              "RestrictRealtime", "LockPersonality", "PrivateMounts"}
NOT_HERE = {"Type", "BusName", "ExecStart", "OOMPolicy", "IPAddressDeny", "DevicePolicy",
            "DeviceAllow", "SystemCallErrorNumber", "SystemCallArchitectures", "KeyringMode"}
CAPABILITIES = """CHOWN DAC_OVERRIDE DAC_READ_SEARCH FOWNER FSETID KILL SETGID SETUID SETPCAP
LINUX_IMMUTABLE NET_BIND_SERVICE NET_BROADCAST NET_ADMIN NET_RAW IPC_LOCK IPC_OWNER SYS_MODULE
SYS_RAWIO SYS_CHROOT SYS_PTRACE SYS_PACCT SYS_ADMIN SYS_BOOT SYS_NICE SYS_RESOURCE SYS_TIME
SYS_TTY_CONFIG MKNOD LEASE AUDIT_WRITE AUDIT_CONTROL SETFCAP MAC_OVERRIDE MAC_ADMIN SYSLOG
WAKE_ALARM BLOCK_SUSPEND AUDIT_READ PERFMON BPF CHECKPOINT_RESTORE""".split()

PR_CAPBSET_READ, PR_CAPBSET_DROP, PR_SET_NO_NEW_PRIVS = 23, 24, 38
ALLOW, KILL_PROCESS, ERRNO = 0x7FFF0000, 0x80000000, 0x00050000
NOT_EQUAL, MASKED_EQUAL = 1, 7
ENOSYS, EAFNOSUPPORT = 38, 97

libc = ctypes.CDLL(None, use_errno=True)


def check(result, what):
    if result != 0:
        raise OSError(ctypes.get_errno(), f"{what}: {os.strerror(ctypes.get_errno())}")


def directives(path):
    """The [Service] section: each directive with its values in order."""
    found, section = {}, None
    with open(path, encoding="utf-8") as file:
        for line in map(str.strip, file):
            if line.startswith("["):
                section = line
            elif section == "[Service]" and line and line[0] not in "#;":
                key, _, value = line.partition("=")
                found.setdefault(key.strip(), []).append(value.strip())
    return found


class Filter:
    """A seccomp filter. Loaded filters add up, and the strictest answer counts."""

    class Comparison(ctypes.Structure):
        _fields_ = [("argument", ctypes.c_uint), ("operator", ctypes.c_int),
                    ("a", ctypes.c_uint64), ("b", ctypes.c_uint64)]

    def __init__(self, default):
        self._library = ctypes.CDLL("libseccomp.so.2")
        self._library.seccomp_init.restype = ctypes.c_void_p
        self._context = ctypes.c_void_p(self._library.seccomp_init(ctypes.c_uint32(default)))

    def add(self, call, action, *comparisons):
        number = self._library.seccomp_syscall_resolve_name(call.encode())
        if number < 0:  # of another kind of processor
            return
        array = (self.Comparison * len(comparisons))(*comparisons)
        check(-self._library.seccomp_rule_add_array(
            self._context, ctypes.c_uint32(action), number, len(comparisons), array), call)

    def load(self):
        check(-self._library.seccomp_load(self._context), "seccomp")


def calls_of(groups):
    """The names of the system calls in systemd's groups."""
    names, waiting = set(), list(groups)
    while waiting:
        group = waiting.pop()
        if not group.startswith("@"):
            names.add(group)
            continue
        printed = subprocess.run(["systemd-analyze", "syscall-filter", group], check=True,
                                 capture_output=True, text=True).stdout
        waiting += [line.strip() for line in printed.splitlines()[1:]
                    if line.strip() and not line.strip().startswith("#")]
    return names


def allowed_calls(unit):
    allowed = set()
    for line in unit["SystemCallFilter"]:
        names = calls_of(line.lstrip("~").split())
        allowed = allowed - names if line.startswith("~") else allowed | names
    # The calls that systemd always permits.
    return allowed | calls_of(["@default"])


def own_namespaces(unit):
    assert unit["PrivateMounts"] == ["no"]
    flags = 0
    for key, flag in NAMESPACES.items():
        flags |= flag if unit.get(key) == ["yes"] else 0
    check(libc.unshare(flags), "unshare")


def restricting_filter(unit):
    """The calls that the unit refuses by their arguments."""
    rules, compare = Filter(ALLOW), Filter.Comparison
    if "RestrictAddressFamilies" in unit:
        assert unit["RestrictAddressFamilies"] == ["AF_UNIX"]
        rules.add("socket", ERRNO | EAFNOSUPPORT, compare(0, NOT_EQUAL, 1, 0))
    if unit.get("MemoryDenyWriteExecute") == ["yes"]:
        rules.add("mmap", KILL_PROCESS, compare(2, MASKED_EQUAL, 6, 6))
        rules.add("mprotect", KILL_PROCESS, compare(2, MASKED_EQUAL, 4, 4))
        rules.add("pkey_mprotect", KILL_PROCESS, compare(2, MASKED_EQUAL, 4, 4))
    if unit.get("RestrictNamespaces") == ["yes"]:
        rules.add("clone3", ERRNO | ENOSYS)  # its flags cannot be seen; callers use clone
        rules.add("setns", KILL_PROCESS)
        rules.add("unshare", KILL_PROCESS)
        for bit in (0x20000, 0x2000000, 0x4000000, 0x8000000, 0x10000000, 0x20000000, 0x40000000):
            rules.add("clone", KILL_PROCESS, compare(0, MASKED_EQUAL, bit, bit))
    if unit.get("RestrictRealtime") == ["yes"]:
        rules.add("sched_setscheduler", KILL_PROCESS, compare(1, NOT_EQUAL, 0, 0))
    if unit.get("LockPersonality") == ["yes"]:
        rules.add("personality", KILL_PROCESS, compare(0, NOT_EQUAL, 0xFFFFFFFF, 0))
    for key, groups in CALLS.items():
        for call in calls_of(groups) if unit.get(key) == ["yes"] else ():
            rules.add(call, KILL_PROCESS)
    return rules


def drop_capabilities(unit):
    kept = {name for line in unit["CapabilityBoundingSet"] for name in line.split()}
    unknown = kept - {"CAP_" + name for name in CAPABILITIES}
    assert not unknown, unknown
    for number, name in enumerate(CAPABILITIES):
        if "CAP_" + name not in kept and libc.prctl(PR_CAPBSET_READ, number, 0, 0, 0) == 1:
            check(libc.prctl(PR_CAPBSET_DROP, number, 0, 0, 0), name)


def confine(path):
    unit = directives(path)
    unknown = set(unit) - NOT_HERE - DONE_BELOW - set(NAMESPACES) - set(CALLS)
    assert not unknown, f"confine.py does not know {', '.join(sorted(unknown))}"
    by_name = Filter(KILL_PROCESS)
    for call in allowed_calls(unit):
        by_name.add(call, ALLOW)
    by_argument = restricting_filter(unit)
    own_namespaces(unit)
    if "LimitCORE" in unit:
        limit = int(unit["LimitCORE"][-1])
        resource.setrlimit(resource.RLIMIT_CORE, (limit, limit))
    if "LimitNOFILE" in unit:
        soft, _, hard = unit["LimitNOFILE"][-1].partition(":")
        # A host with a lower limit, which no process may raise, gives less.
        most = resource.getrlimit(resource.RLIMIT_NOFILE)[1]
        hard = int(hard or soft) if most < 0 else min(int(hard or soft), most)
        resource.setrlimit(resource.RLIMIT_NOFILE, (min(int(soft), hard), hard))
    drop_capabilities(unit)
    check(libc.prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0), "no new privileges")
    by_argument.load()
    by_name.load()


confine(sys.argv[1])
os.execv(sys.argv[2], sys.argv[2:])
