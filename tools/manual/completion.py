#!/usr/bin/env python3
"""Writes the completion of a program that has commands, for three shells: completion.py FOLDER PROGRAM

It completes the options and commands that --help lists and the options of each command. A command of the process that
the program talks to is the first word of a line of "PROGRAM help"; these are asked for when they are needed.
"""

import pathlib
import string
import sys

import help_text

BASH = """\
# Completes the commands and options of $name.
_$name() {
    local word=$${COMP_WORDS[COMP_CWORD]} verb='' words='' i
    COMPREPLY=()
    [[ $${COMP_WORDS[COMP_CWORD - 1]} == @($values) ]] && return
    for ((i = 1; i < COMP_CWORD; i++)); do
        case $${COMP_WORDS[i]} in
            $values) ((++i)) ;;
            -*) ;;
            *) verb=$${COMP_WORDS[i]} && break ;;
        esac
    done
    case $$verb in
        '')
            words='$words'
            [[ $$word == -* ]] || words+=" $$("$${COMP_WORDS[@]:0:COMP_CWORD}" $ask 2>/dev/null | sed 's/ .*//')"
            ;;
$cases
    esac
    mapfile -t COMPREPLY < <(compgen -W "$$words" -- "$$word" | sort -u) # the process may have a command of that name
}
complete -o default -F _$name $name
"""
BASH_CASE = """\
        $verb) words='$words' ;;"""

ZSH = """\
#compdef $name
# Completes the commands and options of $name.
_$name() {
    local -a options verbs names commands
    local verb='' i
    [[ $$words[CURRENT-1] == ($values) ]] && return
    for ((i = 2; i < CURRENT; i++)); do
        case $$words[i] in
            ($values) ((++i)) ;;
            (-*) ;;
            (*) verb=$$words[i]; break ;;
        esac
    done
    case $$verb in
        ('')
            options=($options)
            verbs=($verbs)
            commands=($${$${(f)"$$($${words[1,CURRENT-1]} $ask 2>/dev/null)"}%% *})
            names=($${verbs%%:*})
            commands=($${commands:|names}) # the process may have a command of that name
            _describe -t verbs command verbs
            compadd -a commands
            ;;
$cases
    esac
    _describe -o option options
    [[ $$verb != ($with_files) ]] || _files
}
_$name "$$@"
"""
ZSH_CASE = """\
        ($verb) options=($options) ;;"""

FISH = """\
# Completes the commands and options of $name.
function __${name}_is_verb
    set -l words (commandline -opc)
    set -l verb ''
    set -l i 2
    while test $$i -le (count $$words)
        switch $$words[$$i]
            case $values
                set i (math $$i + 1)
            case '-*'
            case '*'
                set verb $$words[$$i]
                break
        end
        set i (math $$i + 1)
    end
    test "$$verb" = "$$argv"
end
function __${name}_commands
    set -l words (commandline -opc)
    $$words $ask 2>/dev/null | string replace -r ' .*' ''
end
complete -c $name -n __${name}_is_verb -f -a '(__${name}_commands)'
$cases
"""


def quoted(text):
    """A word for a shell; the three agree on this form."""
    return "'" + text.replace("'", "'\\''") + "'"


def words_of(items):
    return " ".join(name for item in items for name in item.options())


def described(items):
    return " ".join(quoted(f"{name}:{item.text}") for item in items for name in item.options())


def fish_lines(name, verb, items, files):
    condition = f"complete -c {name} -n {quoted(f'__{name}_is_verb {verb}'.strip())}"
    if not files:
        yield f"{condition} -f"
    for item in items:
        names = " ".join(f"-{'l' if one.startswith('--') else 's'} {one.lstrip('-')}" for one in item.options())
        yield f"{condition} {names}{' -x' if item.takes_value() else ''} -d {quoted(item.text)}"


def main():
    folder, program = pathlib.Path(sys.argv[1]), sys.argv[2]
    top = help_text.help_of(program)
    if not top.commands:
        raise SystemExit(f"{program} --help lists no commands")
    verbs = {command.names: help_text.help_of(program, command.names) for command in top.commands}
    takes_file = ("FILE", "RECORDING")
    with_files = [verb for verb, its in verbs.items() if any(one.names.startswith(takes_file) for one in its.arguments)]
    all_options = [option for its in (top, *verbs.values()) for option in its.options]
    valued = dict.fromkeys(one for option in all_options if option.takes_value() for one in option.options())

    def fill(template, **values):
        return string.Template(template).substitute(name=top.name, ask="--timeout 1 help", **values)

    def cases(template):
        return "\n".join(
            string.Template(template).substitute(verb=verb, words=words_of(its.options), options=described(its.options))
            for verb, its in verbs.items()
        )

    fish = list(fish_lines(top.name, "", top.options, False))
    for command in top.commands:
        verb = command.names
        fish.append(f"complete -c {top.name} -n __{top.name}_is_verb -f -a {verb} -d {quoted(command.text)}")
        fish.extend(fish_lines(top.name, verb, verbs[verb].options, verb in with_files))
    texts = {
        f"{top.name}.bash": fill(
            BASH, values="|".join(valued), words=f"{words_of(top.options)} {' '.join(verbs)}", cases=cases(BASH_CASE)
        ),
        f"_{top.name}": fill(
            ZSH,
            values="|".join(valued),
            options=described(top.options),
            verbs=" ".join(quoted(f"{command.names}:{command.text}") for command in top.commands),
            cases=cases(ZSH_CASE),
            with_files="|".join(with_files),
        ),
        f"{top.name}.fish": fill(FISH, values=" ".join(valued), cases="\n".join(fish)),
    }
    folder.mkdir(parents=True, exist_ok=True)
    for file, text in texts.items():
        (folder / file).write_text(text, encoding="utf-8")


if __name__ == "__main__":
    main()
