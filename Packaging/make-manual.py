#!/usr/bin/env python3
"""Writes a manual page to standard output.

Usage: make-manual.py command PROGRAM TEMPLATE     keepwell(1)
       make-manual.py interface XML TEMPLATE       the bus interface's page

In the template @OPTIONS@ and @COMMANDS@, or @MEMBERS@, stand for the texts
of the program itself or of the interface's description."""
import sys
import textwrap
import xml.etree.ElementTree as ElementTree

import description


def guarded(line):
    """A line that must not be taken for a request."""
    return "\\&" + line if line[:1] in (".", "'") else line


def text(words):
    """As lines of text."""
    words = words.replace("\\", "\\e").replace("--", "\\-\\-")
    lines = textwrap.wrap(words, 78, break_long_words=False, break_on_hyphens=False)
    return "\n".join(map(guarded, lines))


def word(words):
    """As arguments of a macro, none of them a macro itself."""
    return " ".join("\\&" + each for each in words.replace("\\", "\\e").split())


def sentence(words):
    words = words.strip()
    return text(words if words.endswith((".", ":", "?")) else words + ".")


def paragraphs(words):
    """A sentence a line, as manual pages are written."""
    return "\n".join(text(each) for each in words.replace(". ", ".\n").split("\n") if each)


def flag(name):
    # Fl puts one dash itself.
    return "Fl " + name[1:].replace("-", "\\-")


def option_item(option):
    value = f" Ar {word(option.value)}" if option.value else ""
    names = " , ".join(flag(name) for name in option.names)
    return f".It {names}{value}\n{sentence(option.help)}"


def options_list(options):
    if not options:
        return []
    return [".Bl -tag -width Ds", *map(option_item, options), ".El"]


def own_options(command):
    """Without those that every command has."""
    return [option for option in command.options if "--help" not in option.names]


def synopsis(command):
    line = [f".Nm keepwell Cm {word(command.path)}" if command.parent else ".Nm keepwell"]
    for option in own_options(command):
        value = f" Ar {word(option.value)}" if option.value else ""
        both = f"{flag(option.names[-1])}{value}"
        line.append(f".{both}" if option.required else f".Op {both}")
    for argument in command.arguments:
        dots = " ..." if argument.many else ""
        name = word(argument.value or argument.names[0])
        line.append(f".Ar {name}{dots}" if argument.required else f".Op Ar {name}{dots}")
    return line


def examples_list(examples):
    if not examples:
        return []
    lines = [".Pp", "Examples:", ".Bl -tag -width Ds"]
    for line, meaning in examples:
        typed = " ".join(map(word, line.split(" "))).replace("-", "\\-").replace("~", "\\(ti")
        lines += [f".It Ic {typed}", sentence(meaning[:1].upper() + meaning[1:])]
    return [*lines, ".El"]


def command_section(command):
    lines = [f".Ss {word('keepwell ' + command.path)}"]
    if command.arguments or not command.commands:
        lines += [*synopsis(command), ".Pp"]
    lines.append(sentence(command.summary))
    if command.note:
        lines.append(paragraphs(command.note))
    # The name of an operand alone says enough; its help may add to that.
    told = [argument for argument in command.arguments if argument.help]
    options = own_options(command)
    if told or options:
        lines += [".Bl -tag -width Ds"]
        lines += [f".It Ar {word(argument.value or argument.names[0])}\n{sentence(argument.help)}"
                  for argument in told]
        lines += [*map(option_item, options), ".El"]
    lines += examples_list(command.examples)
    return lines


def command_page(program_path, template):
    program = description.of_program(program_path)
    commands = [line for command in program.walk() if command.parent
                for line in command_section(command)]
    return (template.replace("@OPTIONS@", "\n".join(options_list(program.options)))
            .replace("@COMMANDS@", "\n".join(commands)))


def arguments_of(member, direction):
    found = [f"{each.get('name')} ({each.get('type')})" for each in member.findall("arg")
             if each.get("direction", "out") == direction]
    return ", ".join(found)


def member_section(member):
    lines = [f".It Fn {member.get('name')}" if member.tag == "method"
             else f".It Signal {member.get('name')}"]
    for doc in member.findall("annotation"):
        if doc.get("name").endswith("DocString"):
            lines.append(paragraphs(doc.get("value")))
    given = arguments_of(member, "in")
    answered = arguments_of(member, "out")
    if member.tag == "signal":
        given, answered = answered, ""
    for what, values in (("Takes", given), ("Replies with", answered)):
        if values:
            lines += [".br", text(f"{what}: {values}.")]
    return lines


def interface_page(xml, template):
    sections = []
    for interface in ElementTree.parse(xml).getroot().findall("interface"):
        sections += [f".Ss {word(interface.get('name'))}"]
        for doc in interface.findall("annotation"):
            sections.append(paragraphs(doc.get("value")))
        sections.append(".Bl -tag -width Ds")
        for member in interface:
            if member.tag in ("method", "signal"):
                sections += member_section(member)
        sections.append(".El")
    return template.replace("@MEMBERS@", "\n".join(sections))


def main():
    makers = {"command": command_page, "interface": interface_page}
    if len(sys.argv) != 4 or sys.argv[1] not in makers:
        sys.exit(__doc__)
    with open(sys.argv[3], encoding="utf-8") as file:
        template = file.read()
    sys.stdout.write(makers[sys.argv[1]](sys.argv[2], template))


main()
