# Shared by the project's scripts: installs what is missing and configures a build folder.
# shellcheck shell=bash
set -euo pipefail

ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
PACKAGES=(cmake ninja-build g++ clang-14 libclang-rt-14-dev pkg-config liblzo2-dev libssl-dev
          libogg-dev libvorbis-dev libsamplerate0-dev libpng-dev nlohmann-json3-dev libgtest-dev libgmock-dev
          libbenchmark-dev libcli11-dev libtomlplusplus-dev libsquish-dev libstb-dev)

ensure_packages() {
  local missing=()
  for p in "${PACKAGES[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
      missing+=("$p")
    fi
  done
  if [ ${#missing[@]} -eq 0 ]; then return 0; fi
  echo "installing: ${missing[*]}"
  local sudo=""
  if [ "$(id -u)" -ne 0 ]; then sudo="sudo"; fi
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
}

# configure BUILD_DIR [cmake args...]: configures once, later runs rebuild incrementally.
configure() {
  local dir="$1"; shift
  if [ ! -f "$dir/build.ninja" ]; then
    local launcher=()
    # A compiler cache, when the machine has one, makes a fresh clone build in seconds.
    if command -v ccache >/dev/null 2>&1; then launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache); fi
    cmake -S "$ROOT" -B "$dir" -G Ninja "${launcher[@]}" "$@"
  fi
}
