"""Turns a folder of animations into the work list both renderers follow.

Usage: prepare.py FOLDER WORK_DIR [--frames N]

For every *.json and *.lottie in FOLDER (not its subfolders) it writes into WORK_DIR:
- a .lottie for Frameloom: a .json is packed with a manifest and animations/<id>.json, a .lottie
  is used as it is;
- a Lottie document for lottie-web: a .json as it is, for a .lottie the animation its manifest
  names first (or the first .json under animations/ or a/), with the pictures it names from
  images/ or i/ inlined as data URIs;
- jobs.json, listing per animation its name, both files, the frames to render and, when the
  animation could not be read, why.

Frame f means the animation's in point + f, for both renderers. The frames are the first and N
more spread evenly up to the last frame a player shows: in point + floor(out point - in point) - 1.
Exporters often write an out point a hair above or below a whole number (24.000001, 239.99998);
the frame in that hair's breadth is never played, and is left out.
"""

import argparse
import base64
import json
import math
import sys
import zipfile
from pathlib import Path

# The corpus documents are at most a few MB, with pictures; anything far beyond that is not an
# animation worth comparing and must not exhaust memory while being read.
MAX_ENTRY_BYTES = 64 * 1024 * 1024
# All pictures of one animation together, for the same reason.
MAX_PICTURE_BYTES = 128 * 1024 * 1024
# A manifest is a short list of ids.
MAX_MANIFEST_BYTES = 1024 * 1024
# Frameloom's tool takes the frame as a 32-bit float, exact for whole numbers up to 2^24; frames
# of longer timelines are chosen within the first 2^24.
MAX_FRAME = 2**24
# The id under which a plain document is packed into a .lottie.
PACKED_ID = "animation"

PICTURE_TYPES = {
    b"\x89PNG": "image/png",
    b"\xff\xd8\xff": "image/jpeg",
    b"GIF8": "image/gif",
}


class Unreadable(Exception):
    """An animation that cannot be prepared; the message says why in one line."""


def read_bounded(stream, limit, what):
    """Reads a whole stream, stopping as soon as it passes `limit` bytes."""
    data = stream.read(limit + 1)
    if len(data) > limit:
        raise Unreadable(f"{what} is larger than {limit} bytes")
    return data


def parse_document(data, what):
    try:
        document = json.loads(data)
    except (ValueError, RecursionError) as error:
        raise Unreadable(f"{what} is not JSON: {error}") from None
    if not isinstance(document, dict):
        raise Unreadable(f"{what} is not a JSON object")
    return document


def manifest_animation_id(archive, files):
    if "manifest.json" not in files:
        return None
    with archive.open("manifest.json") as stream:
        data = read_bounded(stream, MAX_MANIFEST_BYTES, "manifest.json")
    try:
        animations = json.loads(data).get("animations")
        first = animations[0]["id"]
    except (ValueError, RecursionError, AttributeError, LookupError, TypeError):
        return None
    return first if isinstance(first, str) else None


def choose_animation(archive, files):
    animation_id = manifest_animation_id(archive, files)
    if animation_id is not None:
        for folder in ("animations/", "a/"):
            if folder + animation_id + ".json" in files:
                return folder + animation_id + ".json"
    for name in files:
        if name.startswith(("animations/", "a/")) and name.endswith(".json"):
            return name
    raise Unreadable("the archive holds no animation under animations/ or a/")


def picture_data_uri(data):
    if data.startswith(b"RIFF") and data[8:12] == b"WEBP":
        media = "image/webp"
    else:
        media = next((t for magic, t in PICTURE_TYPES.items() if data.startswith(magic)), None)
    if media is None:
        return None
    return f"data:{media};base64,{base64.b64encode(data).decode('ascii')}"


def inline_pictures(document, archive, names):
    """Puts the pictures the document names by file into it, as lottie-web cannot read the
    archive. Pictures the archive lacks stay as they are: lottie-web then shows nothing there."""
    budget = MAX_PICTURE_BYTES
    for asset in document.get("assets") or []:
        if not isinstance(asset, dict) or not isinstance(asset.get("p"), str):
            continue
        if asset["p"].startswith("data:"):
            continue
        found = next((f + asset["p"] for f in ("images/", "i/") if f + asset["p"] in names), None)
        if found is None:
            continue
        with archive.open(found) as stream:
            data = read_bounded(stream, min(MAX_ENTRY_BYTES, budget), found)
        budget -= len(data)
        uri = picture_data_uri(data)
        if uri is not None:
            asset.update(u="", p=uri, e=1)


def document_from_lottie(path):
    """The animation a .lottie shows, with its pictures inlined."""
    try:
        with zipfile.ZipFile(path) as archive:
            files = [info.filename for info in archive.infolist() if not info.is_dir()]
            names = set(files)
            chosen = choose_animation(archive, files)
            with archive.open(chosen) as stream:
                document = parse_document(read_bounded(stream, MAX_ENTRY_BYTES, chosen), chosen)
            inline_pictures(document, archive, names)
            return document
    except (zipfile.BadZipFile, zipfile.LargeZipFile, OSError, EOFError, RuntimeError) as error:
        raise Unreadable(f"cannot read the archive: {error}") from None


def pack_document(text, target):
    """Packs the text of a plain Lottie document into a .lottie Frameloom can load."""
    manifest = {"version": "1", "generator": "frameloom fidelity",
                "animations": [{"id": PACKED_ID}]}
    with zipfile.ZipFile(target, "w", zipfile.ZIP_DEFLATED) as archive:
        archive.writestr("manifest.json", json.dumps(manifest))
        archive.writestr(f"animations/{PACKED_ID}.json", text)


def frames_to_render(document, count):
    """The first frame and `count` more spread evenly up to the last frame played."""
    in_point, out_point = document.get("ip"), document.get("op")
    numbers = (int, float)
    if not (isinstance(in_point, numbers) and isinstance(out_point, numbers)) or \
            not math.isfinite(out_point - in_point):
        return [0]
    last = min(MAX_FRAME, max(0, math.floor(out_point - in_point) - 1))
    return sorted({0} | {round(k * last / count) for k in range(1, count + 1)})


def prepare(source, index, work, frame_count):
    job = {"name": source.name, "index": index, "frames": [0]}
    stem = f"{index:03d}"
    try:
        if source.suffix == ".lottie":
            document = document_from_lottie(source)
            job["lottie"] = str(source.resolve())
            web = work / "web" / f"{stem}.json"
            web.write_text(json.dumps(document), encoding="utf-8")
            job["document"] = str(web)
        else:
            with open(source, "rb") as stream:
                text = read_bounded(stream, MAX_ENTRY_BYTES, source.name)
            document = parse_document(text, source.name)
            packed = work / "frameloom" / f"{stem}.lottie"
            pack_document(text, packed)
            job["lottie"] = str(packed)
            job["document"] = str(source.resolve())
        job["frames"] = frames_to_render(document, frame_count)
    except Unreadable as error:
        job["error"] = str(error)
    return job


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("folder", type=Path)
    parser.add_argument("work", type=Path)
    parser.add_argument("--frames", type=int, default=4)
    args = parser.parse_args()
    if args.frames < 1:
        parser.error("--frames must be at least 1")
    sources = sorted(p for p in args.folder.iterdir()
                     if p.is_file() and p.suffix in (".json", ".lottie"))
    if not sources:
        sys.exit(f"fidelity: no .json or .lottie files in {args.folder}")
    for sub in ("web", "frameloom"):
        (args.work / sub).mkdir(parents=True, exist_ok=True)
    jobs = [prepare(source, i, args.work, args.frames) for i, source in enumerate(sources)]
    (args.work / "jobs.json").write_text(json.dumps({"jobs": jobs}, indent=1), encoding="utf-8")


if __name__ == "__main__":
    main()
