# shellcheck shell=bash
# Debian roots for the fresh-machine and cross-architecture checks, sourced by
# scripts/check-fresh and scripts/cross-arm64.
#
# A root is a tarball made once by mmdebstrap and cached under
# ~/.cache/hdsml/, unpacked into a temporary directory for each run, entered
# with chroot. Only /proc is mounted inside (the tarball has its own /dev
# nodes); it is unmounted on every exit path, and a root is never deleted
# while anything is still mounted under it.
#
#   root_tarball NAME [MMDEBSTRAP-ARGS...]  prints the cached tarball's path, making it if missing
#   root_unpack TARBALL                     unpacks into a new temporary dir, sets ROOT_DIR,
#                                           mounts /proc and arranges cleanup at exit
#   root_run COMMAND                        runs a bash command line as root inside ROOT_DIR
#   root_run_bounded SECONDS COMMAND        the same, killed (with everything it started)
#                                           after SECONDS; exit status 124 then
#   root_apt_restore NAME                   copies the .debs kept under NAME into the root's apt cache
#   root_apt_keep NAME                      keeps the root's downloaded .debs under NAME for next time
#   root_save NAME                          stores ROOT_DIR (unmounted) as a cached tarball NAME
#   root_cleanup                            ends what still runs inside, unmounts and deletes
#                                           ROOT_DIR (also run at exit)
#
# HDSML_ROOT_CACHE moves the cache (default ~/.cache/hdsml); ROOT_SUITE, set
# before root_tarball, picks the Debian suite (default bookworm).

ROOT_CACHE="${HDSML_ROOT_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/hdsml}"
ROOT_SUITE="${ROOT_SUITE:-bookworm}"
ROOT_DIR=""

root_need_tools() {
  [ "$(id -u)" -eq 0 ] || { echo "root: chroot and mount need root; run as root or with sudo" >&2; return 1; }
  if ! command -v mmdebstrap >/dev/null; then
    "$(dirname "${BASH_SOURCE[0]}")/../bootstrap" roots
  fi
}

# The minimal Debian a newcomer starts from: apt and git, nothing else.
root_tarball() {
  local name="$1"
  shift
  local tarball="$ROOT_CACHE/$name.tar"
  if [ -e "$tarball" ] && [ ! -f "$tarball" ]; then
    echo "root: $tarball is not a file (an older version of this made a directory); remove it" >&2
    return 1
  fi
  if [ ! -s "$tarball" ]; then
    root_need_tools || return 1
    mkdir -p "$ROOT_CACHE"
    echo "root: making $tarball (mmdebstrap $ROOT_SUITE)" >&2
    # Written under a temporary name of its own so that an interrupted run
    # leaves no half-made tarball in the cache, and two runs that make the
    # same tarball at once do not write into one file. mmdebstrap picks its
    # output format from the name's extension and would make a directory of
    # "x.part", so the format is named.
    local part="$tarball.$$.part"
    mmdebstrap --quiet --format=tar --variant=apt --include=ca-certificates,git "$@" \
      "$ROOT_SUITE" "$part" >&2 || { rm -rf --one-file-system "$part"; return 1; }
    mv "$part" "$tarball"
  fi
  echo "$tarball"
}

# True when something is mounted at or below the directory $1.
root_has_mounts() {
  local dir
  dir=$(realpath "$1")
  awk -v d="$dir" '$5 == d || index($5, d "/") == 1 { found = 1 } END { exit !found }' \
    /proc/self/mountinfo
}

root_unmount() {
  [ -n "$ROOT_DIR" ] || return 0
  if mountpoint -q "$ROOT_DIR/proc"; then
    umount "$ROOT_DIR/proc" || umount -l "$ROOT_DIR/proc"
  fi
}

# Processes whose root directory is the root or below it: what a chroot
# started and has not ended (an interrupted build, a test left running).
root_processes() {
  local dir p r
  dir=$(realpath "$ROOT_DIR")
  for p in /proc/[0-9]*; do
    r=$(readlink "$p/root" 2>/dev/null) || continue
    if [ "$r" = "$dir" ] || [ "${r#"$dir"/}" != "$r" ]; then echo "${p#/proc/}"; fi
  done
}

# Ends them: TERM, up to 10 s to go, then KILL.
root_stop_processes() {
  local pids _
  pids=$(root_processes)
  [ -n "$pids" ] || return 0
  echo "root: stopping what still runs in $ROOT_DIR:" "${pids//$'\n'/ }" >&2
  # shellcheck disable=SC2086
  kill -TERM $pids 2>/dev/null || true
  for _ in 1 2 3 4 5 6 7 8 9 10; do
    sleep 1
    pids=$(root_processes)
    [ -n "$pids" ] || return 0
  done
  # shellcheck disable=SC2086
  kill -KILL $pids 2>/dev/null || true
  sleep 1
}

root_cleanup() {
  [ -n "$ROOT_DIR" ] && [ -d "$ROOT_DIR" ] || return 0
  root_stop_processes
  root_unmount
  if root_has_mounts "$ROOT_DIR"; then
    echo "root: still mounted under $ROOT_DIR; not deleting it" >&2
    return 1
  fi
  rm -rf --one-file-system "$ROOT_DIR"
  ROOT_DIR=""
}

root_unpack() {
  local tarball="$1"
  root_need_tools || return 1
  ROOT_DIR=$(mktemp -d "${TMPDIR:-/tmp}/hdsml-root.XXXXXX")
  trap root_cleanup EXIT
  trap 'exit 130' INT TERM
  tar -xf "$tarball" -C "$ROOT_DIR"
  # The host's name servers, so that apt inside can reach the archive.
  cp -L /etc/resolv.conf "$ROOT_DIR/etc/resolv.conf" 2>/dev/null || true
  # A throwaway root needs no fsync after every unpacked file; on a busy
  # machine dpkg then unpacks about a quarter faster. What gets installed is
  # the same.
  echo force-unsafe-io >"$ROOT_DIR/etc/dpkg/dpkg.cfg.d/hdsml-unsafe-io"
  mount -t proc proc "$ROOT_DIR/proc"
}

# A clean environment: nothing of the caller's leaks into the root but CI, so
# that tests in a root fail there, as on the host, rather than skip when a
# sample video is missing (tests/support/SampleVideo.h).
ROOT_ENV=(/usr/bin/env -i HOME=/root TERM=dumb LANG=C.UTF-8
  PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin
  DEBIAN_FRONTEND=noninteractive ${CI:+"CI=$CI"})

root_run() {
  chroot "$ROOT_DIR" "${ROOT_ENV[@]}" /bin/bash -c "$1"
}

# timeout signals its whole process group, so compilers and tests that the
# command started end with it.
root_run_bounded() {
  timeout --kill-after=30 "$1" chroot "$ROOT_DIR" "${ROOT_ENV[@]}" /bin/bash -c "$2"
}

# Downloaded packages are kept between runs in $ROOT_CACHE/NAME/ and copied in
# and out (only /proc is mounted in a root, so no bind mount); apt takes a
# .deb from its cache when version and checksum match, and fetches the rest.
root_apt_restore() {
  local keep="$ROOT_CACHE/$1"
  [ -d "$keep" ] || return 0
  find "$keep" -maxdepth 1 -name '*.deb' -exec cp -t "$ROOT_DIR/var/cache/apt/archives/" {} +
}

# After apt-get autoclean in the root (when its package lists are there),
# the kept set becomes the root's: new .debs are added, versions the archive
# no longer offers are dropped. Each file is copied under a temporary name
# and renamed, so a reader never sees half a .deb.
root_apt_keep() {
  local keep="$ROOT_CACHE/$1" archives="$ROOT_DIR/var/cache/apt/archives" f name
  mkdir -p "$keep"
  if compgen -G "$ROOT_DIR/var/lib/apt/lists/*_Packages*" >/dev/null; then
    root_run "apt-get autoclean -qq" >/dev/null || true
  fi
  for f in "$archives"/*.deb; do
    [ -e "$f" ] || continue
    name=$(basename "$f")
    [ -e "$keep/$name" ] || { cp "$f" "$keep/$name.part" && mv "$keep/$name.part" "$keep/$name"; }
  done
  for f in "$keep"/*.deb; do
    [ -e "$f" ] || continue
    [ -e "$archives/$(basename "$f")" ] || rm -f "$f"
  done
}

root_save() {
  local tarball="$ROOT_CACHE/$1.tar"
  root_unmount
  tar -cf "$tarball.$$.part" -C "$ROOT_DIR" . && mv "$tarball.$$.part" "$tarball"
  mount -t proc proc "$ROOT_DIR/proc"
}
