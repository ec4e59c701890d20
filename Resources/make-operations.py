#!/usr/bin/env python3
"""Writes the parts of the code that list the operations, from the description of
their interface: the rows of the agent's table, the client's calls, and on macOS
the protocol, the messages that a client sends and the methods that the agent
exports.

Usage: make-operations.py DESCRIPTION FOLDER"""
import pathlib
import sys
import xml.etree.ElementTree as ElementTree

INTERFACE = "org.keepwell.KWPrivilegedOperation"

# Where a message of macOS does not follow from the names of the bus. A message is
# named by its member, then by "withReply" or, of a second argument, its name.
LABELS = {("MoveItemAtPath", "dstPath"): "toPath"}
REPLY_LABELS = {"SizeOfItemAtPath": "reply"}
# An argument that may be nil.
MAY_BE_NIL = {("Echo", "text")}
# Calls whose form Sources/Client/Client.cpp has itself, since they differ from
# the others: with all forms, or with the form that does not block.
OWN_CALLS = {"RepairPermissions"}
OWN_ASYNC_CALLS = {"PleaseTerminate", "SecurelyRemoveItemAtPath", "MoveToTrashItemAtPath",
                   "RemoveLaunchdAgentAtPath"}

ERROR = "(sxa{sv})"
# Of each kind of reply its block on macOS, and how a client makes that block.
BLOCKS = {("b", ERROR): ("KWFlagBlock", "flag"), ("s", ERROR): ("KWTextBlock", "echo"),
          ("b", "i", "s"): ("KWRepairBlock", "repair"), ("x", ERROR): ("KWSizeBlock", "size"),
          ("s", "x", "s", ERROR): ("KWDiagnosticLogsBlock", "logs")}
# Of each kind of argument: its type in C++ and on macOS, how a client's message
# takes it, its letter there, and how the agent reads it.
KINDS = {"s": ("const std::string &", "NSString *", "text", "t", "requiredText"),
         "as": ("const std::vector<std::string> &", "NSArray *", "texts", "a", "requiredTexts")}


class Operation:
    def __init__(self, method):
        self.member = method.get("name")
        self.arguments = [(each.get("name"), KINDS[each.get("type")])
                          for each in method.findall("arg[@direction='in']")]
        replies = method.findall("arg[@direction='out']")
        self.replies = [each.get("name") for each in replies]
        self.block, self.maker = BLOCKS.get(tuple(each.get("type") for each in replies),
                                            (None, None))
        self.is_one_way = any(each.get("name").endswith("Method.NoReply")
                              for each in method.findall("annotation"))
        if not self.block and not self.is_one_way:
            sys.exit(f"make-operations.py: no block takes the reply of {self.member}")

    @property
    def call(self):
        """The client's name of it."""
        return self.member[0].lower() + self.member[1:]

    def labels(self):
        """Of each part of the message its label, argument and kind; None for the reply."""
        parts = [(LABELS.get((self.member, name), name), name, kind)
                 for name, kind in self.arguments]
        if parts:
            parts[0] = (self.call, *parts[0][1:])
        if not self.is_one_way:
            label = REPLY_LABELS.get(self.member, "withReply")
            parts.append((label if parts else f"{self.call}WithReply", None, None))
        return parts

    def selector(self):
        return "".join(f"{label}:" for label, _, _ in self.labels()) or self.call

    def message(self, reply, argument):
        """The message with the given texts for its reply and each argument."""
        return " ".join(f"{label}:{argument(name, kind) if name else reply}"
                        for label, name, kind in self.labels()) or self.call

    def declaration(self):
        return "- (void)" + self.message(f"({self.block})reply",
                                         lambda name, kind: f"({kind[1]}){name}")


def names(texts):
    return "{" + ", ".join(f'"{text}"' for text in texts) + "}"


def row(operation):
    selector = operation.selector()
    method = selector.split(":")[0]
    return (f'describe("{selector}", "{operation.member}", '
            f"{names(name for name, _ in operation.arguments)}, "
            f"&KWPrivilegedOperation::{method}, {names(operation.replies)}),")


def calls(operation):
    """Both forms, with the reply's type as Client.h declares it."""
    parameters = "".join(f"{kind[0]}{name}, " for name, kind in operation.arguments)
    passed = "".join(f"{name}, " for name, _ in operation.arguments)
    head = f"({parameters}const RequestOptions &options)"
    call = operation.call
    if operation.member not in OWN_CALLS | OWN_ASYNC_CALLS:
        arguments = ", ".join(name for name, _ in operation.arguments)
        yield (f"auto Client::{call}Async{head} -> decltype({call}Async({passed}options)) {{\n"
               f"  return start(&Client::{call}Async, engine_, "
               f'{{"{operation.member}", {{{arguments}}}}}, options);\n}}')
    if operation.member not in OWN_CALLS:
        yield (f"auto Client::{call}{head} -> decltype({call}({passed}options)) {{\n"
               f"  return {call}Async({passed}options).get();\n}}")


def request(operation):
    indexes = {name: index for index, (name, _) in enumerate(operation.arguments)}
    kinds = "".join(kind[3] for _, kind in operation.arguments)
    message = operation.message(f"call.{operation.maker}().get()",
                                lambda name, kind: f"call.{kind[2]}({indexes[name]})")
    call = "" if operation.is_one_way else "call"
    return (f'{{"{operation.member}", "{kinds}", [](Agent agent, const Call &{call}) {{ '
            f"[agent {message}]; }}}},")


def method(operation):
    def read(name, kind):
        function = "optionalText" if (operation.member, name) in MAY_BE_NIL else kind[4]
        return f"{function}({name})"
    arguments = ", ".join(read(name, kind) for name, kind in operation.arguments)
    reply = "XPCReply(nullptr)" if operation.is_one_way else "replyTo(reply)"
    return (f"{operation.declaration()} {{\n"
            f"  serve(*served, _cmd, {{{arguments}}}, {reply});\n}}")


FILES = {
    "OperationTable.inc": lambda each: [row(each)],
    "ClientCalls.inc": calls,
    "OperationMessages.inc": lambda each: [f"{each.declaration()};"],
    "OperationRequests.inc": lambda each: [request(each)],
    "OperationMethods.inc": lambda each: [method(each)],
}


def main():
    description, folder = map(pathlib.Path, sys.argv[1:])
    root = ElementTree.parse(description).getroot()
    operations = [Operation(each) for each in root.findall(f"interface[@name='{INTERFACE}']/method")]
    folder.mkdir(parents=True, exist_ok=True)
    for name, lines in FILES.items():
        text = "\n".join([f"// Made from {description.name} by {pathlib.Path(__file__).name}.",
                          *(line for each in operations for line in lines(each)), ""])
        file = folder / name
        if not file.exists() or file.read_text(encoding="utf-8") != text:
            file.write_text(text, encoding="utf-8")  # only then, for the sake of what includes it


main()
