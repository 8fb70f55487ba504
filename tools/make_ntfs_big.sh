#!/bin/bash
# Makes a large NTFS volume of real names through the system's own driver, for benchmarks beside programs that need
# a volume that mounts (make_volume is far quicker, and what it writes does not).
#
#   tools/make_ntfs_big.sh PATHS OUT.ntfs [COUNT]
#
# PATHS has one path per line, `/` between components, as bench/fetch_names.sh writes them; COUNT lines of it are
# taken (300,000 if not told), spread evenly over the list. Files are empty. A hundred thousand names take some ten seconds.
#
# Needs root, FUSE and the packages ntfs-3g and python3.
set -eu

if [ $# -lt 2 ]; then
    sed -n '2,10s/^# \{0,1\}//p' "$0"
    exit 2
fi
paths=$1
image=$2
count=${3:-300000}
for tool in mkntfs ntfs-3g python3 fusermount; do
    command -v $tool >/dev/null || { echo "$tool is missing: apt-get install ntfs-3g fuse python3" >&2; exit 1; }
done

mount=$(mktemp -d)
cleanup() {
    fusermount -u "$mount" 2>/dev/null || true
    rmdir "$mount"
}
trap cleanup EXIT

rm -f "$image"
# A record of 1 KiB and an index entry for each name, folders included, and half of that again to spare.
truncate -s $((count * 3 / 1000 + 128))M "$image"
mkntfs -F -Q -q -p 0 -H 255 -S 63 -s 512 -c 4096 -L Big "$image" 2>/dev/null
ntfs-3g -o rw,noatime,big_writes "$image" "$mount"
python3 - "$paths" "$mount" "$count" <<'PYTHON'
import os, stat, sys

paths, top, count = sys.argv[1], os.fsencode(sys.argv[2]), int(sys.argv[3])
with open(paths, 'rb') as lines:
    total = sum(1 for _ in lines)
step = max(1.0, total / count)
wanted = 0.0
made = 0
folders = {b''}
with open(paths, 'rb') as lines:
    for number, line in enumerate(lines):
        if number < wanted:
            continue
        wanted += step
        parts = [part for part in line.rstrip(b'\n').split(b'/') if part not in (b'', b'.', b'..')]
        try:
            for depth in range(1, len(parts)):
                folder = b'/'.join(parts[:depth])
                if folder not in folders:
                    os.mkdir(os.path.join(top, folder))
                    folders.add(folder)
            os.mknod(os.path.join(top, *parts), stat.S_IFREG | 0o644)
            made += 1
        except (FileExistsError, NotADirectoryError):
            pass  # the same name as a file and as a folder
        except OSError as error:
            if error.errno != 36:  # a name too long for a volume
                raise
print('%d files in %d folders' % (made, len(folders) - 1))
PYTHON
sync
fusermount -u "$mount"
ls -l "$image"
