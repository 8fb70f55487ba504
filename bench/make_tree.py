#!/usr/bin/env python3
"""Makes a folder tree of real names: make_tree.py PATHS FOLDER COUNT

Takes COUNT consecutive paths from the middle of the list and makes a file of each, of some size or other.
"""
import os
import sys


def main():
    paths, folder, count = sys.argv[1], sys.argv[2], int(sys.argv[3])
    os.makedirs(folder)
    with open(paths, "rb") as lines:
        lines.seek(os.path.getsize(paths) // 2)
        lines.readline()
        made, last = 0, b""
        for line in lines:
            name = os.path.join(os.fsencode(folder), line.rstrip(b"\n").lstrip(b"/"))
            parent = os.path.dirname(name)
            try:
                if parent != last:
                    os.makedirs(parent, exist_ok=True)
                    last = parent
                file = os.open(name, os.O_WRONLY | os.O_CREAT | os.O_EXCL)
            except OSError:
                continue  # a name that is a folder elsewhere in the list
            os.ftruncate(file, (made * 2654435761) % 100000)
            os.close(file)
            made += 1
            if made == count:
                return


main()
