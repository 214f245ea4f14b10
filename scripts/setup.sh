#!/usr/bin/env bash
# Sets up a fresh Debian machine (as root), builds, and runs one job:
#   scripts/setup.sh example   build (Release), print the bundled example's values and chart them
#   scripts/setup.sh test      build (Release) and run the whole test suite
#   scripts/setup.sh sanitize  build with address and undefined sanitizers and run the suite
#   scripts/setup.sh sanitize-thread  build with the thread sanitizer and run the suite
#   scripts/setup.sh docs      the API reference and the docs/ pages as HTML in build/docs;
#                              any Doxygen warning fails it
#   scripts/setup.sh fuzz      build the libFuzzer targets (clang) and run each for
#                              QD_FUZZ_SECONDS seconds (60 by default) from fuzz/corpus/
# Safe to run again: packages already present are not reinstalled, and the
# build only redoes what changed.
set -euo pipefail

job=${1:-example}
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
packages=(g++ cmake ninja-build pkgconf libpugixml-dev libgtest-dev libgmock-dev libbenchmark-dev libcli11-dev nlohmann-json3-dev
          pybind11-dev python3-dev python3-numpy python3-pytest python3-matplotlib chromium)
# The documentation needs its generator and nothing that builds.
[[ $job == docs ]] && packages=(doxygen)
if [[ $job == fuzz ]]; then packages+=(clang libclang-rt-dev); fi

missing=()
for package in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' || missing+=("$package")
done
if ((${#missing[@]})); then
  echo "installing: ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  apt-get install -y -qq "${missing[@]}"
fi

jobs=$(nproc 2>/dev/null || echo 2)
build() {  # build DIR [cmake options...]
  local dir=$1
  shift
  cmake -S "$root" -B "$dir" -G Ninja "$@" >/dev/null
  cmake --build "$dir" -j "$jobs"
}

case "$job" in
  example)
    build "$root/build" -DCMAKE_BUILD_TYPE=Release
    "$root/build/tools/qdparam" eval
    "$root/build/tools/qdparam" plot --out "$root/build/example.svg" --force
    echo "The chart is $root/build/example.svg: open it in a web browser."
    ;;
  test)
    build "$root/build" -DCMAKE_BUILD_TYPE=Release
    ctest --test-dir "$root/build" --output-on-failure -j "$jobs"
    ;;
  sanitize)
    build "$root/build-sanitize" -DCMAKE_BUILD_TYPE=Debug -DQD_SANITIZE=ON -DQD_BUILD_BENCH=OFF
    ctest --test-dir "$root/build-sanitize" --output-on-failure -j "$jobs"
    ;;
  sanitize-thread)
    # The install test builds an outside program without the sanitizer's
    # runtime, which cannot link against these libraries: left out here.
    build "$root/build-tsan" -DCMAKE_BUILD_TYPE=Debug -DQD_SANITIZE_THREAD=ON -DQD_BUILD_BENCH=OFF
    ctest --test-dir "$root/build-tsan" --output-on-failure -j "$jobs" -E '^install_consumer$'
    ;;
  docs)
    # A fresh folder, so that no page of an earlier run outlives its source.
    rm -rf "$root/build/docs"
    (cd "$root" && doxygen docs/Doxyfile)
    echo "The documentation is $root/build/docs/index.html: open it in a web browser."
    ;;
  fuzz)
    # New inputs a run finds go to build-fuzz/corpus/NAME; the seeds kept in
    # the repository (fuzz/corpus/NAME) are only read.
    CXX=clang++ build "$root/build-fuzz" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQD_BUILD_FUZZ=ON \
      -DQD_BUILD_TESTS=OFF -DQD_BUILD_BENCH=OFF -DQD_BUILD_TOOLS=OFF -DQD_BUILD_EXAMPLES=OFF \
      -DQD_BUILD_PYTHON=OFF
    seconds=${QD_FUZZ_SECONDS:-60}
    for program in "$root"/build-fuzz/fuzz/*_fuzz; do
      name=$(basename "$program" _fuzz)
      work="$root/build-fuzz/corpus/$name"
      mkdir -p "$work"
      seeds=()
      if [[ -d "$root/fuzz/corpus/$name" ]]; then seeds=("$root/fuzz/corpus/$name"); fi
      log="$root/build-fuzz/$name.log"
      status=0
      "$program" -max_total_time="$seconds" -timeout=10 -print_final_stats=1 \
        "$work" "${seeds[@]}" >"$log" 2>&1 || status=$?
      summary=$(grep -E '^#[0-9]+[[:space:]]+DONE' "$log" | tail -1 || true)
      echo "$name: ${summary:-no summary} (log: $log)"
      if ((status != 0)); then
        tail -40 "$log" >&2
        exit "$status"
      fi
    done
    ;;
  *)
    echo "usage: $0 example|test|sanitize|sanitize-thread|docs|fuzz" >&2
    exit 2
    ;;
esac
