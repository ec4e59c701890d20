"""The output of `keepwell --describe`, for the makers of completions and of the
manual page."""
import json
import subprocess

# The names of values in the help that are paths, for a shell's completion.
FILES = {"PATH", "SOURCE", "DESTINATION", "PLIST", "APP", "FOLDER", "FILE"}
WORDS = {"BUS": ["system", "session"]}
# A value that means something of its own to one command.
OF_COMMAND = {("maintenance periodic", "NAME"): ["daily", "weekly", "monthly"]}


class Option:
    """An option, or an argument, which has one name without dashes."""

    def __init__(self, description):
        self.names = description["names"] if "names" in description else [description["name"]]
        self.value = description["value"]
        self.help = description["help"]
        self.required = description["required"]
        self.many = description["repeatable"]


class Command:
    """A command, or the whole program, whose path is empty. A noun has commands
    of its own, its verbs."""

    def __init__(self, description, words=(), parent=None):
        self.parent = parent
        self.name = words[-1] if words else description["name"]
        self.path = " ".join(words)
        self.summary = description["summary"]
        self.note = description.get("note", "")
        self.options = [Option(each) for each in description["options"]]
        self.arguments = [Option(each) for each in description.get("arguments", ())]
        self.examples = [(each["line"], each["meaning"])
                         for each in description.get("examples", ())]
        self.commands = []

    def walk(self):
        """Itself and all below."""
        yield self
        for command in self.commands:
            yield from command.walk()

    def known_options(self):
        """Its own and those of the program, which may come at any place."""
        own = {name for option in self.options for name in option.names}
        top = self
        while top.parent:
            top = top.parent
        more = [] if top is self else [option for option in top.options
                                       if not own & set(option.names)
                                       and "--version" not in option.names]
        return self.options + more

    def offers(self, option):
        """"files", a list of words, or None when nothing can be offered."""
        value = option.value.split(":")[0].strip()
        if (self.path, value) in OF_COMMAND:
            return OF_COMMAND[self.path, value]
        return "files" if value in FILES else WORDS.get(value)


def of_program(program):
    """The whole program with its commands."""
    printed = subprocess.run([program, "--describe"], check=True, capture_output=True).stdout
    description = json.loads(printed)
    top = Command(description)
    found = {"": top}
    for each in description["commands"]:  # nouns come before their verbs
        words = each["words"]
        parent = found[" ".join(words[:-1])]
        command = Command(each, words, parent)
        parent.commands.append(command)
        found[command.path] = command
    return top
