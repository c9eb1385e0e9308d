#!/usr/bin/env bash
# Checks Frameloom as a library other projects use. For the static and the shared build it
# builds the libraries alone, installs them into a scratch prefix and builds and runs the host
# example against the installed package twice: through find_package and through pkg-config. Then
# it builds a host project with targets of its own named asio and platform that adds Frameloom as
# a subdirectory, and the windowed example, whose screenshot under Xvfb must show the animation.
# Last, it packs the shared build with CPack (cpack -G DEB), checks that apt would install the
# package, unpacks it into a scratch root and builds and runs the host example against that, both
# ways again.
#
# The builds live in build-check-* next to build/ so that ccache, when installed, serves the static
# one from the default build. FRAMELOOM_JOBS sets the parallel jobs (default 2).
set -Eeuo pipefail
# A check that fails says which line stopped it; many of them fail without a message of their own.
trap 'echo "check_install: failed at line $LINENO: $BASH_COMMAND" >&2' ERR
cd "$(dirname "$0")/.."
scripts/dependencies.sh
root=$PWD
jobs=${FRAMELOOM_JOBS:-2}
if command -v ccache >/dev/null; then
  export CMAKE_CXX_COMPILER_LAUNCHER=${CMAKE_CXX_COMPILER_LAUNCHER-ccache}
  export CMAKE_C_COMPILER_LAUNCHER=${CMAKE_C_COMPILER_LAUNCHER-ccache}
  export CCACHE_BASEDIR=${CCACHE_BASEDIR-$root}
fi

scratch=$(mktemp -d)
xvfb_pid=
cleanup() {
  if [ -n "$xvfb_pid" ]; then kill "$xvfb_pid" 2>/dev/null || true; fi
  rm -rf "$scratch"
}
trap cleanup EXIT

# The bundled demo animation as a .lottie archive.
python3 - "$root/assets/demo-animation.json" "$scratch/demo.lottie" <<'EOF'
import json, sys, zipfile
with zipfile.ZipFile(sys.argv[2], "w") as archive:
    archive.writestr("manifest.json", json.dumps({"animations": [{"id": "demo"}]}))
    with open(sys.argv[1]) as animation:
        archive.writestr("animations/demo.json", animation.read())
EOF

# Runs a host binary on the demo and checks that it reported the frames it should have received.
run_host() {
  local output
  output=$("$@" "$scratch/demo.lottie" 10)
  echo "  $output"
  [[ $output == "received "*" frames of 320x240 from Frameloom "* ]]
}

for kind in static shared; do
  echo "== $kind build"
  # The static build matches the default build's flags, so ccache has it; the shared one skips
  # debug information, which costs most of the compile time.
  shared=OFF
  build_type=RelWithDebInfo
  if [ "$kind" = shared ]; then
    shared=ON
    build_type=Release
  fi
  build=$root/build-check-$kind
  prefix=$scratch/prefix-$kind
  cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=$build_type -DBUILD_SHARED_LIBS=$shared -DFRAMELOOM_BUILD_TESTS=OFF \
    -DFRAMELOOM_BUILD_TOOL=OFF -DCMAKE_INSTALL_PREFIX="$prefix" >/dev/null
  nice cmake --build "$build" -j "$jobs"
  cmake --install "$build" >/dev/null
  # Everything lands under the prefix.
  if grep -v "^$prefix/" "$build/install_manifest.txt"; then
    echo "installed outside the prefix" >&2
    exit 1
  fi

  echo "-- host example through find_package"
  cmake -S examples/host -B "$scratch/host-$kind" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
  cmake --build "$scratch/host-$kind" >/dev/null
  run_host "$scratch/host-$kind/frameloom_host"

  echo "-- host example through pkg-config"
  pc_static=
  [ "$kind" = static ] && pc_static=--static
  libdir=$(dirname "$(find "$prefix" -name frameloom.pc)")/..
  # shellcheck disable=SC2046 # pkg-config's output is a list of words.
  g++ -Wall -Wextra -Werror -o "$scratch/host-pc-$kind" examples/host/host.cpp \
    $(PKG_CONFIG_PATH=$libdir/pkgconfig pkg-config --cflags --libs $pc_static frameloom) \
    -Wl,-rpath,"$libdir"
  run_host "$scratch/host-pc-$kind"
done

echo "== Frameloom as a subdirectory of a host with its own asio and platform targets"
cmake -S examples/subproject -B "$root/build-check-subproject" -G Ninja \
  -DFRAMELOOM_SOURCE_DIR="$root" >/dev/null
nice cmake --build "$root/build-check-subproject" -j "$jobs" --target subproject_host \
  | tee "$scratch/subproject.log"
if grep -i "warning" "$scratch/subproject.log"; then
  echo "the subdirectory build is not warning-free" >&2
  exit 1
fi
"$root/build-check-subproject/subproject_host"

echo "== windowed example under Xvfb"
prefix=$scratch/prefix-shared
cmake -S examples/window -B "$scratch/window" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$scratch/window" >/dev/null
# Xvfb picks a free display itself and writes its number once it accepts connections, so that
# the check never meets another server's display.
Xvfb -displayfd 3 -screen 0 640x480x24 -nolisten tcp 3>"$scratch/display" >/dev/null 2>&1 &
xvfb_pid=$!
for _ in $(seq 100); do
  [ -s "$scratch/display" ] && break
  sleep 0.1
done
display=:$(head -n 1 "$scratch/display")
[ "$display" != ":" ] || { echo "Xvfb did not start" >&2; exit 1; }
DISPLAY=$display SDL_VIDEODRIVER=x11 "$scratch/window/frameloom_window" "$scratch/demo.lottie" \
  --screenshot "$scratch/window.ppm"
python3 scripts/check_screenshot.py "$scratch/window.ppm"

echo "== Debian package"
(cd "$root/build-check-shared" && cpack -G DEB >/dev/null)
package=$(ls "$root"/build-check-shared/frameloom-dev_*.deb)
apt-get install --simulate "$package" >/dev/null
dpkg-deb -x "$package" "$scratch/deb-root"
cmake -S examples/host -B "$scratch/host-deb" -G Ninja -DCMAKE_PREFIX_PATH="$scratch/deb-root/usr" \
  >/dev/null
cmake --build "$scratch/host-deb" >/dev/null
run_host "$scratch/host-deb/frameloom_host"
# The shared package's frameloom.pc needs no other package's pkg-config files: the development
# files the package depends on are not all there on a machine that installed only it.
deb_pc=$(dirname "$(find "$scratch/deb-root" -name frameloom.pc)")
# shellcheck disable=SC2046 # pkg-config's output is a list of words.
g++ -Wall -Wextra -Werror -o "$scratch/host-pc-deb" examples/host/host.cpp \
  $(PKG_CONFIG_LIBDIR=$deb_pc pkg-config --cflags --libs frameloom) -Wl,-rpath,"$deb_pc/.."
run_host "$scratch/host-pc-deb"
echo "install checks passed"
