# shellcheck shell=bash
# Building and running the fuzz targets. To be read in by `.`, after common.sh.

found=build/fuzz/found

# fuzz_targets: the names of all targets, a line each.
fuzz_targets() {
  local source
  for source in fuzz/*.cpp; do basename "$source" .cpp; done
}

# build_fuzzers TARGET...
build_fuzzers() {
  configure fuzz
  build build/fuzz "${@/#/fuzz_}"
}

# run_fuzzer TARGET SECONDS OPTION...: from the kept corpus, and from what earlier runs have found here.
run_fuzzer() {
  local name=$1 seconds=$2 options=()
  shift 2
  mkdir -p "$found/$name"
  if [ -e "fuzz/$name.dict" ]; then options=("-dict=fuzz/$name.dict"); fi
  "build/fuzz/fuzz/fuzz_$name" -max_total_time="$seconds" -timeout=60 "${options[@]}" \
    -artifact_prefix="$found/$name-" "$@" "$found/$name" "fuzz/corpus/$name"
}
