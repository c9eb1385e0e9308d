"""Checks of the benchmark's own preparation and scoring; no browser or tool needed.

Run: /usr/bin/python3 -m unittest discover -s bench/fidelity -p 'test_*.py'
"""

import io
import json
import sys
import tempfile
import unittest
import zipfile
from pathlib import Path

from PIL import Image

sys.path.insert(0, str(Path(__file__).parent))
import compare  # noqa: E402
import prepare  # noqa: E402
import render_frameloom  # noqa: E402

PNG = b"\x89PNG\r\n\x1a\n" + b"\0" * 8
WEBP = b"RIFF\0\0\0\0WEBPVP8 "


def archive(entries):
    """A .lottie in memory holding `entries` (path -> bytes or text)."""
    data = io.BytesIO()
    with zipfile.ZipFile(data, "w") as z:
        for path, contents in entries.items():
            z.writestr(path, contents)
    return data


def document(**fields):
    return json.dumps({"ip": 0, "op": 10, "w": 10, "h": 10, "layers": [], **fields})


def frame(colour):
    return Image.new("RGBA", compare.SIZE, colour)


class FramesToRender(unittest.TestCase):
    def test_cases(self):
        cases = [
            ({"ip": 0, "op": 60}, 4, [0, 15, 30, 44, 59]),
            ({"ip": 10, "op": 70}, 2, [0, 30, 59]),
            # An out point a hair above or below a whole number: that frame is never played.
            ({"ip": 0, "op": 24.000001}, 1, [0, 23]),
            ({"ip": 0, "op": 239.99998}, 1, [0, 238]),
            ({"ip": 0, "op": 1}, 4, [0]),
            ({"ip": 5, "op": 2}, 4, [0]),
            ({"ip": 0, "op": 1e300}, 1, [0, prepare.MAX_FRAME]),
            ({"ip": 0}, 4, [0]),
            ({"ip": "0", "op": 60}, 4, [0]),
            ({"ip": 0, "op": float("inf")}, 4, [0]),
        ]
        for fields, count, expected in cases:
            with self.subTest(fields=fields, count=count):
                self.assertEqual(prepare.frames_to_render(fields, count), expected)


class DocumentFromLottie(unittest.TestCase):
    def test_chooses_the_animation_the_manifest_names_first(self):
        cases = [
            ({"manifest.json": '{"animations":[{"id":"b"},{"id":"a"}]}',
              "animations/a.json": document(nm="a"), "animations/b.json": document(nm="b")}, "b"),
            ({"manifest.json": '{"animations":[{"id":"Main Scene"}]}',
              "a/Main Scene.json": document(nm="v2")}, "v2"),
            ({"manifest.json": "not json", "animations/x.json": document(nm="x")}, "x"),
            ({"manifest.json": '{"animations":[{"id":"gone"}]}',
              "__MACOSX/animations/._y.json": "junk", "animations/y.json": document(nm="y")}, "y"),
        ]
        for entries, name in cases:
            with self.subTest(name=name):
                self.assertEqual(prepare.document_from_lottie(archive(entries))["nm"], name)

    def test_inlines_the_pictures_it_finds(self):
        assets = [{"id": "png", "u": "images/", "p": "a.png"},
                  {"id": "webp", "u": "i/", "p": "b.webp"},
                  {"id": "missing", "u": "images/", "p": "c.png"},
                  {"id": "inline", "p": "data:image/png;base64,AAAA"},
                  {"id": "unknown", "u": "images/", "p": "d.bin"}]
        result = prepare.document_from_lottie(archive({
            "animations/x.json": document(assets=assets), "images/a.png": PNG,
            "i/b.webp": WEBP, "images/d.bin": b"neither"}))
        by_id = {asset["id"]: asset for asset in result["assets"]}
        self.assertTrue(by_id["png"]["p"].startswith("data:image/png;base64,"))
        self.assertEqual((by_id["png"]["u"], by_id["png"]["e"]), ("", 1))
        self.assertTrue(by_id["webp"]["p"].startswith("data:image/webp;base64,"))
        self.assertEqual(by_id["missing"]["p"], "c.png")
        self.assertEqual(by_id["inline"]["p"], "data:image/png;base64,AAAA")
        self.assertEqual(by_id["unknown"]["p"], "d.bin")

    def test_refuses_bad_archives_in_one_line(self):
        big = "x" * 2048
        cases = [
            io.BytesIO(b"not a zip at all"),
            archive({"manifest.json": "{}"}),
            archive({"animations/x.json": "[1, 2]"}),
            archive({"animations/x.json": "[" * 1020}),
            archive({"animations/x.json": document(nm=big)}),
        ]
        original = prepare.MAX_ENTRY_BYTES
        prepare.MAX_ENTRY_BYTES = 1024
        try:
            for data in cases:
                with self.subTest(data=data.getvalue()[:40]):
                    with self.assertRaises(prepare.Unreadable) as caught:
                        prepare.document_from_lottie(data)
                    self.assertNotIn("\n", str(caught.exception))
        finally:
            prepare.MAX_ENTRY_BYTES = original


class PackDocument(unittest.TestCase):
    def test_packed_archive_names_its_animation(self):
        with tempfile.TemporaryDirectory() as folder:
            target = Path(folder) / "x.lottie"
            prepare.pack_document(document(nm="packed").encode(), target)
            self.assertEqual(prepare.document_from_lottie(target)["nm"], "packed")


class RenderFrame(unittest.TestCase):
    def test_reports_the_tools_last_line_or_what_went_wrong(self):
        cases = [
            ('touch "$7"', None),
            ('echo "frameloom: cannot load $1" >&2; exit 1', "frameloom: cannot load in.lottie"),
            ("echo note >&2; exit 0", "note"),
            ("exit 3", "exit status 3 on frame 5"),
        ]
        with tempfile.TemporaryDirectory() as folder:
            for script, expected in cases:
                with self.subTest(script=script):
                    tool = Path(folder) / "tool"
                    tool.write_text(f"#!/bin/sh\nshift\n{script}\n")
                    tool.chmod(0o755)
                    output = Path(folder) / "out.png"
                    output.unlink(missing_ok=True)
                    self.assertEqual(
                        render_frameloom.render_frame(str(tool), "in.lottie", 5, output), expected)


class Scoring(unittest.TestCase):
    def test_differing_share_takes_the_worse_background(self):
        red = (255, 0, 0, 255)
        half_red = (255, 0, 0, 128)
        cases = [
            (frame(red), frame(red), 0.0),
            (frame(red), frame((0, 0, 0, 0)), 100.0),
            # Faint on both backgrounds: under the threshold.
            (frame((0, 0, 0, 0)), frame((255, 255, 255, 20)), 0.0),
            # White on white is invisible, but not on black.
            (frame((0, 0, 0, 0)), frame((255, 255, 255, 255)), 100.0),
            # Half-transparent red as straight alpha against the same value premultiplied.
            (frame(half_red), frame((128, 0, 0, 128)), 100.0),
        ]
        for first, second, expected in cases:
            with self.subTest(first=first.getpixel((0, 0)), second=second.getpixel((0, 0))):
                share = max(map(compare.differing_share, compare.difference_masks(first, second)))
                self.assertAlmostEqual(share, expected)

    def test_blank_ignores_a_few_stray_pixels(self):
        stray = frame((0, 0, 0, 0))
        stray.putpixel((3, 3), (255, 255, 255, 255))
        self.assertTrue(compare.is_blank(stray))
        self.assertTrue(compare.is_blank(frame((0, 0, 0, 10))))
        square = frame((0, 0, 0, 0))
        square.paste((0, 0, 0, 255), (0, 0, 20, 20))
        self.assertFalse(compare.is_blank(square))

    def test_classes(self):
        cases = [(0, compare.CLOSE), (2.0, compare.CLOSE), (2.01, compare.LITTLE),
                 (10.0, compare.LITTLE), (10.01, compare.LOT), (100, compare.LOT)]
        for percent, expected in cases:
            with self.subTest(percent=percent):
                self.assertEqual(compare.classify(percent), expected)


if __name__ == "__main__":
    unittest.main()
