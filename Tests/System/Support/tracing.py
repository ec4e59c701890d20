"""Holds single threads of a process, while its other threads run on."""
import contextlib
import ctypes
import os

SEIZE, INTERRUPT, DETACH = 0x4206, 0x4207, 17  # as <sys/ptrace.h> numbers them
ANY_THREAD = 0x40000000  # __WALL, for os.waitpid

libc = ctypes.CDLL(None, use_errno=True)
libc.ptrace.argtypes = [ctypes.c_long, ctypes.c_long, ctypes.c_void_p, ctypes.c_void_p]
libc.ptrace.restype = ctypes.c_long


def request(number, thread):
    if libc.ptrace(number, thread, None, None) == -1:
        error = ctypes.get_errno()
        raise OSError(error, f"ptrace of thread {thread}: {os.strerror(error)}")


@contextlib.contextmanager
def held(threads):
    """The threads do not run within it. A stopped process may be continued
    meanwhile: then its other threads run. Threads that end are passed over."""
    holding = []
    try:
        for thread in threads:
            with contextlib.suppress(ProcessLookupError):
                request(SEIZE, thread)
                holding.append(thread)
                request(INTERRUPT, thread)
                os.waitpid(thread, ANY_THREAD)
        yield
    finally:
        for thread in holding:
            with contextlib.suppress(ProcessLookupError):
                request(DETACH, thread)
