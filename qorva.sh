#!/usr/bin/env bash
# Qorva's one entry for set-up, building, the demo, tests and benchmarks.
#   ./qorva.sh demo    install what is missing, build Release, simulate the demo scenes headless
#   ./qorva.sh test    install, build, run the whole test suite
#   ./qorva.sh bench   install, build, run the benchmarks and record them in docs/PERFORMANCE.md
#   ./qorva.sh build   install and build only
set -euo pipefail
cd "$(dirname "$0")"
ROOT=$(pwd)
BUILD_DIR=${QORVA_BUILD_DIR:-$ROOT/build}
JOBS=${QORVA_JOBS:-$(nproc)}

PACKAGES=(cmake g++ pkg-config ccache ninja-build libopenvdb-dev libtbb-dev libblosc-dev
  libboost-iostreams-dev libboost-program-options-dev libboost-filesystem-dev zlib1g-dev
  libtinyxml2-dev libtinyobjloader-dev libopenexr-dev libimath-dev libpng-dev qtbase5-dev
  libqt5opengl5-dev libglu1-mesa-dev xvfb xauth libgl1-mesa-dri fonts-dejavu-core
  libgtest-dev libgmock-dev libbenchmark-dev)

install_packages() {
  local missing=()
  for p in "${PACKAGES[@]}"; do
    dpkg -s "$p" >/dev/null 2>&1 || missing+=("$p")
  done
  [ ${#missing[@]} -eq 0 ] && return 0
  echo "Installing: ${missing[*]}"
  local sudo=""
  if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null 2>&1 || { echo "error: need root or sudo to install packages."; exit 1; }
    sudo="sudo"
  fi
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
}

build() {
  install_packages
  cmake -S "$ROOT" -B "$BUILD_DIR" -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
  cmake --build "$BUILD_DIR" -j "$JOBS"
}

demo() {
  build
  local out="$ROOT/out/demo"
  mkdir -p "$out"
  rm -f "$out"/*.bin
  echo "Simulating scenes/sand_demo.qrv headless..."
  "$BUILD_DIR/src/qorva" --sim --headless --cachepath "$out" "$ROOT/scenes/sand_demo.qrv" | grep -v '^solved step$'
  local files
  files=$(find "$out" -maxdepth 1 -name '*.bin' -type f | wc -l)
  echo
  echo "Simulating scenes/graph_demo.qrv headless (a node graph writing an OBJ per frame)..."
  rm -rf "$out/graph"
  "$BUILD_DIR/src/qorva" --sim --headless "$ROOT/scenes/graph_demo.qrv" | grep -v -e '^solved step$' -e 'preparing to write frame'
  local meshes
  meshes=$(find "$out/graph" -maxdepth 1 -name '*.obj' -type f 2>/dev/null | wc -l)
  echo
  echo "Simulating scenes/sand_mesh.qrv headless (the sand demo with a Mesher surfacing the pile)..."
  rm -rf "$out/mesh"
  "$BUILD_DIR/src/qorva" --sim --headless --cachepath "$out/sand_mesh" "$ROOT/scenes/sand_mesh.qrv" \
    | grep -v -e '^solved step$' -e 'preparing to write frame' -e '^  writing to '
  local piles
  piles=$(find "$out/mesh" -maxdepth 1 -name 'pile.*.obj' -type f 2>/dev/null | wc -l)
  echo
  echo "Simulating scenes/sph_dambreak.qrv headless (a column of SPH fluid released in a tank)..."
  rm -rf "$out/sph"
  "$BUILD_DIR/src/qorva" --sim --headless --cachepath "$out/sph" "$ROOT/scenes/sph_dambreak.qrv" \
    | grep -v -e '^solved step$' -e '^  writing to '
  local fluid
  fluid=$(find "$out/sph" -maxdepth 1 -name '*.bin' -type f 2>/dev/null | wc -l)
  echo
  echo "Simulating scenes/graph_granular.qrv headless (grains poured by a node graph, meshed per frame)..."
  rm -rf "$out/graph_granular"
  "$BUILD_DIR/src/qorva" --sim --headless "$ROOT/scenes/graph_granular.qrv" \
    | grep -v -e '^solved step$' -e 'preparing to write frame'
  local grains
  grains=$(find "$out/graph_granular" -maxdepth 1 -name 'pile.*.obj' -type f 2>/dev/null | wc -l)
  echo
  echo "Demo finished."
  echo "  particle caches: $out ($files .bin files, one per frame and system)"
  echo "  graph meshes:    $out/graph ($meshes .obj files, one per frame)"
  echo "  sand surface:    $out/mesh ($piles pile.####.obj files, one per frame)"
  echo "  SPH dam break:   $out/sph ($fluid .bin files, one per frame)"
  echo "  graph granular:  $out/graph_granular ($grains pile.####.obj files, one per frame)"
}

run_tests() {
  build
  cd "$BUILD_DIR"
  ctest --output-on-failure -j "$JOBS" --timeout 600
}

bench() {
  build
  local results="$BUILD_DIR/bench-results"
  mkdir -p "$results"
  local summary="$results/summary.md"
  {
    echo "## $(date -u +%Y-%m-%d) on $(nproc) cores, $(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2 | sed 's/^ //')"
    echo
  } >"$summary"
  for b in "$BUILD_DIR"/bench/*_bench; do
    [ -x "$b" ] || continue
    local name
    name=$(basename "$b")
    echo "== $name"
    local runner=()
    [[ $name == gl_* ]] && runner=("$ROOT/tests/run_under_xvfb.sh")
    "${runner[@]}" "$b" --benchmark_counters_tabular=true | tee "$results/$name.txt"
    { echo "### $name"; echo '```'; grep -v '^\*\*\*' "$results/$name.txt"; echo '```'; echo; } >>"$summary"
  done
  {
    echo
    cat "$summary"
  } >>"$ROOT/docs/PERFORMANCE.md"
  echo "Figures appended to docs/PERFORMANCE.md"
}

case "${1:-}" in
  demo) demo ;;
  test) run_tests ;;
  bench) bench ;;
  build) build ;;
  *) echo "usage: $0 demo|test|bench|build"; exit 2 ;;
esac
