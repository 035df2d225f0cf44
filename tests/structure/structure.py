#!/usr/bin/env python3
"""Checks how the source tree is built up.

usage: structure.py CHECK ROOT

Prints one line for each fault, "file:line: reason", and exits 1 if there is one. The checks are the functions below
whose names begin with "check_", named without that beginning and with "-" for "_".
"""

import os
import re
import subprocess
import sys
from pathlib import Path

# The rooms of platform/, each with those that it may use; these stand before it.
ROOMS = {
    "foundation": "",
    "sandbox": "foundation",
    "propertylists": "foundation",
    "files": "foundation propertylists",
    "dispatch": "foundation",
    "archive": "foundation propertylists",
    "bytes": "foundation",
    "libav": "foundation files bytes",
    "pixels": "foundation files",
    "vips": "foundation",
    "picturefiles": "foundation files bytes pixels",
    "decoders": "foundation files bytes libav pixels vips picturefiles",
    "encoders": "foundation pixels vips",
    "graphics": "foundation files pixels decoders encoders",
    "faces": "foundation pixels",
    "connection": "foundation dispatch archive",
    "aac": "foundation libav",
    "sound": "foundation files dispatch bytes libav aac",
    "media": "foundation files dispatch bytes libav aac sound",
    "movie": "foundation files bytes libav media",
    "writer": "foundation files dispatch libav pixels media movie",
    "system": "foundation files dispatch pixels picturefiles decoders graphics",
}

# In lines.
LONGEST_ROOM = 3000

# What each folder may use besides itself; every room of platform/ stands as "platform/NAME".
ROOMS_OF_PLATFORM = [f"platform/{name}" for name in ROOMS]
USES = {f"platform/{name}": [f"platform/{used}" for used in uses.split()] for name, uses in ROOMS.items()}
USES["util"] = ROOMS_OF_PLATFORM
USES["items"] = ["util"] + USES["util"]
USES["video"] = ["items"] + USES["items"]
USES["audio"] = ["items"] + USES["items"]
USES["service"] = ["video", "audio"] + USES["video"]
USES["client"] = ["video", "audio"] + USES["video"]
# The window is a program like those of others; of what the project shares in secret it uses texts, locks and queues.
USES["window"] = ["client", "platform/foundation", "platform/dispatch"]
# What the client library shows to programs of others: nothing of what it is made of.
USES["include"] = []

# Libraries of media, images and text: the platform's sources alone know them, so that one can be exchanged.
BACKING = re.compile(
    r"^(libav\w+/|libsw\w+/|turbojpeg\.h|libdeflate\.h|jpeglib\.h|vips/|zimg|lcms2|pango/|cairo|plist/|taglib/|\w*(tag|file|frame)\.h$"
    r"|unicode/|opencv2/|hb[-.]|ft2build|fontconfig/|png\.h|tiff|webp/|libheif/|x26[45]\.h|seccomp\.h)"
)
COMMAND_LINE = re.compile(r"^getopt\.h$")
FORMATTING = re.compile(r"^fmt/")
DESKTOP = re.compile(r"^(gio/|glib|gobject/|gmodule|dbus/|systemd/)")
TOOLKIT = re.compile(r"^((gtkmm|gdkmm|giomm|glibmm|gtk|gdk)/|sigc\+\+/|adwaita\.h)")
TESTING = re.compile(r"^(gtest/|gmock/|benchmark/)")
SYSTEM = re.compile(
    r"^(sys/|linux/|bits/|arpa/|netinet/|cxxabi\.h|unistd\.h|fcntl\.h|dirent\.h|dlfcn\.h|endian\.h|elf\.h|errno\.h|execinfo\.h"
    r"|fnmatch\.h|ftw\.h|glob\.h|grp\.h|iconv\.h|immintrin\.h|arm_neon\.h|langinfo\.h|libintl\.h|limits\.h|locale\.h|malloc\.h|mntent\.h|poll\.h"
    r"|pthread\.h|pty\.h|pwd\.h|sched\.h|semaphore\.h|signal\.h|spawn\.h|stdint\.h|stdio\.h|stdlib\.h|string\.h"
    r"|strings\.h|syslog\.h|termios\.h|time\.h|utime\.h|wchar\.h|wordexp\.h)"
)
# The client library's headers, as those see them who use it installed.
INSTALLED = re.compile(r"^stillora/")
STANDARD = re.compile(r"^[a-z0-9_]+$")

# What decodes files, or leads there.
DECODING = re.compile(
    r"^(platform/(picturefiles|decoders|libav|vips|sound|movie)/|platform/media/(?!CMTime\.h)|platform/graphics/NSImage\.h|video/PhotoFrame\.h"
    r"|video/FrameProduction\.h|audio/MORAudio|util/(MORImageCategory|AverageColor)\.h)"
)

INCLUDE = re.compile(r'^[ \t]*#[ \t]*include[ \t]*(?:"([^"]+)"|<([^>]+)>)', re.MULTILINE)

CODE = (".h", ".cpp")


def files_below(root, suffixes=None):
    """Every file of the project, its path relative to `root`; what a build or a tool leaves there does not count."""
    found = []
    for folder, names, files in os.walk(root):
        names[:] = sorted(n for n in names if not n.startswith("build") and n not in (".git", "__pycache__"))
        for name in sorted(files):
            path = Path(folder, name).relative_to(root)
            # In a worktree .git is a file.
            if path.name != ".git" and (suffixes is None or path.suffix in suffixes):
                found.append(path)
    return found


def read(root, path):
    return (Path(root) / path).read_text(encoding="utf-8", errors="replace")


def without_comments(text):
    """The text with comments blanked, lines kept, so that a commented include is none."""
    blank = lambda match: re.sub(r"[^\n]", " ", match.group(0)) if match.group(0)[0] == "/" else match.group(0)
    return re.sub(r'"(?:\\.|[^"\\\n])*"|//[^\n]*|/\*.*?\*/', blank, text, flags=re.DOTALL)


def includes(root, path):
    """(line number, name, whether in quotes) of each include."""
    text = without_comments(read(root, path))
    for match in INCLUDE.finditer(text):
        line = text.count("\n", 0, match.start(1) if match.group(1) else match.start(2)) + 1
        yield line, match.group(1) or match.group(2), match.group(1) is not None


def folder_of(path):
    """The unit that a file belongs to: "video", "platform/media", "tests"; none for files at the top."""
    parts = Path(path).parts
    if len(parts) < 2:
        return None
    if parts[0] == "platform":
        return f"platform/{parts[1]}" if len(parts) > 2 else "platform"
    return parts[0]


def check_include_direction(root):
    """Includes point one way: client, service -> video, audio -> items -> util -> platform, and inside platform to the
    rooms that a room may use. They are written from the root."""
    for path in files_below(root, CODE):
        folder = folder_of(path)
        for line, name, quoted in includes(root, path):
            if not quoted:
                if INSTALLED.match(name) and not Path(root, "include", name).is_file():
                    yield f"{path}:{line}: <{name}> is no header of the client library"
                continue
            target = folder_of(name)
            if not (Path(root) / name).is_file():
                # What a folder's tests share may be named without their folder; a generated header has its pattern.
                beside = folder == "tests" and (Path(root) / path.parent / name).is_file()
                if not beside and not (Path(root) / (name + ".in")).is_file():
                    yield f"{path}:{line}: \"{name}\" is no file of the project, seen from its root"
            elif folder in USES:
                if target != folder and target not in USES[folder]:
                    yield f"{path}:{line}: {folder} includes \"{name}\", which points back or sideways"
            elif folder == "tests":
                # A test may use what its folder may; what the tests share stands in tests/support.
                own = folder_of(Path(*path.parts[1:]))
                allowed = [own, "tests"] + USES.get(own, list(USES))
                if target == "tests" and Path(name).parts[1] not in ("support", path.parts[1]):
                    yield f"{path}:{line}: a test includes another folder's test \"{name}\""
                elif target not in allowed:
                    yield f"{path}:{line}: a test of {own} includes \"{name}\", which {own} itself may not"


def check_window_public(root):
    """The window reaches the client by its public headers alone, but for the one of translated texts."""
    for path in files_below(root, CODE):
        if folder_of(path) == "window":
            for line, name, quoted in includes(root, path):
                if quoted and folder_of(name) == "client" and name != "client/text/LocalizedText.h":
                    yield f"{path}:{line}: \"{name}\" is no public header of the client library"


def check_reader_alone(root):
    """Of the client, the program that reads files alone decodes what strangers made."""
    for path in files_below(root, CODE):
        if folder_of(path) != "client" or Path("client/reader") in path.parents:
            continue
        for line, name, quoted in includes(root, path):
            if quoted and DECODING.match(name):
                yield f"{path}:{line}: \"{name}\" decodes, which client/reader does alone"


def check_linked_rooms(root):
    """A room of platform is linked with those alone that it may use."""
    for room, uses in ROOMS.items():
        path = Path("platform", room, "CMakeLists.txt")
        if not (Path(root) / path).is_file():
            continue
        text = read(root, path)
        for links in re.finditer(rf"^target_link_libraries\({room}\b([^)]*)\)", text, re.MULTILINE):
            for name in re.finditer(r"[\w:-]+", links[1]):
                if name[0] in ROOMS and name[0] not in uses.split():
                    line = text.count("\n", 0, links.start(1) + name.start()) + 1
                    yield f"{path}:{line}: {room} is linked with {name[0]}, which it may not use"


def room_of(path):
    """A room of platform/ with what is inside it, or any other folder of the product by itself."""
    folder = folder_of(path)
    return folder if folder in ROOMS_OF_PLATFORM else path.parent.as_posix()


def code_of_product(root):
    return [path for path in files_below(root, CODE) if folder_of(path) in USES]


def check_room_size(root):
    """No room has grown so long that nobody knows all of it."""
    lengths = {}
    for path in code_of_product(root):
        room = room_of(path)
        lengths[room] = lengths.get(room, 0) + read(root, path).count("\n")
    for room, lines in lengths.items():
        if lines > LONGEST_ROOM:
            yield f"{room}:1: {lines} lines, of at most {LONGEST_ROOM}: it is two rooms"


def check_circles(root):
    """Of two rooms one may know the other, not each the other, by way of a third neither."""
    uses = {}
    for path in code_of_product(root):
        for line, name, quoted in includes(root, path):
            if quoted and (Path(root) / name).is_file() and room_of(Path(name)) != room_of(path):
                uses.setdefault(room_of(path), {}).setdefault(room_of(Path(name)), f"{path}:{line}")

    def reached(room, passed):
        for other in uses.get(room, {}):
            if other not in passed:
                passed.add(other)
                reached(other, passed)
        return passed

    for room, others in sorted(uses.items()):
        for other, place in sorted(others.items()):
            if room in reached(other, set()):
                yield f"{place}: {room} uses {other}, which uses {room}"


def check_third_party_headers(root):
    """Media, image and text libraries are included by platform's sources alone, the command line parser by the client's;
    a header of the project shows none of them. A library that is not known here is refused until it is entered."""
    for path in files_below(root, CODE):
        folder = folder_of(path) or ""
        unit = folder.split("/")[0]
        source = path.suffix == ".cpp"
        for line, name, quoted in includes(root, path):
            if quoted or STANDARD.match(name) or SYSTEM.match(name):
                continue
            if TESTING.match(name):
                allowed, where = unit in ("tests", "bench"), "tests and benchmarks"
            elif unit in ("tests", "bench"):
                allowed, where = True, ""
            elif INSTALLED.match(name):
                allowed, where = unit in ("client", "include", "docs", "window"), "the client, the window and examples"
            elif BACKING.match(name):
                allowed, where = unit == "platform" and source, "sources of platform"
            elif COMMAND_LINE.match(name):
                allowed, where = unit == "client" and source, "sources of client"
            elif unit == "window" and TOOLKIT.match(name):
                # What stands behind the widgets is tested without a display.
                allowed, where = Path("window/state") not in path.parents, "widgets"
            elif FORMATTING.match(name):
                # The one header whose templates let the compiler check the fields of translated texts.
                allowed, where = source or str(path) == "client/text/LocalizedText.h", "sources"
            elif DESKTOP.match(name):
                allowed, where = unit == "platform" or (unit in ("client", "service", "window") and source), "platform"
            else:
                allowed, where = False, "nobody: it is not known to this check"
            if not allowed:
                yield f"{path}:{line}: <{name}> is for {where}"


def check_headers(root):
    """Headers are guarded, and a source includes its own header first, which proves that it stands alone."""
    for path in files_below(root, CODE):
        if path.suffix == ".h":
            if not re.search(r"^#pragma once$", read(root, path), re.MULTILINE):
                yield f"{path}:1: no #pragma once"
        elif (Path(root) / path).with_suffix(".h").is_file():
            first = next(includes(root, path), None)
            if first is None or first[1] != path.with_suffix(".h").as_posix():
                yield f"{path}:{first[0] if first else 1}: the first include is not its own header"


def check_file_names(root):
    """A header with one class is named for it, a source for its header (and what backs it) or, where its header is one of
    the library's, for its part of that."""
    code = [p for p in files_below(root, CODE) if folder_of(p) in USES]
    stems = {}
    for path in code:
        if path.suffix == ".h":
            stems.setdefault(path.parent, set()).add(path.stem)
            text = without_comments(read(root, path))
            # Macros such as CAPABILITY("mutex") or STILLORA_EXPORT may stand between the word and the name.
            pattern = r"^class\s+(?:[A-Z_]+\([^)]*\)\s+|[A-Z]+_[A-Z_]+\s+)?(\w+)[^;{]*\{.*?^\};"
            defined = list(re.finditer(pattern, text, re.MULTILINE | re.DOTALL))
            # A small class may stand beside the functions that the file is named for.
            if len(defined) == 1 and defined[0].group(1) not in path.stem and len(defined[0].group(0)) > len(text) / 2:
                yield f"{path}:1: its class has another name, {defined[0].group(1)}"
    for path in code:
        if path.suffix == ".cpp" and path.stem != "main" and not any(
            INSTALLED.match(name) for _, name, _ in list(includes(root, path))[:1]
        ):
            beside = stems.get(path.parent, set())
            if not any(path.stem.startswith(stem) for stem in beside) and not any(
                re.search(rf"\b(class|struct|namespace)\b[^;{{}}]*\b{path.stem}\b", read(root, path.parent / f"{stem}.h"))
                for stem in beside
            ):
                yield f"{path}:1: no header of this folder has or declares the name that this one begins with"


def check_listed_sources(root):
    """Every source is built: it stands in its folder's CMakeLists.txt, in one above, or in what these include."""
    every = files_below(root)
    for path in files_below(root, (".cpp",)):
        lists = [file for file in every if file.parent in path.parents and
                 (file.name == "CMakeLists.txt" or file.suffix == ".cmake")]
        named = (
            re.search(rf"(?<![\w/.-]){re.escape(path.relative_to(file.parent).as_posix())}(?![\w.])", read(root, file))
            or re.search(rf"(?<![\w.-]){re.escape(path.name)}(?![\w.])", read(root, file))
            for file in lists
        )
        if not any(named):
            yield f"{path}:1: stands in no CMakeLists.txt"


def check_documented_files(root):
    """Every file of the code that a page names is there."""
    pages = [path for path in files_below(root, (".md",)) if path.parent.as_posix() in (".", "docs")]
    folders = "|".join(sorted({folder.split("/")[0] for folder in USES}))
    named = re.compile(rf"`((?:{folders})/[\w./-]+\.\w+)`")
    for path in pages:
        for line, text in enumerate(read(root, path).splitlines(), 1):
            for name in named.findall(text):
                if not (Path(root) / name).is_file():
                    yield f"{path}:{line}: there is no {name}"


def check_documented_tests(root):
    """Every test and attack that SECURITY.md names is there: a promise without one is none."""
    page = Path("SECURITY.md")
    if not (Path(root) / page).is_file():
        return
    there = set()
    for path in files_below(Path(root, "tests"), (".cpp", ".py")):
        text = read(Path(root, "tests"), path)
        there |= {f"{suite}.{name}" for suite, name in re.findall(r"^TEST(?:_F|_P)?\((\w+), (\w+)\)", text, re.MULTILINE)}
        there |= set(re.findall(r"^ +def (test_\w+)\(", text, re.MULTILINE))
    there |= {f"attack.{path.name}" for path in files_below(Path(root, "tests/attack"), ("",)) if len(path.parts) == 1}
    for line, text in enumerate(read(root, page).splitlines(), 1):
        for name in re.findall(r"`(test_\w+|[A-Z]\w*\.[A-Z]\w+|attack\.\w+)`", text):
            if name not in there:
                yield f"{page}:{line}: there is no test {name}"


# What Debian calls by another name than SPDX.
DEBIAN_LICENCES = {"Expat": "MIT"}


def licence_stanzas(root, path):
    """(pattern of paths, licence by its SPDX name) of each stanza of files, in the file's order."""
    stanzas = []
    for stanza in re.split(r"\n[ \t]*\n", read(root, path)):
        fields = {name: value for name, value in re.findall(r"^([\w-]+):((?:.*\n?)(?:[ \t].*\n?)*)", stanza, re.MULTILINE)}
        if "Files" in fields and "License" in fields and fields.get("Copyright", "").strip():
            licence = fields["License"].split()[0]
            globs = [re.escape(name).replace(r"\*", ".*").replace(r"\?", ".") for name in fields["Files"].split()]
            stanzas.append((re.compile("|".join(globs)), DEBIAN_LICENCES.get(licence, licence)))
    return stanzas


def check_licences(root):
    """Every file has a licence and somebody who holds the rights; Debian's list says the same, and each licence's text is
    in LICENSES/, with none that nobody needs."""
    lists = [Path(".reuse/dep5"), Path("debian/copyright")]
    stanzas = {path: licence_stanzas(root, path) for path in lists if (Path(root) / path).is_file()}
    used = {}
    for path in files_below(root):
        if path.parts[0] == "LICENSES":
            continue
        told = {}
        for page, entries in stanzas.items():
            # The last one that fits counts.
            fitting = [licence for pattern, licence in entries if pattern.fullmatch(path.as_posix())]
            told[page] = fitting[-1] if fitting else None
            if not fitting:
                yield f"{path}:1: has no licence in {page}"
        if len(set(told.values())) > 1:
            yield f"{path}:1: has several licences: {', '.join(f'{name} in {page}' for page, name in told.items())}"
        for name in told.values():
            used.setdefault(name, path)
    there = {path.stem for path in files_below(root) if path.parts[0] == "LICENSES"}
    for name, path in used.items():
        if name and name not in there:
            yield f"{path}:1: is under {name}, whose text is not in LICENSES/"
    for name in sorted(there - used.keys()):
        yield f"LICENSES/{name}.txt:1: nothing is under this licence"
    # The same text stands where people and packages look for it.
    for path, name in (("LICENSE", "MIT"), ("data/models/LICENSE-Apache-2.0.txt", "Apache-2.0")):
        if (Path(root) / path).is_file() and read(root, path) != read(root, f"LICENSES/{name}.txt"):
            yield f"{path}:1: differs from LICENSES/{name}.txt"


def check_product_names(root):
    """platform/ knows nothing of the product: its code has none of the product's names. What demands one is told by the
    build."""
    # In comments and texts, too.
    product = re.compile(r"\w*(?:[Ss]tillora|STILLORA|[Pp]alvine)\w*|\bmor(?=[A-Z])\w+|\bMOR[A-Z]+[a-z]\w*")
    for path in files_below(root, CODE):
        if path.parts[0] == "platform":
            for line, text in enumerate(read(root, path).splitlines(), 1):
                for name in product.findall(text):
                    yield f"{path}:{line}: {name} is a name of the product"


def check_machine_paths(root):
    """No file names a place on the machine it was written on: this clone's folder, or somebody's home."""
    top = Path(root).resolve()
    # Folders that every machine has say nothing about this one.
    common = {Path("/")} | {Path("/", name) for name in "home media mnt opt root run srv tmp usr var".split()}
    here = [re.escape(str(place)) for place in [top, *top.parents] if place not in common and place.parent not in
            {Path("/home")}]
    patterns = [rf"(?<![\w.~-]){place}(?=[/\s\"'`]|$)" for place in here]
    # Names of one letter are nobody's: tests of paths use them.
    patterns += [r"(?<![\w.~-])/home/(?!user\b|USER\b|\$|\{)[a-z_][\w-]+/", r"(?<![\w.~-])/[r]oot/"]
    forbidden = re.compile("|".join(patterns), re.MULTILINE)
    for path in files_below(root):
        data = (Path(root) / path).read_bytes()
        if b"\0" in data:
            continue
        text = data.decode("utf-8", errors="replace")
        for match in forbidden.finditer(text):
            yield f"{path}:{text.count(chr(10), 0, match.start()) + 1}: names the place {match.group(0)!r}"


def check_nodiscard(root):
    """Nobody may overlook the failure of a function that tells it by its result and the reason by an argument."""
    for path in files_below(root, (".h",)):
        if folder_of(path) not in USES:
            continue
        text = re.sub(r"^[ \t]*#.*$", "", without_comments(read(root, path)), flags=re.MULTILINE)
        for match in re.finditer(r"NSError\s*\*\s*(?:error\b|[,)])", text):
            start = max(text.rfind(end, 0, match.start()) for end in ";{}") + 1
            declared = re.match(r"([^(]*?)\b(\w+)\s*\(", text[start:match.start()])
            # What makes an error returns false only so that its caller can pass that on.
            if (declared and not declared[2].startswith("fail")
                    and not re.search(r"\[\[nodiscard\]\]|\bvoid\s*$|\bfunction\s*<|\busing\b", declared[1])):
                line = text.count("\n", 0, start + declared.start(2)) + 1
                yield f"{path}:{line}: {declared[2]} can fail and is not [[nodiscard]]"


def check_format(root):
    """Sources are spaced as .clang-format has it."""
    files = [str(path) for path in files_below(root, CODE)]
    told = subprocess.run(["clang-format", "--dry-run", "-Werror", *files], cwd=root, capture_output=True, text=True)
    last = None
    for match in re.finditer(r"^(.+?):(\d+):\d+: error: ", told.stderr, re.MULTILINE):
        if match[1] != last:
            last = match[1]
            yield f"{last}:{match[2]}: is not as clang-format -i makes it"
    if told.returncode != 0 and not last:
        yield f"clang-format failed: {told.stderr.strip()}"


CHECKS = {
    name[len("check_"):].replace("_", "-"): check for name, check in list(globals().items()) if name.startswith("check_")
}


def main(arguments):
    if len(arguments) != 2 or arguments[0] not in CHECKS:
        print(__doc__, "\nchecks:", *CHECKS, file=sys.stderr)
        return 2
    if not files_below(arguments[1], CODE):
        print(f"no code below {arguments[1]}", file=sys.stderr)
        return 2
    faults = list(CHECKS[arguments[0]](arguments[1]))
    for fault in faults:
        print(fault)
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
