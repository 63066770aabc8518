#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Checks README.md and the other documents, and runs their command lines.

Links to files lead somewhere, sources and tests that are named exist, every promise names what shows
it, and code that is shown is the project's.
Every block of the language sh is run from the project's root, in the order in which they stand, in
one shell a document; the first command that fails ends the run. A note above a block changes that:
  <!-- run by .ci/run -->       its commands must be among those of .ci/run, and are not run here
  <!-- not run: the reason -->  the reason is printed
  <!-- output -->               of a block of the language text: what the block before must print
  <!-- same as FILE -->         of a block of the language cpp: it must be the file, but for its licence
  <!-- part of FILE -->         of a block of the language cpp: it must occur there, indented or not
Usage: documents.py [DOCUMENT...]   (all if none is given)
"""

import re
import subprocess
import sys
import tempfile
from pathlib import Path

BLOCK = re.compile(r"^(?:<!-- ([^\n]*) -->\n+)?```(\w*)\n(.*?)^```$", re.M | re.S)
# By the language of the block.
NOTES = {"sh": r"(run by \.ci/run|not run: .+)?", "text": "(output)?",
         "cpp": r"((same as|part of) \S+)?", "": ""}
SOURCES = [str(path) for folder in ("v2", "host", "tools", "examples", "tests", "bench", "fuzz")
           for path in Path(folder).rglob("*.*")]
TESTS = {name for source in SOURCES if source.endswith("_test.cpp")
         for suite, test in re.findall(r"^TEST(?:_F|_P)?\((\w+),\s*(\w+)", Path(source).read_text(), re.M)
         for name in (suite, f"{suite}.{test}")}


def lines(text):
    return [line.strip() for line in text.splitlines() if "SPDX-License-Identifier" not in line]


def is_shown(code, note):
    """Whether code is what its note says that it is."""
    relation, file = note.rsplit(" ", 1)
    shown, whole = lines(code), lines(Path(file).read_text())
    if relation == "same as":
        return shown == whole
    return "\n".join(shown) in "\n".join(whole)


def is_run_by_ci(code):
    commands = [line.split("#")[0].strip() for line in code.splitlines()]
    return all(f"run {command}\n" in Path(".ci/run").read_text() for command in commands)


def faults(document):
    text = document.read_text()
    prose = BLOCK.sub("", text)
    for target in re.findall(r"\]\(([^():# ]+)[)#]", prose):
        if not (document.parent / target).exists():
            yield f"there is no {target}"
    for name in re.findall(r"`([a-z][a-z0-9_/-]*\.(?:cpp|h))`", prose):
        if not any(f"/{source}".endswith(f"/{name}") for source in SOURCES):
            yield f"there is no {name}"
    for name in re.findall(r"`([A-Z]\w*Tests?(?:\.\w+)?)`", prose):
        if name not in TESTS:
            yield f"there is no {name}"
    promises = prose.partition("## Promises")[2].partition("\n## ")[0]
    for row in re.findall(r"^\| .* \|$", promises, re.M)[1:]:
        if "`" not in row.split(" | ")[-1]:
            yield f"nothing shows the promise {row}"
    for note, language, code in BLOCK.findall(text):
        if language not in NOTES or not re.fullmatch(NOTES[language], note):
            yield f"no block has the language '{language}' and the note '{note}'"
        elif language == "cpp" and note and not is_shown(code, note):
            yield f"this is not '{note}':\n{code}"
        elif note == "run by .ci/run" and not is_run_by_ci(code):
            yield f".ci/run does not run all of\n{code}"


def run(document, work):
    """Runs the document's blocks. What each has printed is kept in a file with its number."""
    blocks = BLOCK.findall(document.read_text())
    script = "set -euo pipefail\n"
    for number, (note, language, code) in enumerate(blocks):
        if language == "sh" and not note:
            script += f"{{\n{code}}} >{work}/{number} 2>&1 </dev/null\n"
    failed = subprocess.run(["bash", "-c", script], check=False).returncode != 0
    for number, (note, language, code) in enumerate(blocks):
        printed = work / str(number)
        if printed.exists():
            print(re.sub("^", "$ ", code.strip(), flags=re.M), printed.read_text(), sep="\n")
            output = printed.read_text()
        elif note.startswith("not run"):
            print(note)
        elif note == "output" and not failed and code != output:
            sys.exit(f"{document}: the output above is not\n{code}")
    if failed:
        sys.exit(f"{document}: the last command above has failed")


def main():
    all_documents = [*Path(".").glob("*.md"), *Path("docs").glob("*.md")]
    documents = [Path(name) for name in sys.argv[1:]] or sorted(all_documents)
    found = [f"{document}: {fault}" for document in documents for fault in faults(document)]
    if found:
        sys.exit("\n".join(found))
    for document in documents:
        print(f"\n== {document}", flush=True)
        with tempfile.TemporaryDirectory() as work:
            run(document, Path(work))


main()
