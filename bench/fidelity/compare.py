"""Compares the frames both renderers drew and reports how far Frameloom is from lottie-web.

Usage: compare.py WORK_DIR OUT_DIR [--worst K] [--calibration]

WORK_DIR holds jobs.json and the frames of render_web.js (web/) and render_frameloom.py
(frameloom/). Each frame pair is composited over white and over black; a pixel differs when its
largest channel differs by more than DIFFERENCE_THRESHOLD, and a frame scores the share of
differing pixels on the worse background. An animation scores its worst frame.

Prints one line per animation and the totals, writes OUT_DIR/results.tsv and, for the K worst
animations, OUT_DIR/worst/NN-name.png: per frame lottie-web | Frameloom | difference. With
--calibration it exits 1 unless every animation agrees closely and none is blank on one side.
"""

import argparse
import json
import re
import sys
from pathlib import Path

from PIL import Image, ImageChops, ImageDraw

SIZE = (250, 250)
# A channel difference at or below this is antialiasing or rounding, not a different picture.
DIFFERENCE_THRESHOLD = 32
# Upper bounds, in percent of the pixels of the worst frame, of the first two classes.
CLOSE_LIMIT = 2.0
LITTLE_LIMIT = 10.0
CLOSE, LITTLE, LOT, NOT_COMPARED = ("agree closely", "differ a little", "differ a lot",
                                    "not compared")
# A frame with at most this share (in percent) of pixels told apart from the background shows
# nothing: a few stray antialiased pixels at an edge are not a picture.
BLANK_LIMIT = 0.05
BLANK_IN_FRAMELOOM = "blank in Frameloom but not in lottie-web"
BLANK_IN_WEB = "blank in lottie-web but not in Frameloom"
BACKGROUNDS = ((255, 255, 255, 255), (0, 0, 0, 255))
# Frames are tiny; a picture of more pixels than this is not one of ours and is not decoded.
Image.MAX_IMAGE_PIXELS = 4 * SIZE[0] * SIZE[1]

GAP = 6
LABEL_HEIGHT = 16
CHECKER_SQUARE = 10


def load_frame(path):
    """The frame as RGBA, or None when it is missing, unreadable or not SIZE."""
    try:
        with Image.open(path) as image:
            frame = image.convert("RGBA")
    except (OSError, Image.DecompressionBombError):
        return None
    return frame if frame.size == SIZE else None


def empty_frame():
    return Image.new("RGBA", SIZE, (0, 0, 0, 0))


def difference_masks(first, second):
    """Per background, a mask that is 255 where the two composited frames differ."""
    masks = []
    for background in BACKGROUNDS:
        under = Image.new("RGBA", SIZE, background)
        a = Image.alpha_composite(under, first).convert("RGB")
        b = Image.alpha_composite(under, second).convert("RGB")
        red, green, blue = ImageChops.difference(a, b).split()
        largest = ImageChops.lighter(ImageChops.lighter(red, green), blue)
        masks.append(largest.point(lambda v: 255 if v > DIFFERENCE_THRESHOLD else 0))
    return masks


def differing_share(mask):
    return 100.0 * mask.histogram()[255] / (SIZE[0] * SIZE[1])


def is_blank(frame):
    """Whether the frame shows nothing, on either background."""
    return all(differing_share(m) <= BLANK_LIMIT for m in difference_masks(frame, empty_frame()))


def classify(percent):
    if percent <= CLOSE_LIMIT:
        return CLOSE
    return LITTLE if percent <= LITTLE_LIMIT else LOT


def compare_job(job, work, failures):
    """The result of one animation: its class, worst frame and per-frame scores."""
    result = {"name": job["name"], "index": job["index"], "frames": [], "flags": [],
              "notes": [], "worst": 0.0, "worst_frame": job["frames"][0]}
    web_failure = failures["web"].get(str(job["index"]))
    if "error" in job or web_failure:
        result["class"] = NOT_COMPARED
        result["notes"].append(job.get("error") or f"lottie-web: {web_failure}")
        return result
    if str(job["index"]) in failures["frameloom"]:
        result["notes"].append(f"Frameloom: {failures['frameloom'][str(job['index'])]}")
    if str(job["index"]) in failures["notes"]:
        result["notes"].append(f"lottie-web: {failures['notes'][str(job['index'])]}")
    frames = [(frame, load_frame(work / "web" / str(job["index"]) / f"{frame}.png"),
               load_frame(work / "frameloom" / str(job["index"]) / f"{frame}.png"))
              for frame in job["frames"]]
    missing = [frame for frame, web, _ in frames if web is None]
    if missing:
        result["class"] = NOT_COMPARED
        result["notes"].append(f"lottie-web drew no frame {missing[0]}")
        return result
    for frame, web, ours in frames:
        share = max(differing_share(m) for m in difference_masks(web, ours or empty_frame()))
        web_blank, ours_blank = is_blank(web), ours is None or is_blank(ours)
        if ours_blank and not web_blank and BLANK_IN_FRAMELOOM not in result["flags"]:
            result["flags"].append(BLANK_IN_FRAMELOOM)
        if web_blank and not ours_blank and BLANK_IN_WEB not in result["flags"]:
            result["flags"].append(BLANK_IN_WEB)
        result["frames"].append({"frame": frame, "percent": share})
        if share > result["worst"]:
            result["worst"], result["worst_frame"] = share, frame
    result["class"] = classify(result["worst"])
    return result


def checkerboard():
    """Mid-grey squares, on which both white and black drawings show."""
    board = Image.new("RGBA", SIZE, (160, 160, 160, 255))
    draw = ImageDraw.Draw(board)
    for y in range(0, SIZE[1], CHECKER_SQUARE):
        for x in range(0, SIZE[0], CHECKER_SQUARE):
            if (x // CHECKER_SQUARE + y // CHECKER_SQUARE) % 2:
                draw.rectangle([x, y, x + CHECKER_SQUARE - 1, y + CHECKER_SQUARE - 1],
                               fill=(128, 128, 128, 255))
    return board


def difference_panel(web, ours, board):
    """lottie-web's frame faded to light grey, with the differing pixels in red."""
    mask = max(difference_masks(web, ours), key=differing_share)
    faded = Image.alpha_composite(board, web).convert("L")
    panel = Image.merge("RGB", [faded.point(lambda v: 128 + v // 2)] * 3)
    panel.paste((220, 0, 0), mask=mask)
    return panel


def side_by_side(result, work, path):
    board = checkerboard()
    rows = result["frames"]
    width = 3 * SIZE[0] + 4 * GAP
    height = 2 * LABEL_HEIGHT + GAP + len(rows) * (LABEL_HEIGHT + SIZE[1] + GAP)
    sheet = Image.new("RGB", (width, height), (255, 255, 255))
    draw = ImageDraw.Draw(sheet)
    draw.text((GAP, 2), result["name"], fill=(0, 0, 0))
    draw.text((GAP, LABEL_HEIGHT + 2),
              f"{result['class']}, worst {result['worst']:.2f} % at frame "
              f"{result['worst_frame']}; lottie-web | Frameloom | difference", fill=(0, 0, 0))
    y = 2 * LABEL_HEIGHT + GAP
    for row in rows:
        frame = row["frame"]
        web = load_frame(work / "web" / str(result["index"]) / f"{frame}.png") or empty_frame()
        ours = load_frame(work / "frameloom" / str(result["index"]) / f"{frame}.png") or \
            empty_frame()
        draw.text((GAP, y + 2), f"frame {frame}: {row['percent']:.2f} %", fill=(0, 0, 0))
        y += LABEL_HEIGHT
        sheet.paste(Image.alpha_composite(board, web).convert("RGB"), (GAP, y))
        sheet.paste(Image.alpha_composite(board, ours).convert("RGB"), (2 * GAP + SIZE[0], y))
        sheet.paste(difference_panel(web, ours, board), (3 * GAP + 2 * SIZE[0], y))
        y += SIZE[1] + GAP
    sheet.save(path)


def load_failures(work):
    def read(path):
        return json.loads(path.read_text(encoding="utf-8")) if path.is_file() else {}
    web = read(work / "web" / "web.json")
    return {"web": web.get("failures", {}), "notes": web.get("notes", {}),
            "frameloom": read(work / "frameloom" / "frameloom.json").get("failures", {})}


def write_table(results, path):
    with open(path, "w", encoding="utf-8") as table:
        table.write("name\tclass\tworst_percent\tworst_frame\tflags\tframes\tnotes\n")
        for r in results:
            frames = " ".join(f"{f['frame']}:{f['percent']:.2f}" for f in r["frames"])
            fields = [r["name"], r["class"], f"{r['worst']:.2f}", str(r["worst_frame"]),
                      "; ".join(r["flags"]), frames, "; ".join(r["notes"])]
            table.write("\t".join(f.replace("\t", " ").replace("\n", " ") for f in fields) + "\n")


def report(results):
    width = max(len(r["name"]) for r in results)
    for r in results:
        extra = "".join(f"  [{text}]" for text in r["flags"] + r["notes"])
        score = "" if r["class"] == NOT_COMPARED else \
            f"{r['worst']:6.2f} %  frame {r['worst_frame']}"
        print(f"{r['name']:<{width}}  {r['class']:<15}  {score}{extra}")
    count = lambda test: sum(1 for r in results if test(r))
    print(f"totals: {len(results)} animations: "
          f"{count(lambda r: r['class'] == CLOSE)} agree closely, "
          f"{count(lambda r: r['class'] == LITTLE)} differ a little, "
          f"{count(lambda r: r['class'] == LOT)} differ a lot, "
          f"{count(lambda r: r['class'] == NOT_COMPARED)} not compared; "
          f"{count(lambda r: BLANK_IN_FRAMELOOM in r['flags'])} {BLANK_IN_FRAMELOOM}, "
          f"{count(lambda r: BLANK_IN_WEB in r['flags'])} {BLANK_IN_WEB}")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("work", type=Path)
    parser.add_argument("out", type=Path)
    parser.add_argument("--worst", type=int, default=5)
    parser.add_argument("--calibration", action="store_true")
    args = parser.parse_args()
    jobs = json.loads((args.work / "jobs.json").read_text(encoding="utf-8"))["jobs"]
    failures = load_failures(args.work)
    results = [compare_job(job, args.work, failures) for job in jobs]
    report(results)
    args.out.mkdir(parents=True, exist_ok=True)
    write_table(results, args.out / "results.tsv")
    compared = sorted((r for r in results if r["class"] != NOT_COMPARED),
                      key=lambda r: -r["worst"])
    (args.out / "worst").mkdir(exist_ok=True)
    for rank, result in enumerate(compared[:max(0, args.worst)], 1):
        safe = re.sub(r"[^A-Za-z0-9._-]+", "_", result["name"])
        side_by_side(result, args.work, args.out / "worst" / f"{rank:02d}-{safe}.png")
    if args.calibration and any(r["class"] != CLOSE or r["flags"] for r in results):
        sys.exit(1)


if __name__ == "__main__":
    main()
