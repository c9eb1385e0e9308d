"""Writes the archives the interoperability tests read into FOLDER, with Python's zipfile."""
import os
import sys
import zipfile

folder = sys.argv[1]
text = b"".join(b"line %d of a small text file\n" % i for i in range(2000))
noise = bytes((i * 2654435761 >> 13) & 0xFF for i in range(70000))


def cp437_names(info):
    # zipfile writes any name it cannot keep in ASCII as UTF-8; this keeps code page 437.
    return info.filename.encode("cp437"), info.flag_bits & ~0x800


with zipfile.ZipFile(os.path.join(folder, "py-zip64-extras.zip"), "w") as archive:
    for name, data, method in [("text.txt", text, zipfile.ZIP_DEFLATED),
                               ("noise.bin", noise, zipfile.ZIP_STORED)]:
        info = zipfile.ZipInfo(name)
        info.compress_type = method
        with archive.open(info, "w", force_zip64=True) as entry:
            entry.write(data)

limit = zipfile.ZIP64_LIMIT
with zipfile.ZipFile(os.path.join(folder, "py-zip64-end.zip"), "w", zipfile.ZIP_DEFLATED) as archive:
    archive.writestr("first.txt", text)
    # Stored, so that the folder has no size for the lowered limit below to mark.
    archive.writestr("folder/", b"", zipfile.ZIP_STORED)
    archive.writestr("folder/second.bin", noise)
    # From here every size and offset counts as too large for 32 bits, so the central
    # directory gets ZIP64 extra fields and the end records are ZIP64 ones.
    zipfile.ZIP64_LIMIT = 1
zipfile.ZIP64_LIMIT = limit

with zipfile.ZipFile(os.path.join(folder, "py-names.zip"), "w", zipfile.ZIP_DEFLATED) as archive:
    archive.writestr("utf8/caf\u00e9 \u2013 \u65e5\u672c.txt", b"utf-8 name")
    archive.writestr("utf8/empty.txt", b"")
    archive.comment = b"an archive comment"

original = zipfile.ZipInfo._encodeFilenameFlags
zipfile.ZipInfo._encodeFilenameFlags = cp437_names
with zipfile.ZipFile(os.path.join(folder, "py-cp437.zip"), "w") as archive:
    archive.writestr("cp437/na\u00efve \u00e9t\u00e9 \u2591\u2592.txt", b"code page 437 name")
    archive.writestr("cp437/\u00c7a.txt", b"another")
zipfile.ZipInfo._encodeFilenameFlags = original
