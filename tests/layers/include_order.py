#!/usr/bin/env python3
"""Fails when a folder of src/ includes a header from a folder above it, or
when code outside src/platform/ reaches the OS itself.

    include_order.py SRC_DIR

Each folder may include its own headers, those of the folders below it and the
public headers (ostrel/...), never a folder above: a subsystem then builds, reads
and tests without the ones that use it, and a cycle between two cannot start.
A folder that is not in the order below fails too, so a new one gets its place
when it is made rather than after its first wrong include.

The time zone, the environment, sleeping threads and the standard streams are
the host's to give through its Platform (a phone has no TZ variable, and a test
hands its own clock): only platform/ may call the C library for them.
"""
import pathlib
import re
import sys

# Bottom to top.
LAYERS = [
    "platform",  # the OS: files, clock, threads, libcurl, OpenSSL
    "core",  # errors, configuration, endpoint table, device facts, notifications
    "archive",  # the keyed archive every stored object is written with
    "transport",  # the signed connector and its hashes
    "events",  # the analytics event classes
    "store",  # folders of archived objects on disk
    "status",  # the run-time state the subsystems share: session, login slot, flags
    "queue",  # the event queue and its manager
    "login",  # user status, tokens and the login flows
    "push",
    "payment",
    "facade",  # Ostrel: builds and wires every subsystem
    "capi",  # the C API over the public headers
    "testing",  # hooks for benchmarks and tests, outside the library
]
PUBLIC = "ostrel"
INCLUDE = re.compile(r'^\s*#\s*include\s*"([^"/]+)/([^"]*)"')
OS_CALL = re.compile(
    r"\b(localtime(_r)?|gmtime(_r)?|mktime|timegm|tzset|(secure_)?getenv|setenv|putenv|"
    r"sleep_for|sleep_until|usleep|nanosleep|stderr|stdout|cerr|cout|clog)\b")


# What a comment or a literal says is no call: "https://..." is no comment
# either. Raw strings and comment markers inside literals are rare enough here.
NOT_CODE = re.compile(r'"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])*\'|//[^\n]*|/\*.*?\*/', re.S)


def os_calls(src: pathlib.Path) -> list:
    faults = []
    for source in sorted(src.rglob("*")):
        if source.suffix not in (".h", ".cc") or source.is_relative_to(src / "platform"):
            continue
        # Blanked to spaces, newlines kept, so that line numbers still hold.
        code = NOT_CODE.sub(lambda m: re.sub(r"[^\n]", " ", m.group(0)), source.read_text())
        for number, line in enumerate(code.splitlines(), 1):
            if match := OS_CALL.search(line):
                faults.append(f"{source}:{number}: {match.group(0)} outside platform/")
    return faults


def main(src: pathlib.Path) -> int:
    rank = {name: i for i, name in enumerate(LAYERS)}
    faults = []
    for folder in sorted(p for p in src.iterdir() if p.is_dir()):
        if folder.name not in rank:
            faults.append(f"{folder}: a folder with no place in the layer order")
            continue
        for source in sorted(folder.rglob("*")):
            if source.suffix not in (".h", ".cc"):
                continue
            for number, line in enumerate(source.read_text().splitlines(), 1):
                match = INCLUDE.match(line)
                if not match or match.group(1) == PUBLIC:
                    continue
                target = match.group(1)
                where = f"{source}:{number}: {folder.name} includes {target}/{match.group(2)}"
                if target not in rank:
                    faults.append(f"{where}, a folder with no place in the layer order")
                elif rank[target] > rank[folder.name]:
                    faults.append(f"{where}, a layer above it")
    faults += os_calls(src)
    for fault in faults:
        print(fault)
    if faults:
        print(f"{len(faults)} faults: includes must point down the layers (bottom to top: "
              f"{', '.join(LAYERS)}) and only platform/ may reach the OS")
        return 1
    print(f"every include points down the layers ({', '.join(LAYERS)}), "
          "and only platform/ reaches the OS")
    return 0


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    sys.exit(main(pathlib.Path(sys.argv[1])))
