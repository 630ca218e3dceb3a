# shellcheck shell=bash
# What every script here starts with. To be read in by `.`.

set -euo pipefail

project=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
cd "$project"

say() { printf '== %s\n' "$*"; }

fail() {
  printf '%s: %s\n' "$(basename "$0")" "$*" >&2
  exit 1
}

# configure PRESET OPTION...: prepares build/PRESET; quick when nothing changed.
configure() {
  local launcher=()
  command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
  cmake --preset "$@" "${launcher[@]}" >"$project/build/configure.log" 2>&1 || {
    cat "$project/build/configure.log"
    fail "the build could not be configured"
  }
}

# build FOLDER TARGET...: builds quietly, showing what the compiler has to say.
build() {
  local folder=$1 target targets=()
  shift
  for target in "$@"; do targets+=(--target "$target"); done
  cmake --build "$folder" --parallel "$(nproc)" "${targets[@]}" -- --quiet
}

mkdir -p build
# shellcheck source=packages.sh
. "$project/scripts/lib/packages.sh"
