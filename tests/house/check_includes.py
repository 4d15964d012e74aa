#!/usr/bin/env python3
"""Checks every include of the tree against the table in docs/architecture.md.

A row of the table has a folder in its first cell and in its last what the files there may include besides their own folder:
folders, single headers, or "everything". A library's header that is named in the table may be included only where it is named.
"""
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
SOURCES = ("core", "include", "src", "platform", "host", "tests", "bench")
INCLUDE = re.compile(r'^\s*#\s*include\s+(?:"([^"]+)"|<([^>]+)>)', re.M)
PUBLIC = ("include", "platform/include")  # on the include path: <gevapi.h> is platform/include/gevapi.h


def read_table(wrong):
    """Folder -> what it may include. Rows that stand for nothing, or twice, are added to what is wrong."""
    rows = {}
    for line in (ROOT / "docs/architecture.md").read_text().splitlines():
        cells = [cell.strip() for cell in line.strip("|").split("|")]
        folder = re.fullmatch(r"`([A-Za-z0-9_/]+)/`", cells[0])
        if line.startswith("|") and folder and len(cells) > 2:
            allowed = re.findall(r"`([^`]+)`", cells[-1])
            if folder[1] in rows or not (ROOT / folder[1]).is_dir():
                wrong.append(f"docs/architecture.md: the row of `{folder[1]}/` stands twice, or for no folder")
            rows[folder[1]] = None if cells[-1] == "everything" else set(allowed)
    return rows


def row_of(folder, rows):
    """The row of a folder; a row that allows everything speaks for the folders inside as well."""
    if folder in rows:
        return folder
    outer = [row for row, allowed in rows.items() if allowed is None and folder.startswith(row + "/")]
    return outer[0] if outer else None


def is_allowed(folder, quoted, system, allowed, restricted):
    if quoted:
        return quoted.startswith(folder + "/") or quoted in allowed or str(pathlib.Path(quoted).parent) + "/" in allowed
    if f"<{system}>" in allowed or f"<{pathlib.Path(system).parent}/>" in allowed:
        return True
    if any((ROOT / base / system).is_file() for base in PUBLIC):
        homes = [str((pathlib.Path(base) / system).parent) for base in PUBLIC if (ROOT / base / system).is_file()]
        return any(home == folder or home + "/" in allowed for home in homes)
    return not any(system == name or (name.endswith("/") and system.startswith(name)) for name in restricted)


def main():
    wrong = []
    rows = read_table(wrong)
    named = set().union(*(allowed or set() for allowed in rows.values()))
    restricted = {name.strip("<>") for name in named if name.startswith("<")}
    for top in SOURCES:
        for path in sorted((ROOT / top).rglob("*")):
            if path.suffix not in (".h", ".cpp", ".c"):
                continue
            name = path.relative_to(ROOT)
            row = row_of(str(name.parent), rows)
            if row is None:
                wrong.append(f"{name}: the table has no row for `{name.parent}/`")
                continue
            if rows[row] is None:
                continue
            for quoted, system in INCLUDE.findall(path.read_text()):
                if not is_allowed(str(name.parent), quoted, system, rows[row], restricted):
                    wrong.append(f"{name}: {quoted or system} is not among what `{row}/` may include")
    if not rows:
        wrong.append("docs/architecture.md: no table found")
    print("\n".join(wrong) or f"{len(rows)} rows hold")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
