#!/usr/bin/env python3
"""Generates what follows from the message lists and the compiler does not produce:

    generate.py [--check] [--tvctl PROGRAM] [ROOT]

Replaces the text between "begin generated: WHAT" and "end generated" in sources. With --tvctl, which must be built from
the current lists, it also writes docs/messages.md, the Python module's messages and results, and the golden messages.
--check writes nothing: it names each file that would change, and fails.
"""

import argparse
import pathlib
import re
import subprocess
import sys

import python_module
import sections
from lists import ListError, Service

BEGIN, END = "begin generated: ", "end generated"


def generated_sections(tv, mm):
    """Returns {file: {section: lines}}."""
    tv_folder, mm_folder = "frame-genrpc/app-tvservice-proxy/", "frame-genrpc/app-mmservice-proxy/"
    adapter, s = "tvservice-adapter/", sections
    result = {}
    for service, folder in ((tv, tv_folder), (mm, mm_folder)):
        requests, notifications = service.requests(), service.notifications()
        main = f"{folder}src/app-{service.name}-proxy-main"
        result[f"{folder}include/{service.name}/interfaces.h"] = {
            "notifications": s.pure_methods(service, notifications),
            "requests": s.pure_methods(service, requests),
        }
        result[f"{main}.h"] = {
            "senders": s.overrides(service, requests),
            "handlers": s.handler_declarations(service, notifications),
        }
        result[f"{main}.cpp"] = {
            "bindings": s.binds(service, notifications),
            "senders": s.senders(service, requests),
            "handlers": s.handlers(service, notifications),
        }
    requests = tv.requests()
    result[adapter + "src/client-objects.h"] = {"news": s.overrides(tv, tv.messages("NEWS"))}
    result[adapter + "src/client-news.cpp"] = {"news": s.fan_out(tv, tv.messages("NEWS"))}
    result[adapter + "src/tvservice-adapter.cpp"] = {"requests": s.forwarders(tv, requests)}
    result[adapter + "include/tvservice-adapter/model-tvservice-adapter.h"] = {
        "requests": s.adapter_declarations(tv, requests)
    }
    result[adapter + "exports.map"] = {"requests": s.exported_methods(tv, requests)}
    result["tests/unit/records_test.cpp"] = {"messages": s.layouts([tv, mm])}
    result["docs/examples/every-request/every-request.cpp"] = {"requests": s.example_calls(tv, requests)}
    return result


def replace_sections(file, text, lines_of):
    """Returns the text with the lines of its sections replaced."""
    found = re.findall(rf"{BEGIN}([\w ]+?)(?: \*/)?$", text, re.MULTILINE)
    if sorted(found) != sorted(lines_of):
        raise ListError(f"{file} has the sections {found}, expected {sorted(lines_of)}")
    for name, lines in lines_of.items():
        pattern = re.compile(rf"^(.*{BEGIN}{name}(?: \*/)?\n)(?:.*\n)*?(.*{END}.*\n)", re.MULTILINE)
        body = "".join(line + "\n" for line in lines)
        text = pattern.sub(lambda match, body=body: match[1] + body + match[2], text)
    return text


def is_current(file, found, wanted):
    """Whether a file has the generated content. Ignores whitespace in C++, which clang-format may change."""
    if None in (found, wanted) or not file.endswith((".h", ".cpp")):
        return found == wanted
    return "".join(found.split()) == "".join(wanted.split())


def files_from_schema(root, program):
    """Returns {file: text} of the files made from the program's schema; None for a file to remove."""
    sys.path.insert(0, str(root / "tests" / "decoder"))
    import golden  # pylint: disable=import-outside-toplevel
    from codec import Codec  # pylint: disable=import-outside-toplevel

    schema = golden.schema_of(program)
    golden_files = golden.files(Codec(schema))
    result = {f"tests/golden/{name}": text for name, text in golden_files.items()}
    result["docs/messages.md"] = subprocess.run(
        [program, "schema", "--markdown"], check=True, capture_output=True, text=True
    ).stdout
    result.update(python_module.files(schema))
    for file in (root / "tests" / "golden").glob("*.json"):
        if file.name not in golden_files:
            result[f"tests/golden/{file.name}"] = None
    return result


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--check", action="store_true")
    parser.add_argument("--tvctl")
    parser.add_argument("root", nargs="?", type=pathlib.Path, default=pathlib.Path(__file__).resolve().parents[2])
    arguments = parser.parse_args()
    root = arguments.root

    tv = Service("tvservice", root / "frame-genrpc/app-tvservice-proxy")
    mm = Service("mmservice", root / "frame-genrpc/app-mmservice-proxy")
    texts = {
        file: replace_sections(file, (root / file).read_text(encoding="utf-8"), lines)
        for file, lines in generated_sections(tv, mm).items()
    }
    texts["tvservice-adapter/exports.txt"] = "".join(name + "\n" for name in sections.exports(tv, mm))
    if arguments.tvctl:
        texts.update(files_from_schema(root, arguments.tvctl))

    changed = []
    for file, text in texts.items():
        path = root / file
        if is_current(file, path.read_text(encoding="utf-8") if path.exists() else None, text):
            continue
        changed.append(file)
        if arguments.check:
            continue
        if text is None:
            path.unlink()
        else:
            path.write_text(text, encoding="utf-8")
    for file in changed:
        print(("out of date: " if arguments.check else "wrote ") + file)
    if arguments.check and changed:
        print("run ./dev generate and commit the result")
        return 1
    return 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except ListError as error:
        sys.exit(f"generate: {error}")
