#!/usr/bin/env python3
"""usage: translations.py template|texts ROOT
The translations of the programs: whether the template is what the sources hold, and whether each language has every
text, with the same fields and its own plural forms. Prints one line for each fault and exits 1."""

import re
import subprocess
import sys
import tempfile
from pathlib import Path

LANGUAGES = ["de", "fr"]
CATALOGUES = ["stillora", "stillora-file-managers", "man"]
QUOTED = re.compile(r'"((?:[^"\\]|\\.)*)"')
FIELD = re.compile(r"\{[^{}]*\}")
# Where the build puts in what the program knows of itself.
PLACE = re.compile(r"@[A-Z][A-Za-z ]*@")


class Entry:
    """A text of a catalogue with its translations: one, or one for each plural form."""

    def __init__(self):
        self.texts = []
        self.translations = []
        self.is_fuzzy = False
        self.is_obsolete = False


def unquoted(line):
    text = QUOTED.search(line)[1]
    return re.sub(r"\\(.)", lambda match: {"n": "\n", "t": "\t"}.get(match[1], match[1]), text)


def entries(catalogue):
    """The entries of a catalogue; the first one, its header, has an empty text."""
    for block in catalogue.split("\n\n"):
        entry, last = Entry(), None
        for line in block.splitlines():
            if line.startswith("#~"):
                entry.is_obsolete = True
            elif line.startswith("#,"):
                entry.is_fuzzy = entry.is_fuzzy or "fuzzy" in line
            elif line.startswith("msgid"):
                last = entry.texts
                last.append(unquoted(line))
            elif line.startswith("msgstr"):
                last = entry.translations
                last.append(unquoted(line))
            elif line.startswith('"') and last:
                last[-1] += unquoted(line)
        if entry.texts or entry.is_obsolete:
            yield entry


def fields(text):
    """Each field that a text has, by its name or number, or by its place where it has neither, and its form."""
    found = set()
    for place, field in enumerate(FIELD.findall(text)):
        number, _, form = field[1:-1].partition(":")
        found.add((int(number) if number.isdigit() else number or place, form))
    return found


def faults_of_entry(entry, forms):
    name = entry.texts[0] if entry.texts else "an entry"
    if entry.is_obsolete:
        yield f"{name!r} is in no source any more"
        return
    if entry.is_fuzzy:
        yield f"{name!r} is marked as fuzzy"
    if not all(entry.translations):
        yield f"{name!r} is not translated"
        return
    if len(entry.translations) != (forms if len(entry.texts) > 1 else 1):
        yield f"{name!r} has {len(entry.translations)} plural forms"
    for translation in entry.translations:
        # The number may be a word in a form of its own.
        wanted = fields(entry.texts[-1])
        if fields(translation) != wanted and not (len(entry.texts) > 1 and fields(translation) == fields(entry.texts[0])):
            yield f"{name!r} has other fields in {translation!r}"
        if sorted(PLACE.findall(translation)) != sorted(PLACE.findall(entry.texts[0])):
            yield f"{name!r} has other places to be filled in {translation!r}"
        if re.search(r"%[-+ #0]*\d*[sdiufgxc]\b", translation):
            yield f"{name!r} has a field of printf in {translation!r}"
        # Commands of an example stay as they are.
        if '"' in translation and translation != entry.texts[0]:
            yield f"{name!r} has quotes of English in {translation!r}"
        if translation.endswith("\n") != entry.texts[0].endswith("\n"):
            yield f"{name!r} ends in another line in {translation!r}"


def faults_of_language(language, text):
    """@param text  of the language's catalogue"""
    all_entries = list(entries(text))
    forms = re.search(r"nplurals=(\d+)", all_entries[0].translations[0])
    if not forms:
        yield "its header does not tell the plural forms"
        return
    if len(all_entries) < 2:
        yield "there are no texts"
    for entry in all_entries[1:]:
        yield from faults_of_entry(entry, int(forms[1]))
        for translation in entry.translations:
            if language == "fr" and translation != entry.texts[0] and re.search(r"(?<=[^\s\u00a0])[;!?](?=\s|$)| [;:!?](?=\s|$)", translation):
                yield f"{entry.texts[0]!r} has no space that keeps a mark beside its word in {translation!r}"


def check_texts(root):
    for catalogue in CATALOGUES:
        for language in LANGUAGES:
            path = Path("po", catalogue, f"{language}.po")
            text = (root / path).read_text(encoding="utf-8")
            for fault in faults_of_language(language, text):
                yield f"{path}: {fault}"


def check_template(root):
    with tempfile.TemporaryDirectory() as folder:
        subprocess.run([root / "po/update-translations", folder], check=True)
        for catalogue in CATALOGUES:
            template = Path("po", catalogue, f"{catalogue}.pot")
            fresh = Path(folder, f"{catalogue}.pot").read_bytes()
            if fresh != (root / template).read_bytes():
                yield f"{template}: not what the sources hold; po/update-translations makes it anew"
    for catalogue in CATALOGUES:
        texts = texts_of(root / "po" / catalogue / f"{catalogue}.pot")
        for language in LANGUAGES:
            path = Path("po", catalogue, f"{language}.po")
            own = texts_of(root / path)
            for missing in sorted(texts - own):
                yield f"{path}: {missing[0]!r} is missing"
            for extra in sorted(own - texts):
                yield f"{path}: {extra[0] if extra else 'an entry'!r} is not in the template"


def texts_of(path):
    return {tuple(entry.texts) for entry in entries(path.read_text(encoding="utf-8"))}


CHECKS = {"template": check_template, "texts": check_texts}


def main():
    faults = list(CHECKS[sys.argv[1]](Path(sys.argv[2]).resolve()))
    print("\n".join(faults))
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
