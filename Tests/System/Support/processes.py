"""A look at running processes. Any of them may end between two steps: files
below /proc then cannot be opened or, once opened, not be read."""
import contextlib
import os

# The errors of both calls.
GONE = (FileNotFoundError, ProcessLookupError)


def text(pid, name):
    """The text of a file below /proc/PID, "" when the process has ended."""
    try:
        with open(f"/proc/{pid}/{name}", encoding="utf-8", errors="replace") as file:
            return file.read()
    except GONE:
        return ""


def fields(pid, name="status"):
    """The fields of its status by their names, empty when it has ended."""
    return dict(line.split(":\t", 1) for line in text(pid, name).splitlines() if ":\t" in line)


def memory(pid, name="VmRSS"):
    """In bytes; 0 when it has ended."""
    return int(fields(pid).get(name, "0").split()[0]) << 10


def listing(pid, name):
    """The names in a folder below /proc/PID, empty when the process has ended."""
    with contextlib.suppress(*GONE):
        return os.listdir(f"/proc/{pid}/{name}")
    return []


def descriptors(pid):
    """The number of its open descriptors."""
    return len(listing(pid, "fd"))


def threads(pid):
    return [int(thread) for thread in listing(pid, "task")]


def switches(pid):
    """For each of its threads, how often it has waited for something."""
    counts = {thread: fields(pid, f"task/{thread}/status").get("voluntary_ctxt_switches")
              for thread in threads(pid)}
    return {thread: int(count) for thread, count in counts.items() if count is not None}


def children(pid):
    """The children of all its threads."""
    return {int(child) for thread in threads(pid)
            for child in text(pid, f"task/{thread}/children").split()}


def is_running(pid):
    """Tells whether the process exists and is not an unreaped zombie."""
    state = text(pid, "stat").rpartition(")")[2].split()
    return bool(state) and state[0] != "Z"


def _state(pid, thread):
    """A letter, such as S for sleeping. Empty when the thread has ended."""
    return text(pid, f"task/{thread}/stat").rpartition(")")[2].strip()[:1]


def is_still(pid):
    """Whether no thread of it runs. After SIGSTOP that takes some time, since a
    system call may end first. True also when it has ended."""
    return all(_state(pid, thread) in "TZX" for thread in threads(pid))


def sleeps(pid):
    """Whether its first thread waits for something."""
    return _state(pid, pid) == "S"


def is_sanitized(pid):
    """Whether a sanitizer keeps memory of its own in the process."""
    return "san.so" in text(pid, "maps")


def has_sanitizer_thread(pid):
    """Whether a thread of its own belongs to a sanitizer in the process."""
    return "libtsan.so" in text(pid, "maps")


class Usage:
    """The resources of a process at one moment; None when it has ended."""

    def __init__(self, pid):
        self.pid = pid
        self.descriptors = descriptors(pid)
        self.threads = len(threads(pid))
        self.children = len(children(pid))
        self.memory = memory(pid) >> 10  # in KiB

    @property
    def counts(self):
        return {"pid": self.pid, "descriptors": self.descriptors, "threads": self.threads,
                "children": self.children}

    def __repr__(self):
        return f"{self.counts}, {self.memory} KiB"
