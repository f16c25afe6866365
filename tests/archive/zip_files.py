"""Zip archives byte by byte, right ones and wrong ones: every field of every record can be said.

Entries are made by entry(), archives by archive(). `local`, `central` and `end` replace fields by their names below.
"""

import struct
import zlib

FILE, FOLDER, LINK, FIFO, DEVICE = 0o100644, 0o40755, 0o120777, 0o10644, 0o20666
UTF8, DESCRIPTOR = 0x800, 0x8
ANYWHERE16, ANYWHERE32 = 0xFFFF, 0xFFFFFFFF  # see the zip64 record

LOCAL = dict(signature="I", version="H", flags="H", method="H", time="H", date="H", crc="I", packed="I", size="I",
             name_length="H", extra_length="H")
CENTRAL = dict(signature="I", made_by="H", version="H", flags="H", method="H", time="H", date="H", crc="I", packed="I",
               size="I", name_length="H", extra_length="H", comment_length="H", disk="H", internal="H",
               attributes="I", offset="I")
END = dict(signature="I", disk="H", directory_disk="H", here="H", entries="H", length="I", start="I",
           comment_length="H")
END64 = dict(signature="I", record_length="Q", made_by="H", version="H", disk="I", directory_disk="I", here="Q",
             entries="Q", length="Q", start="Q")


def record(fields, values):
    return struct.pack("<" + "".join(fields.values()), *(values.get(name, 0) for name in fields))


def field(number, data):
    return struct.pack("<HH", number, len(data)) + data


def deflated(data):
    packer = zlib.compressobj(wbits=-15)
    return packer.compress(data) + packer.flush()


def entry(name, data=b"", mode=FILE, method=0, flags=0, packed=None, extra=b"", local_extra=None, descriptor=b"",
          system=3, attributes=0, date=(2020, 2, 3, 4, 5, 6), local=None, central=None):
    """What archive() takes. `packed`: the content as stored; for methods 0 and 8 it needn't be said."""
    name = name.encode() if isinstance(name, str) else name
    data = data.encode() if isinstance(data, str) else data
    packed = (deflated(data) if method == 8 else data) if packed is None else packed
    year, month, day, hour, minute, second = date
    common = dict(version=20, flags=flags, method=method, time=hour << 11 | minute << 5 | second // 2,
                  date=(year - 1980) << 9 | month << 5 | day, crc=zlib.crc32(data), packed=len(packed),
                  size=len(data), name_length=len(name))
    local_extra = extra if local_extra is None else local_extra
    start = record(LOCAL, {"signature": 0x04034B50, **common, "extra_length": len(local_extra), **(local or {})})
    fields = {"signature": 0x02014B50, **common, "made_by": system << 8 | 30, "extra_length": len(extra),
              "attributes": mode << 16 | attributes, **(central or {})}
    return start + name + local_extra + packed + descriptor, fields, name + extra


def archive(*entries, prefix=b"", absolute=False, zip64=None, sector=b"", comment=b"", gap=b"", trailing=b"", end=None):
    """`zip64`: fields of the zip64 record beside the right ones, {} for none; without it there is none. `sector` is
    its extensible data; `absolute`: offsets count the prefix."""
    body, directory, base = bytearray(prefix), bytearray(), 0 if absolute else len(prefix)
    for content, fields, rest in entries:
        directory += record(CENTRAL, {"offset": len(body) - base, **fields}) + rest
        body += content
    values = dict(here=len(entries), entries=len(entries), length=len(directory), start=len(body) - base)
    body += directory + gap
    if zip64 is not None:
        at = len(body) - base
        body += record(END64, {"signature": 0x06064B50, "record_length": 44 + len(sector), "version": 45, **values,
                               **zip64}) + sector
        body += struct.pack("<IIQI", 0x07064B50, 0, at, 1)
    body += record(END, {"signature": 0x06054B50, **values, "comment_length": len(comment), **(end or {})})
    return bytes(body + comment + trailing)
