"""Renders the frames of a work list with Frameloom's own tool.

Usage: render_frameloom.py TOOL JOBS_JSON OUT_DIR

For every frame f of every animation: `TOOL render X.lottie --size 250x250 --frame f --output
OUT_DIR/<index>/<f>.png` (straight-alpha RGBA, transparent background). OUT_DIR/frameloom.json
gets, per animation index, the one-line error of the first frame the tool failed on.
"""

import json
import subprocess
import sys
from pathlib import Path

SIZE = "250x250"
# The largest corpus documents take well under a second a frame; a render that takes this long
# is stuck, and is counted as a failure rather than allowed to stall the run.
FRAME_TIMEOUT_SECONDS = 120


def render_frame(tool, lottie, frame, output):
    """None when the frame was written, else the tool's error in one line."""
    command = [tool, "render", lottie, "--size", SIZE, "--frame", str(frame),
               "--output", str(output)]
    try:
        result = subprocess.run(command, capture_output=True, text=True, errors="replace",
                                timeout=FRAME_TIMEOUT_SECONDS, check=False)
    except subprocess.TimeoutExpired:
        return f"frame {frame} took longer than {FRAME_TIMEOUT_SECONDS} s"
    if result.returncode == 0 and output.is_file():
        return None
    lines = result.stderr.strip().splitlines()
    return lines[-1] if lines else f"exit status {result.returncode} on frame {frame}"


def main():
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    tool, jobs_file, out_root = sys.argv[1], Path(sys.argv[2]), Path(sys.argv[3])
    jobs = json.loads(jobs_file.read_text(encoding="utf-8"))["jobs"]
    failures = {}
    for job in jobs:
        if "error" in job:
            continue
        out_dir = out_root / str(job["index"])
        out_dir.mkdir(parents=True, exist_ok=True)
        for frame in job["frames"]:
            error = render_frame(tool, job["lottie"], frame, out_dir / f"{frame}.png")
            if error:
                failures.setdefault(job["index"], error)
    (out_root / "frameloom.json").write_text(json.dumps({"failures": failures}, indent=1),
                                             encoding="utf-8")


if __name__ == "__main__":
    main()
