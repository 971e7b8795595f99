# shellcheck shell=bash
# The build the Debian packages are made from, shared by scripts/package and
# scripts/abi: the project's Release flags, installed under /usr, without
# tests and benchmarks. -g adds debug information for abidw (scripts/abi
# reads the types of the ABI from it); GCC generates the same code with it,
# and CPack strips it from the packaged files. -fdebug-prefix-map writes the
# source paths into it relative to the checkout, so that the debug
# information, and abidw's record made from it, are the same wherever the tree
# was cloned. The flags are set here, not taken from the environment, so that
# every machine checks the same library.
#   package_build DIR [TARGET...]   configures DIR and builds TARGETs (default: all)
# The packages' changelog is dated by SOURCE_DATE_EPOCH, by default the time
# of the last commit, so that the same commit gives the same packages.

package_build() {
  local dir="$1"
  shift
  mkdir -p "$dir"
  SOURCE_DATE_EPOCH="${SOURCE_DATE_EPOCH:-$(git log -1 --format=%ct 2>/dev/null || date +%s)}"
  export SOURCE_DATE_EPOCH
  cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_FLAGS="-g -fdebug-prefix-map=$PWD=." \
    -DCMAKE_INSTALL_PREFIX=/usr -DHDSML_DEBIAN_PACKAGES=ON \
    -DHDSML_BUILD_TESTS=OFF -DHDSML_BUILD_BENCHMARKS=OFF -DHDSML_BUILD_TOOLS=ON \
    -DHDSML_SANITIZE= -DHDSML_FUZZ=OFF >"$dir/configure.log" 2>&1 ||
    { cat "$dir/configure.log" >&2; return 1; }
  local targets=()
  for t in "$@"; do targets+=(--target "$t"); done
  cmake --build "$dir" -j"$(nproc)" "${targets[@]}"
}
