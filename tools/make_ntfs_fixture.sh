#!/bin/bash
# Makes an NTFS volume the way a system does (mkntfs, then the ntfs-3g driver) and writes beside it what the
# mounted volume shows, for the reader to be compared with.
#
#   tools/make_ntfs_fixture.sh [--small | --sectors-4k] OUT
#
# writes OUT.ntfs, the image, and OUT.txt, one line per name:
#   path <tab> d or f <tab> size <tab> modified <tab> created <tab> accessed <tab> attributes
# Dates are 100-nanosecond ticks since 1601, attributes hexadecimal, sizes of folders 0, lines in byte order.
#
# The default is a volume of some 25,000 names with every shape that the driver can be brought to make. --small
# has a few hundred names and one of each shape; --sectors-4k a few dozen on sectors of 4 KiB and clusters of
# 64 KiB. With --pack as the first argument the image is packed to OUT.ntfs.bz2 and removed:
# tests/data/sample and tests/data/sample_4k were made that way.
#
# Needs root, FUSE and the packages ntfs-3g, attr, python3, bzip2.
set -eu

pack=no
kind=full
while [ $# -gt 1 ]; do
    case $1 in
    --pack) pack=yes ;;
    --small) kind=small ;;
    --sectors-4k) kind=sectors-4k ;;
    *) break ;;
    esac
    shift
done
if [ $# -ne 1 ]; then
    sed -n '2,16s/^# \{0,1\}//p' "$0"
    exit 2
fi
out=$1
image=$out.ntfs
for tool in mkntfs ntfs-3g python3 bzip2 fusermount; do
    command -v $tool >/dev/null || { echo "$tool is missing: apt-get install ntfs-3g fuse python3 bzip2" >&2; exit 1; }
done

case $kind in
full) size=448M format="-s 512 -c 4096" ;;
small) size=6M format="-s 512 -c 512" ;;      # a file record takes two clusters
sectors-4k) size=24M format="-s 4096 -c 65536" ;;
esac

mount=$(mktemp -d)
cleanup() {
    fusermount -u "$mount" 2>/dev/null || umount "$mount" 2>/dev/null || true
    rmdir "$mount"
}
trap cleanup EXIT

rm -f "$image"
truncate -s $size "$image"
mkntfs -F -Q -q -p 0 -H 255 -S 63 $format -L Fixture "$image" 2>/dev/null

volume() { # mounts the image with these options, runs a script with the arguments after --, unmounts
    ntfs-3g -o "$1" "$image" "$mount"
    shift
    python3 - "$mount" "$@"
    sync
    fusermount -u "$mount"
}

# Without "compression" the driver stores every file plainly; with it, those in folders marked as compressed are not.
volume rw,noatime,compression,streams_interface=xattr $kind <<'PYTHON'
import errno, hashlib, os, random, struct, sys

top, kind = sys.argv[1], sys.argv[2]
random.seed(20240229)
TICKS_1970 = 116444736000000000
dated = []

def attributes(path, bits):
    os.setxattr(path, 'system.ntfs_attrib_be', struct.pack('>I', bits), follow_symlinks=False)

def make(path, size=None, fill=None):
    """One file with content that packs well; its size and dates follow from its name."""
    full = os.path.join(top, path)
    os.makedirs(os.path.dirname(full), exist_ok=True)
    digest = int.from_bytes(hashlib.sha256(path.encode('utf-8', 'surrogateescape')).digest()[:8], 'big')
    if size is None:
        size = digest % 3000 if digest % 4 else digest % 300
    text = (os.path.basename(path) + '\n').encode('utf-8', 'surrogateescape')
    data = bytes([fill]) * size if fill is not None else (text * (size // len(text) + 1))[:size]
    with open(full, 'wb') as file:
        file.write(data)
    dated.append(path)
    return full

def set_dates():
    """Dates that follow from the names, with odd ticks, children before their folders."""
    folders = [os.path.relpath(folder, top) for folder, _, _ in os.walk(top)]
    for path in dated + sorted(folders, key=len, reverse=True):
        full = os.path.join(top, path)
        if not os.path.lexists(full):
            continue
        digest = int.from_bytes(hashlib.sha256(path.encode('utf-8', 'surrogateescape')).digest()[8:16], 'big')
        created = TICKS_1970 + (digest % 1400000000) * 10000000 + digest % 9999999
        modified = created + digest // 7 % 100000000000001
        accessed = modified + digest // 11 % 10000000000001
        os.setxattr(full, 'system.ntfs_times', struct.pack('<4Q', created, modified, accessed, modified))

PHOTOS = ['Photos/2023 Iceland/IMG_%04d.jpg' % n for n in range(2140, 2176)] + \
         ['Photos/2024 Lisbon/DSC%05d.NEF' % n for n in range(881, 901)] + \
         ['Photos/Family/Grandma 80th birthday.jpg', 'Photos/Family/first day of school.png',
          'Photos/Family/Zoë & Jürgen – Hochzeit.jpeg', 'Photos/wallpaper_dark.webp']
MUSIC = ['Music/%s/%02d %s.flac' % (album, n, title) for album, titles in {
    'Bach - Goldberg Variations': ['Aria', 'Variatio 1', 'Variatio 2', 'Variatio 3 Canone all’Unisono', 'Aria da Capo'],
    'Chopin - Nocturnes': ['Op. 9 No. 1', 'Op. 9 No. 2', 'Op. 15 No. 1', 'Op. 27 No. 2'],
    'Дмитрий Шостакович - Вальсы': ['Вальс № 1', 'Вальс № 2', 'Полька'],
    'Dvořák - Symphony No. 9': ['Adagio', 'Largo', 'Scherzo', 'Allegro con fuoco']}.items()
    for n, title in enumerate(titles, 1)]
DOCUMENTS = ['Documents/Taxes/%d/tax return %d.pdf' % (y, y) for y in range(2017, 2025)] + \
            ['Documents/Letters/%s.docx' % n for n in ['landlord', 'insurance claim', 'job application', 'Bewerbung',
                                                       'Liebe Oma', 'lettre à la banque', 'письмо в банк']] + \
            ['Documents/budget 2024.xlsx', 'Documents/budget 2024 (old).xlsx', 'Documents/README.txt',
             'Documents/recipes/pão de queijo.md', 'Documents/recipes/crème brûlée.md', 'Documents/recipes/ramen ラーメン.md',
             'Documents/中文/简历.docx', 'Documents/中文/会议记录 2024.txt', 'Documents/中文/照片清单.csv',
             'Documents/Отчёты/годовой отчёт.odt', 'Documents/Отчёты/Ёлка.txt',
             'Documents/notes 📝.txt', 'Documents/🎉 party list 🎂.txt', 'Documents/' + 'long name ' * 20 + 'end.txt']
SOURCE = ['Source/tetris/%s' % n for n in ['main.cpp', 'board.cpp', 'board.h', 'piece.cpp', 'piece.h', 'Makefile',
                                           '.gitignore', 'README.md', 'assets/tiles.png', 'assets/theme.ogg']] + \
         ['Source/website/%s' % n for n in ['index.html', 'style.css', 'app.js', 'favicon.ico', 'package.json',
                                            'src/components/Header.tsx', 'src/components/Footer.tsx', 'src/index.tsx']] + \
         ['Source/scripts/%s' % n for n in ['backup.sh', 'rename_photos.py', 'sync.ps1', 'TODO', 'a', 'b', '100%.txt']]

def ordinary():
    for path in PHOTOS + MUSIC + DOCUMENTS + SOURCE:
        make(path)
    for path in ['Empty folder', 'Videos/Holidays', 'Downloads']:
        os.makedirs(os.path.join(top, path))
    make('Downloads/setup-4.2.1.exe', 70000, 0)
    make('Downloads/archive.tar.gz', 123457, 65)

def special():
    # Hard links, some in another folder.
    os.link(make('Documents/contract.pdf'), os.path.join(top, 'Downloads/contract (signed).pdf'))
    os.link(os.path.join(top, 'Documents/contract.pdf'), os.path.join(top, 'Documents/Letters/contract copy.pdf'))
    # Alternate streams do not count in a file's size.
    file = make('Downloads/browser download.zip', 1500)
    os.setxattr(file, 'user.Zone.Identifier', b'[ZoneTransfer]\r\nZoneId=3\r\n')
    os.setxattr(make('Documents/with large stream.txt', 77), 'user.large', b's' * 30000)
    os.setxattr(os.path.join(top, 'Videos'), 'user.note', b'a stream of a folder')
    # Attributes.
    attributes(make('Documents/hidden.ini'), 0x22)
    attributes(make('pagefile.sys', 0), 0x26)
    attributes(make('Documents/read only.txt'), 0x21)
    os.makedirs(os.path.join(top, 'System stuff/inside'))
    attributes(os.path.join(top, 'System stuff'), 0x6)
    make('System stuff/inside/driver.dll')
    # Short names beside long ones are not listed.
    os.setxattr(make('Source/A long file name.text'), 'system.ntfs_dos_name', b'ALONGF~1.TEX')
    os.setxattr(os.path.join(top, 'Empty folder'), 'system.ntfs_dos_name', b'EMPTYF~1')
    # Compressed and sparse.
    os.makedirs(os.path.join(top, 'Archive (compressed)'))
    attributes(os.path.join(top, 'Archive (compressed)'), 0x800)
    for n in range(4):
        make('Archive (compressed)/log %d.txt' % n, 30000 + n, 76)
    with open(make('Videos/sparse disk.vhd', 10), 'r+b') as f:
        f.truncate(3 << 30)
        f.seek(1 << 30)
        f.write(b'in the middle')
    # Names at the edges of what there is.
    make('Source/' + 'x' * 255)
    make('Source/' + '名' * 85)
    make('Source/trailing dot.')
    make('Source/ leading blank')
    make('Source/control \x01\x1f characters')

def fragmented(pieces, piece, links):
    """Files in many pieces, and one with many long names: both need attribute lists."""
    files = [open(make('Videos/fragmented %d.mp4' % n, 0), 'wb', buffering=0) for n in range(2)]
    for n in range(pieces):
        for i, f in enumerate(files):
            f.write(bytes([n & 15]) * piece)
    for f in files:
        f.close()
    target = make('Downloads/many names.bin', 4242, 7)
    for n in range(links):
        name = 'Downloads/many names/%03d %s' % (n, 'name of the same file ' * 8)
        os.makedirs(os.path.join(top, 'Downloads/many names'), exist_ok=True)
        os.link(target, os.path.join(top, name.rstrip()))

def reuse(count):
    """Records in use for the second and third time."""
    for turn in range(3):
        for n in range(count):
            make('Downloads/temporary/turn %d file %d.tmp' % (turn, n), 10)
        if turn < 2:
            for n in range(count):
                if turn == 0 or n % 2:
                    os.remove(os.path.join(top, 'Downloads/temporary/turn %d file %d.tmp' % (turn, n)))

def append(files, piece, limit):
    """Writes to the files in turn, until less than `limit` bytes are free or the volume is full."""
    turn = 0
    try:
        while True:
            free = os.statvfs(top)
            if free.f_bavail * free.f_frsize < limit or files[turn % len(files)].write(bytes(piece)) < piece:
                break
            turn += 1
    except OSError as error:
        if error.errno != errno.ENOSPC:
            raise

def scatter_table(large, room, piece, more):
    """Leaves nothing free but small holes, and makes files until the table has grown into them."""
    os.makedirs(os.path.join(top, 'Filler'))
    for n in range(70):
        os.makedirs(os.path.join(top, 'Source/generated/part %d' % n))
    names = ['Filler/large.bin', 'Filler/even.bin', 'Filler/odd.bin']
    files = [open(make(name, 0), 'wb', buffering=0) for name in names]
    append(files[:1], large, room)
    append(files[1:], piece, 0)
    for f in files:
        f.close()
    os.remove(os.path.join(top, names[2]))
    for n in range(more):
        try:
            make('Source/generated/part %d/%d.o' % (n % 70, n), 20)
        except OSError as error:
            if error.errno != errno.ENOSPC:
                raise
            break
    os.remove(os.path.join(top, names[0]))

def names_of_the_system(limit):
    """Real names: those of this machine's own files, with no content of theirs."""
    count = 0
    for folder, _, files in os.walk('/usr/share'):
        for name in sorted(files):
            path = 'Programs' + os.path.join(folder, name)[len('/usr'):]
            if len(os.fsencode(name)) > 250 or ':' in path:
                continue
            make(path, int(hashlib.sha256(path.encode('utf-8', 'surrogateescape')).hexdigest()[:4], 16) % 700)
            count += 1
            if count == limit:
                return

def words(count):
    """Made-up names in several scripts, for machines with few files of their own."""
    parts = ['Straße', 'été', 'Ñandú', 'кошка', 'Москва', '東京', '文件', '한국어', 'αβγ', 'ไทย', '😀', '🚀', 'file', 'Data', 'x']
    for n in range(count):
        a, b = random.choice(parts), random.choice(parts)
        make('Words/%s/%s %s %d.%s' % (random.choice(parts), a, b, n, random.choice(['txt', 'dat', 'кот', 'png'])), n % 200)

ordinary()
special()
if kind == 'small':
    reuse(20)
    fragmented(220, 512, 12)
    scatter_table(16384, 800000, 1024, 500)
elif kind == 'full':
    reuse(1500)
    names_of_the_system(16000)
    words(6000)
    fragmented(3000, 4096, 700)
    scatter_table(1 << 20, 24 << 20, 4096, 9000)
set_dates()
PYTHON

volume ro,noatime,streams_interface=xattr "$out.txt" <<'PYTHON'
import os, stat, struct, sys

top, out = os.fsencode(sys.argv[1]), sys.argv[2]
lines = []
for folder, folders, files in os.walk(top):
    for name in folders + files:
        full = os.path.join(folder, name)
        info = os.lstat(full)
        created, modified, accessed = struct.unpack('<3Q', os.getxattr(full, 'system.ntfs_times', follow_symlinks=False)[:24])
        bits = struct.unpack('>I', os.getxattr(full, 'system.ntfs_attrib_be', follow_symlinks=False))[0]
        is_folder = stat.S_ISDIR(info.st_mode)
        size = 0 if is_folder else info.st_size
        lines.append(b'%s\t%s\t%d\t%d\t%d\t%d\t%x\n' % (os.path.relpath(full, top), b'd' if is_folder else b'f', size,
                                                      modified, created, accessed, bits))
lines.sort()
with open(out, 'wb') as f:
    f.writelines(lines)
print('%d names' % len(lines))
PYTHON

if [ $pack = yes ]; then
    rm -f "$image.bz2"
    bzip2 -9 "$image"
    ls -l "$image.bz2" "$out.txt"
fi
