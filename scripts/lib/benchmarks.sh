# shellcheck shell=bash
#
# To be sourced by bash scripts after packages.sh: builds the benchmarks as users build the library.
#
#   build_benchmarks NAME   builds into $BENCH_BUILD, and says so as the script NAME

BENCH_BUILD=build/bench

build_benchmarks() {
  echo "$1: checking what is installed"
  need_packages "${BUILD_PACKAGES[@]}" "${BENCH_PACKAGES[@]}"
  echo "$1: building the benchmarks"
  mkdir -p build
  cmake -S . -B "$BENCH_BUILD" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQVR_BUILD_BENCHMARKS=ON \
    -DQVR_BUILD_TESTS=OFF ${CI:+-DQVR_WARNINGS_AS_ERRORS=ON} >build/bench-configure.log ||
    { cat build/bench-configure.log >&2; return 1; }
  cmake --build "$BENCH_BUILD" -- --quiet
}
