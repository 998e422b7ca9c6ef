# Shared by the scripts of this folder, which source it. Leaves the shell in the root of the tree.
set -euo pipefail

# One locale for every tool that is called, whatever the caller's; no terminal is ever asked.
export LC_ALL=C.UTF-8
unset CDPATH LANGUAGE
exec </dev/null

script_name="scripts/$(basename -- "$0")"
tree_root="$(cd -P -- "$(dirname -- "${BASH_SOURCE[0]}")/.." && pwd)"
cd -- "$tree_root"

# Prints one line that says what failed, and ends the script.
fail() {
  printf '%s: %s\n' "$script_name" "$*" >&2
  exit 1
}

say() {
  printf '== %s\n' "$*"
}

jobs_here() {
  nproc 2>/dev/null || echo 2
}

# build_preset <preset> [<target>...]: configures and builds a preset of CMakePresets.json.
build_preset() {
  local preset="$1" speed=(-DQOV_TESTS_AT_ONCE=ON) targets=()
  shift
  if [ "$#" -gt 0 ]; then
    targets=(--target "$@")
  fi
  if command -v ccache >/dev/null; then
    # Which cannot keep what was compiled with precompiled headers.
    speed=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DQOV_TESTS_AT_ONCE=OFF)
  fi
  say "configure $preset"
  cmake --preset "$preset" "${speed[@]}" || fail "configuring preset $preset failed"
  say "build $preset"
  cmake --build --preset "$preset" -j "$(jobs_here)" "${targets[@]}" ||
    fail "building preset $preset failed"
}

# for_preset <preset> <command>...: runs what a preset has built, or what runs that. Newer kernels spread
# mappings further than the sanitizers' shadow layout of this compiler allows ("unexpected memory
# mapping"); without address randomisation they always fit.
for_preset() {
  local preset="$1" wrapper=()
  shift
  if [ "$preset" != release ] && setarch "$(uname -m)" -R true 2>/dev/null; then
    wrapper=(setarch "$(uname -m)" -R)
  fi
  "${wrapper[@]}" "$@"
}
