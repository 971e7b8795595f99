#!/bin/bash
# Runs inside a new Debian 12 root as root, started by scripts/check-install,
# which has put the hdsml packages in /tmp/install-check/debs and this folder
# (the consumer's sources) in /tmp/install-check/consumer. Proves the packages
# the way a user meets them:
#  1. installs them with apt-get install ./...deb (dependencies from the archive),
#     with a compiler, cmake and pkg-config for the consumers;
#  2. compiles every installed header with hdsml.pc's flags;
#  3. builds the consumer with find_package(hdsml) and runs it (motion, then
#     absence), writing its frames;
#  4. builds it again with pkg-config hdsml and runs it;
#  5. runs the installed hds-replay --help, then a replay of those frames with
#     its default configuration (share/hdsml), and starts the other two tools;
#  6. with the Java packages: compiles Consumer.java against the installed
#     hdsml.jar and runs it (motion, then absence) through the JNI library;
#  7. copies the installed files to /opt/moved, removes the packages, and does
#     3 to 6 again from there: the tree works wherever it is.
# Each step that fails ends the script with a non-zero status.
set -euo pipefail
here=/tmp/install-check
moved=/opt/moved
step() { echo "check-install: $*"; }

# Fails unless the output of a step (in $2) matches the extended regex $1.
expect() {
  if ! grep -qE -- "$1" <<<"$2"; then
    echo "check-install: FAILED: no line matches '$1' in:" >&2
    echo "$2" | tail -n 20 | sed 's/^/  /' >&2
    exit 1
  fi
}

cd "$here/debs"
debs=(./*.deb)
mapfile -t packages < <(for deb in "${debs[@]}"; do dpkg-deb -f "$deb" Package; done)
java=0
for p in "${packages[@]}"; do [ "$p" = libhdsml-java ] && java=1; done
tools=(g++ cmake make pkg-config)
[ $java -eq 0 ] || tools+=(default-jdk-headless)
step "apt-get install ${debs[*]}, and ${tools[*]}"
apt-get update -qq
apt-get install -y -qq --no-install-recommends "${debs[@]}" "${tools[@]}"
cd "$here"
for p in "${packages[@]}"; do
  echo "  $p $(dpkg-query -W -f='${Version}' "$p"): $(dpkg -L "$p" | while read -r f; do
    [ -d "$f" ] || echo "$f"; done | wc -l) files"
done

# One file that includes every installed header: the package holds all that
# its headers include.
step "every installed header compiles with pkg-config --cflags hdsml ($(pkg-config --modversion hdsml))"
dpkg -L libhdsml-dev | sed -n 's|^/usr/include/hdsml/\(.*\.h\)$|#include "\1"|p' >all-headers.cpp
echo "  $(wc -l <all-headers.cpp) headers"
cflags=$(pkg-config --cflags hdsml)
# shellcheck disable=SC2086
g++ -fsyntax-only -Wall -Wextra $cflags all-headers.cpp

# Builds and runs both consumers against the hdsml found under prefix $1 (the
# system's when empty), writing the frames into $2.
consumers() {
  local prefix="$1" frames="$2" config libdir
  config="${prefix:-/usr}/share/hdsml/hdsml-default.json"
  rm -rf build-cmake consumer-pc "$frames"
  mkdir -p "$frames"

  step "consumer built with find_package(hdsml), target hdsml::hdsml${prefix:+ (CMAKE_PREFIX_PATH=$prefix)}"
  cmake -S consumer -B build-cmake ${prefix:+-DCMAKE_PREFIX_PATH=$prefix} >build-cmake.log
  expect "^hdsml_DIR:PATH=${prefix:-/usr}/lib/" "$(grep '^hdsml_DIR' build-cmake/CMakeCache.txt)"
  cmake --build build-cmake
  build-cmake/consumer "$config" "$frames" | tee consumer.out
  expect '^consumer: motion reported' "$(cat consumer.out)"
  expect '^consumer: absence reported' "$(cat consumer.out)"
  # The preset recommended for new integrations sits beside the default.
  expect '"guards"' "$(cat "${prefix:-/usr}/share/hdsml/hdsml-guarded.json")"
  switch=$(sed -n 's/.*DETECT_ABSENCE from frame \([0-9]*\).*/\1/p' consumer.out)

  step "consumer built with pkg-config hdsml${prefix:+ (PKG_CONFIG_PATH=$PKG_CONFIG_PATH)}"
  local flags
  flags=$(pkg-config --cflags --libs hdsml)
  # shellcheck disable=SC2086
  g++ -O2 -Wall -Wextra consumer/consumer.cpp $flags -o consumer-pc
  # Outside the system's library path, a program linked with -L alone needs
  # to be told where the library is.
  libdir=$(pkg-config --variable=libdir hdsml)
  LD_LIBRARY_PATH=${prefix:+$libdir} ./consumer-pc "$config" | tee consumer.out
  expect '^consumer: motion reported' "$(cat consumer.out)"
  expect '^consumer: absence reported' "$(cat consumer.out)"
}

# Compiles and runs the Java consumer against the jar at $1, its JNI library
# found by the JVM (the system's) or named by $2.
java_consumer() {
  local jar="$1" jni="${2:-}"
  [ $java -eq 1 ] || return 0
  step "Java consumer against $jar${jni:+ with -Dorg.hdsml.library=$jni}"
  rm -rf java-classes && mkdir java-classes
  javac -Xlint:all -Werror -cp "$jar" -d java-classes consumer/Consumer.java
  java ${jni:+-Dorg.hdsml.library=$jni} -cp "$jar:java-classes" Consumer \
    "${3:-/usr/share/hdsml/hdsml-default.json}" | tee consumer.out
  expect '^consumer \(Java\): motion reported' "$(cat consumer.out)"
  expect '^consumer \(Java\): absence reported' "$(cat consumer.out)"
}

# Runs the hds-replay at $1 on the frames in $2.
replays() {
  local replay="$1" frames="$2"
  step "$replay --help"
  "$replay" --help >replay.out
  head -n 1 replay.out
  expect '^usage: hds-replay' "$(cat replay.out)"
  step "$replay on the consumer's frames with its default configuration"
  "$replay" "$frames" --fps 10 --states "0:DETECT_MOTION,$switch:DETECT_ABSENCE" --no-progress |
    tee replay.out
  expect '^ *motion reports +[1-9]' "$(cat replay.out)"
  expect '^ *absence reports +[1-9]' "$(cat replay.out)"
  step "the other tools beside it start"
  "$(dirname "$replay")/hds-facade-layout" | tee replay.out | head -n 1
  expect '^detector_wrapper::PresenceDetectorWrapper: 88 bytes' "$(cat replay.out)"
  "$(dirname "$replay")/hds-extract-frames" --help >replay.out
  head -n 1 replay.out
  expect '^usage: hds-extract-frames' "$(cat replay.out)"
}

consumers "" "$here/frames"
replays "$(command -v hds-replay)" "$here/frames"
java_consumer /usr/share/java/hdsml.jar
expect '^/usr/bin/hds-replay$' "$(command -v hds-replay)"

step "the installed files copied to $moved, the packages removed"
mkdir -p "$moved"
dpkg -L "${packages[@]}" | while read -r f; do [ -d "$f" ] || echo "${f#/usr/}"; done |
  tar -C /usr -cf - -T - | tar -C "$moved" -xf -
apt-get remove -y -qq "${packages[@]}" >/dev/null
if compgen -G '/usr/lib/*/libhdsml*' >/dev/null || [ -e /usr/bin/hds-replay ] || [ -e /usr/include/hdsml ]; then
  echo "check-install: FAILED: files of hdsml left in /usr after apt-get remove" >&2
  exit 1
fi
export PKG_CONFIG_PATH
PKG_CONFIG_PATH=$(dirname "$(find "$moved" -name hdsml.pc)")
expect "^-I$moved/" "$(pkg-config --cflags-only-I hdsml | tr ' ' '\n' | head -n 1)"
echo "  hdsml.pc: $(pkg-config --cflags-only-I hdsml)"
consumers "$moved" "$here/frames-moved"
echo "  $moved/bin/hds-replay: $(ldd "$moved/bin/hds-replay" | grep -F libhdsml)"
expect "libhdsml.so.0 => $moved/(bin/\.\./)?lib/" "$(ldd "$moved/bin/hds-replay")"
replays "$moved/bin/hds-replay" "$here/frames-moved"
if [ $java -eq 1 ]; then
  java_consumer "$moved/share/java/hdsml.jar" "$(find "$moved" -name libhdsml_jni.so)" \
    "$moved/share/hdsml/hdsml-default.json"
fi
step "passed"
