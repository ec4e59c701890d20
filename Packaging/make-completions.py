#!/usr/bin/env python3
"""Writes the completions of keepwell for one shell to standard output.

Usage: make-completions.py bash|zsh|fish PROGRAM"""
import shlex
import sys

import description


def bash_cases(pairs):
    return "\n".join(f"    {shlex.quote(key)}) echo {shlex.quote(value)} ;;"
                     for key, value in pairs if value)


def offer_words(offer):
    """How the bash functions name an offer."""
    return offer if isinstance(offer, str) else " ".join(["words", *offer]) if offer else "nothing"


def bash(program):
    commands = list(program.walk())
    values = [(f"{command.path}|{name}", offer_words(command.offers(option)))
              for command in commands for option in command.known_options() if option.value
              for name in option.names]
    arguments = [(command.path, offer_words(command.offers(command.arguments[-1])))
                 for command in commands if command.arguments]
    options = [(command.path, " ".join(name for option in command.known_options()
                                       for name in option.names)) for command in commands]
    below = [(command.path, " ".join(each.name for each in command.commands))
             for command in commands]
    return f"""# Completions of keepwell for bash.

_keepwell_commands() {{
  case "$1" in
{bash_cases(below)}
  esac
}}

_keepwell_options() {{
  case "$1" in
{bash_cases(options)}
  esac
}}

# The kind of an option's value: files, words or unknown.
_keepwell_value() {{
  case "$1|$2" in
{bash_cases(values)}
  esac
}}

_keepwell_argument() {{
  case "$1" in
{bash_cases(arguments)}
  esac
}}

_keepwell_offer() {{
  local kind=${{1%% *}}
  case "$kind" in
    files)
      compopt -o filenames 2>/dev/null
      mapfile -t COMPREPLY < <(compgen -f -- "$2")
      ;;
    words) mapfile -t COMPREPLY < <(compgen -W "${{1#words}}" -- "$2") ;;
  esac
}}

_keepwell() {{
  local current=${{COMP_WORDS[COMP_CWORD]}} command='' value='' ended='' word index
  COMPREPLY=()
  for ((index = 1; index < COMP_CWORD; index++)); do
    word=${{COMP_WORDS[index]}}
    if [ -n "$value" ]; then
      [ "$word" = = ] || value=''
    elif [ -n "$ended" ]; then
      continue
    elif [ "$word" = -- ]; then
      ended=yes
    elif [[ $word == -* ]]; then
      value=$(_keepwell_value "$command" "$word")
    elif [[ " $(_keepwell_commands "$command") " == *" $word "* ]]; then
      command="${{command:+$command }}$word"
    fi
  done
  # The shell takes --option=value apart.
  [ "$current" != = ] || current=''
  if [ -n "$value" ]; then
    _keepwell_offer "$value" "$current"
  elif [[ $current == -* && -z $ended ]]; then
    _keepwell_offer "words $(_keepwell_options "$command")" "$current"
  else
    [ -z "$(_keepwell_argument "$command")" ] ||
      _keepwell_offer "$(_keepwell_argument "$command")" "$current"
    if [ -n "$(_keepwell_commands "$command")" ]; then
      local -a arguments=("${{COMPREPLY[@]}}")
      _keepwell_offer "words $(_keepwell_commands "$command")" "$current"
      COMPREPLY+=("${{arguments[@]}}")
    fi
  fi
}}

complete -F _keepwell keepwell
"""


def zsh_text(text):
    """Within single quotes and an explanation in brackets or behind a colon."""
    for character in "\\[]:":
        text = text.replace(character, "\\" + character)
    return text.replace("'", "'\\''")


def zsh_offer(offer):
    if offer == "files":
        return "_files"
    return f"({' '.join(offer)})" if offer else " "


def zsh_option(command, option):
    action = f":{zsh_text(option.value)}:{zsh_offer(command.offers(option))}" if option.value else ""
    names = option.names
    explanation = f"[{zsh_text(option.help)}]{action}"
    repeat = "*" if option.many else ""
    if len(names) == 1:
        return [f"'{repeat}{names[0]}{explanation}'"]
    others = f"'({' '.join(names)})'" if not repeat else "'*'"
    return [f"{others}{{{','.join(names)}}}'{explanation}'"]


def zsh_function(command):
    name = "_".join(["_keepwell", *command.path.replace("-", "_").split()])
    lines = [text for option in command.known_options() for text in zsh_option(command, option)]
    if command.commands:
        lines += ["'1: :->command'", "'*:: :->rest'"]
    # Beside verbs, files are offered in the place of both.
    arguments = [] if command.commands else command.arguments
    for number, argument in enumerate(arguments, 1):
        place = "*" if argument.many else number
        lines.append(f"'{place}:{zsh_text(argument.value or argument.names[0])}:"
                     f"{zsh_offer(command.offers(argument))}'")
    text = [f"{name}() {{", "  local curcontext=$curcontext state line", "  typeset -A opt_args",
            "  _arguments -C -S \\", " \\\n".join("    " + line for line in lines)]
    if command.commands:
        text += ["  case $state in", "    command)", "      local -a commands=("]
        text += [f"        '{each.name}:{zsh_text(each.summary)}'" for each in command.commands]
        files = ["      _files"] if command.arguments else []
        text += ["      )", "      _describe -t commands command commands", *files, "      ;;",
                 "    rest)", "      case $words[1] in"]
        text += [f"        {each.name}) {name}_{each.name.replace('-', '_')} ;;"
                 for each in command.commands]
        text += ["        *) _files ;;"] if files else []
        text += ["      esac", "      ;;", "  esac"]
    return "\n".join([*text, "}"])


def zsh(program):
    functions = "\n\n".join(zsh_function(command) for command in program.walk())
    return f"""#compdef keepwell
# Completions of keepwell for zsh.

{functions}

_keepwell "$@"
"""


def fish_text(text):
    return "'" + text.replace("\\", "\\\\").replace("'", "\\'") + "'"


def fish_offer(offer):
    if offer == "files":
        return " -r -F"
    return f" -x -a {fish_text(' '.join(offer))}" if offer else " -x"


def fish_lines(command):
    here = f"-n {fish_text(f'__keepwell_at {fish_text(command.path)}')}"
    for option in command.known_options():
        names = "".join(f" -l {name[2:]}" if name.startswith("--") else f" -s {name[1:]}"
                        for name in option.names)
        value = fish_offer(command.offers(option)) if option.value else ""
        yield f"complete -c keepwell {here}{names}{value} -d {fish_text(option.help)}"
    for each in command.commands:
        yield f"complete -c keepwell {here} -a {each.name} -d {fish_text(each.summary)}"
    if command.arguments:
        offer = command.offers(command.arguments[-1])
        if offer:
            what = "-F" if offer == "files" else f"-a {fish_text(' '.join(offer))}"
            yield f"complete -c keepwell {here} {what}"


def fish(program):
    commands = list(program.walk())
    paths = " ".join(fish_text(command.path) for command in commands if command.path)
    values = " ".join(sorted({name for command in commands for option in command.known_options()
                              if option.value for name in option.names}))
    lines = "\n".join(line for command in commands for line in fish_lines(command))
    return f"""# Completions of keepwell for fish.

# Whether the words so far name this command and none below it.
function __keepwell_at
    set -l path
    set -l skip
    for word in (commandline -opc)[2..-1]
        if test -n "$skip"
            set skip
        else if contains -- $word {values}
            set skip yes
        else if contains -- (string trim -- "$path $word") {paths}
            set path (string trim -- "$path $word")
        end
    end
    test "$path" = "$argv[1]"
end

complete -c keepwell -f
{lines}
"""


def main():
    if len(sys.argv) != 3 or sys.argv[1] not in ("bash", "zsh", "fish"):
        sys.exit(__doc__)
    maker = {"bash": bash, "zsh": zsh, "fish": fish}[sys.argv[1]]
    sys.stdout.write(maker(description.of_program(sys.argv[2])))


main()
