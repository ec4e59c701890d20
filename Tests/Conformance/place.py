"""The place of a scenario: a folder of its own, the command, and the checks of
both."""
import base64
import json
import os
import shutil
import subprocess

from .suite import Failed, NotApplicable

DONE, REFUSED, USAGE, NO_ANSWER = 0, 1, 2, 3
COCOA = "NSCocoaErrorDomain"
SECONDS = 300  # after which the command counts as hanging


class Answer:
    """The result of one run of the command: exit status, texts, and the objects
    of its JSON lines."""

    def __init__(self, words, done):
        self.words = words
        self.status = done.returncode
        self.text = done.stdout.decode("utf-8", "replace")
        self.errors = done.stderr.decode("utf-8", "replace")

    @property
    def objects(self):
        try:
            found = [json.loads(line) for line in self.text.splitlines()]
        except ValueError:
            raise Failed(f"{self}: a line is no JSON") from None
        if not found:
            raise Failed(f"{self}: no JSON")
        for each in found:
            if "progress" not in each and ("error" in each) == each.get("success"):
                raise Failed(f"{self}: an object has an error and success, or neither")
        return found

    def __str__(self):
        words = " ".join(map(repr, self.words))
        if len(words) > 300:
            words = words[:150] + " ... " + words[-150:]
        return (f"keepwell {words}: status {self.status}, output {self.text[-2000:]!r}, "
                f"errors {self.errors[-2000:]!r}")


class Place:
    def __init__(self, command, folder, host, other_volume=None):
        self.command = command
        self.folder = folder
        self.host = host
        self._other_volume = other_volume

    def __enter__(self):
        os.mkdir(self.folder)
        return self

    def __exit__(self, *_):
        clear(self.folder, self.host, self.command)
        if self._other_volume:
            for name in os.listdir(self._other_volume):
                clear(f"{self._other_volume}/{name}", self.host, self.command)

    # Items.
    def path(self, name):
        return f"{self.folder}/{name}"

    def file(self, name, content=b"content"):
        path = self.path(name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "wb") as file:
            file.write(content)
            file.flush()
            os.fsync(file.fileno())  # so that the disk has given out its blocks
        return path

    def small_file(self, name):
        """Like file(), for many: it may still have no blocks on the disk."""
        path = self.path(name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "wb") as file:
            file.write(b"x")
        return path

    def mkdir(self, name):
        os.makedirs(self.path(name), exist_ok=True)
        return self.path(name)

    def link(self, target, name):
        os.symlink(target, self.path(name))
        return self.path(name)

    def other_volume(self):
        """A folder on another volume."""
        if not self._other_volume:
            raise NotApplicable("no folder on another volume: --volume")
        if os.stat(self._other_volume).st_dev == os.stat(self.folder).st_dev:
            raise NotApplicable("--volume names a folder on the same volume")
        return self._other_volume

    def lock(self, *paths):
        """No user, root included, can change or remove them until they are unlocked."""
        for path in paths:
            self.host.lock(path)

    # The command.
    def run(self, *words, text=b"", folder=None):
        """Runs it without a terminal, so that it asks no question."""
        try:
            done = subprocess.run([self.command, *words], input=text, capture_output=True,
                                  check=False, timeout=SECONDS, start_new_session=True,
                                  cwd=folder or self.folder)
        except subprocess.TimeoutExpired:
            raise Failed(f"keepwell {words} did not end within {SECONDS} s") from None
        return Answer(words, done)

    def start(self, *words):
        return subprocess.Popen([self.command, *words], stdin=subprocess.DEVNULL,
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                start_new_session=True, cwd=self.folder)

    def objects(self, *words, status=DONE, text=b""):
        """The objects that it prints with --json."""
        answer = self.run("--json", *words, text=text)
        if answer.status != status:
            raise Failed(f"{answer}: status {status} expected")
        if answer.errors:
            raise Failed(f"{answer}: --json leaves standard error empty")
        return answer.objects

    def done(self, *words, text=b""):
        """The last object of a request that must be done."""
        last = self.objects(*words, text=text)[-1]
        expect(last["success"], True, f"success of {words}")
        return last

    def refused(self, *words, text=b""):
        """The error of a request that must be refused."""
        last = self.objects(*words, status=REFUSED, text=text)[-1]
        expect(last["success"], False, f"success of {words}")
        return last["error"]

    def prepared(self, *words):
        """The same as done, for a step by another operation than the judged one."""
        answer = self.run("--json", *words)
        if answer.status != DONE:
            raise NotApplicable(f"its preparation failed: {answer}")

    def said(self, *words, status=DONE, text=b""):
        """The text for people."""
        answer = self.run(*words, text=text)
        expect(answer.status, status, f"status of {answer}")
        return answer.text if status == DONE else answer.errors


def expect(actual, expected, what):
    if actual != expected:
        raise Failed(f"{what} is {actual!r}, not {expected!r}")


def expect_true(holds, what):
    if not holds:
        raise Failed(f"not so: {what}")


def expect_gone(*paths):
    for path in paths:
        if os.path.lexists(path):
            raise Failed(f"{path} is still there")


def expect_content(path, content):
    try:
        with open(path, "rb") as file:
            actual = file.read()
    except OSError as error:
        raise Failed(f"{path} cannot be read: {error.strerror}") from None
    if actual != content:
        raise Failed(f"{path} holds {actual[:100]!r}, not {content[:100]!r}")


def expect_error(error, code, path=None, domain=COCOA):
    """The platform's error, whose user info names the path."""
    expect((error.get("domain"), error.get("code")), (domain, code), f"domain and code of {error}")
    if path is not None:
        expect(error["userInfo"].get("NSFilePath"), path, f"the path of {error}")


def expect_no_reason(error):
    """The operations other than moves and removals pass no error with their no."""
    expect(error.get("kind"), "failed", f"the kind of {error}")
    expect_true("domain" not in error, f"{error} is no error of the agent's")


def bytes_of(each, name):
    """The bytes of a name in the output, also if they are invalid UTF-8."""
    return (base64.b64decode(each[f"{name}Base64"]) if f"{name}Base64" in each
            else os.fsencode(each[name]))


def clear(path, host, command):
    """Removes a scenario's own item with all that it left there, and tells
    whether that worked."""
    if not os.path.lexists(path):
        return True
    host.unlock(path)
    if os.path.isdir(path) and not os.path.islink(path):
        shutil.rmtree(path, ignore_errors=True)
    else:
        try:
            os.unlink(path)
        except OSError:
            pass
    if os.path.lexists(path):
        # Folders that the agent made belong to root.
        subprocess.run([command, "remove", "--yes", path], check=False, capture_output=True,
                       stdin=subprocess.DEVNULL, start_new_session=True)
    return not os.path.lexists(path)


def answers(command):
    """Whether an agent answers at all."""
    return subprocess.run([command, "--timeout", "60", "echo", "x"], check=False,
                          capture_output=True, stdin=subprocess.DEVNULL,
                          start_new_session=True).returncode == DONE
