# Shared set-up for the scripts: installs what a fresh Debian machine lacks,
# then configures and builds. Sourced, not run.
set -euo pipefail
ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
BUILD="${MOTILANE_BUILD_DIR:-$ROOT/build}"

need_pkgs=(g++ cmake ninja-build ccache libgtest-dev libbenchmark-dev libtinyobjloader-dev)
missing=()
for p in "${need_pkgs[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "Installing: ${missing[*]}" >&2
  SUDO=""
  [ "$(id -u)" -ne 0 ] && SUDO="sudo"
  export DEBIAN_FRONTEND=noninteractive
  $SUDO apt-get update -qq
  $SUDO apt-get install -y -qq "${missing[@]}" >/dev/null
fi

# Later -D options override the default build type.
motilane_build() {
  cmake -S "$ROOT" -B "$BUILD" -G Ninja -DCMAKE_BUILD_TYPE=Release "$@" >/dev/null
  cmake --build "$BUILD" -j "$(nproc)"
}

# Configures like motilane_build, then builds only the named targets.
motilane_build_targets() {
  cmake -S "$ROOT" -B "$BUILD" -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
  cmake --build "$BUILD" -j "$(nproc)" --target "$@"
}
