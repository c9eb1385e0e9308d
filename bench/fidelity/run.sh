#!/usr/bin/env bash
# Compares Frameloom's frames with lottie-web's (SVG renderer, headless Chromium) on a folder of
# animations; see docs/fidelity.md.
#
# Usage: bench/fidelity/run.sh [FOLDER] [--frames N] [--worst K] [--out DIR] [--tool PATH]
#   FOLDER   *.json and *.lottie animations (default: $FRAMELOOM_CORPUS, else ../shared/corpus
#            beside the repository, or beside the main worktree when this is another worktree)
#   N        frames spread evenly after the first one (default 4)
#   K        worst animations drawn side by side into DIR/worst/ (default 5)
#   DIR      where results.tsv, worst/ and the rendered frames go (default: a new temporary folder)
#   PATH     the frameloom tool (default: $FRAMELOOM_TOOL, else build/tools/frameloom/frameloom,
#            built into build-fidelity/ when missing)
#
# Installs what it needs when missing: the Debian packages chromium and python3-pil (as root),
# and lottie-web and playwright-core from npm into ${XDG_CACHE_HOME:-~/.cache}/frameloom-fidelity,
# never into the repository. Runs at low priority.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/../.." && pwd)
scratch=${XDG_CACHE_HOME:-$HOME/.cache}/frameloom-fidelity
lottie_web_version=5.13.0
playwright_version=1.65.1
# Debian's interpreter: python3-pil installs for it, whatever python3 is first on the PATH.
python=/usr/bin/python3

# usage STATUS: prints the comment block above and exits.
usage() {
  sed -n '2,/^set /s/^# \{0,1\}//p' "$0" >&2
  exit "$1"
}

folder=${FRAMELOOM_CORPUS:-$root/../shared/corpus}
if [ -z "${FRAMELOOM_CORPUS:-}" ] && [ ! -d "$folder" ]; then
  common=$(git -C "$root" rev-parse --path-format=absolute --git-common-dir 2> /dev/null || true)
  [ -n "$common" ] && folder=$(dirname "$common")/../shared/corpus
fi
frames=4
worst=5
out=""
tool=${FRAMELOOM_TOOL:-}
while [ $# -gt 0 ]; do
  case $1 in
    --frames) frames=${2:?--frames needs a number}; shift 2 ;;
    --worst) worst=${2:?--worst needs a number}; shift 2 ;;
    --out) out=${2:?--out needs a folder}; shift 2 ;;
    --tool) tool=${2:?--tool needs a path}; shift 2 ;;
    -h | --help) usage 0 ;;
    -*) echo "fidelity: unknown option $1" >&2; usage 2 ;;
    *) folder=$1; shift ;;
  esac
done
[[ $frames =~ ^[1-9][0-9]*$ && $worst =~ ^[0-9]+$ ]] || usage 2
[ -d "$folder" ] || { echo "fidelity: no folder $folder" >&2; exit 1; }
renice -n 10 -p $$ > /dev/null

install_packages() {
  local missing=()
  for package in chromium python3-pil; do
    dpkg-query -W -f='${Status}' "$package" 2> /dev/null | grep -q "install ok installed" ||
      missing+=("$package")
  done
  [ ${#missing[@]} -eq 0 ] && return
  if [ "$(id -u)" -ne 0 ]; then
    echo "fidelity: needs sudo apt-get install -y ${missing[*]}" >&2
    exit 1
  fi
  DEBIAN_FRONTEND=noninteractive apt-get update -qq
  DEBIAN_FRONTEND=noninteractive apt-get install -y -qq "${missing[@]}" > /dev/null
}

install_node_modules() {
  if ! grep -qs "\"version\": \"$lottie_web_version\"" \
    "$scratch/node_modules/lottie-web/package.json" ||
    ! grep -qs "\"version\": \"$playwright_version\"" \
      "$scratch/node_modules/playwright-core/package.json"; then
    mkdir -p "$scratch"
    npm install --prefix "$scratch" --no-audit --no-fund --silent --no-save \
      "lottie-web@$lottie_web_version" "playwright-core@$playwright_version"
  fi
}

find_tool() {
  if [ -z "$tool" ]; then
    tool=$root/build/tools/frameloom/frameloom
    if [ ! -x "$tool" ]; then
      tool=$root/build-fidelity/tools/frameloom/frameloom
      cmake -S "$root" -B "$root/build-fidelity" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
        -DFRAMELOOM_BUILD_TESTS=OFF > /dev/null
      cmake --build "$root/build-fidelity" --target frameloom_tool -j 2 > /dev/null
    fi
  fi
  [ -x "$tool" ] || { echo "fidelity: no frameloom tool at $tool" >&2; exit 1; }
}

# compare_folder FOLDER DIR [compare.py options]: renders FOLDER with both renderers (side by side
# in time, one core each) into DIR/frames and compares the frames.
compare_folder() {
  local source=$1 dir=$2
  shift 2
  "$python" "$here/prepare.py" "$source" "$dir/frames" --frames "$frames"
  NODE_PATH=$scratch/node_modules node "$here/render_web.js" "$dir/frames/jobs.json" \
    "$scratch/node_modules/lottie-web/build/player/lottie_svg.min.js" "$dir/frames/web" &
  local web=$!
  "$python" "$here/render_frameloom.py" "$tool" "$dir/frames/jobs.json" "$dir/frames/frameloom"
  wait "$web"
  "$python" "$here/compare.py" "$dir/frames" "$dir" "$@"
}

install_packages
install_node_modules
find_tool
[ -n "$out" ] || out=$(mktemp -d "${TMPDIR:-/tmp}/frameloom-fidelity.XXXXXX")
mkdir -p "$out"
start=$SECONDS

echo "calibration (bench/fidelity/calibration):"
if ! compare_folder "$here/calibration" "$out/calibration" --worst 4 --calibration; then
  echo "fidelity: the harness is off: the calibration documents do not agree closely" \
    "(see $out/calibration/worst/)" >&2
  exit 1
fi
echo
echo "$folder:"
compare_folder "$folder" "$out" --worst "$worst"
echo "results in $out/results.tsv, the $worst worst side by side in $out/worst/" \
  "($((SECONDS - start)) s)"
