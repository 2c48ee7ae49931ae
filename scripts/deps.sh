#!/usr/bin/env bash
# Installs what building and testing Quibly's core needs on Debian 12, and
# fetches Debian's simdjson source so the hook can link it statically.
# Safe to run again: it installs only what is missing.
set -euo pipefail
cd "$(dirname "$0")/.."

packages=(
  g++ clang libclang-rt-14-dev lld cmake ninja-build pkg-config git ca-certificates
  clang-format tzdata python3
  libsimdjson-dev libpcre2-dev libfmt-dev libcli11-dev libhowardhinnant-date-dev
  libgtest-dev libgmock-dev libbenchmark-dev hyperfine
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'ok installed' || missing+=("$p")
done
updated=no
if ((${#missing[@]})); then
  echo "Installing: ${missing[*]}"
  apt-get update
  updated=yes
  DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends "${missing[@]}"
fi

# Debian ships simdjson as a shared library only. Its source package holds the
# single-file amalgamation, which we build statically (see cmake/Dependencies.cmake).
# A private apt state keeps the system's own sources untouched.
src=.deps/simdjson-3.0.1
if [ ! -f "$src/singleheader/simdjson.cpp" ]; then
  apt_dir=$PWD/.deps/apt
  mkdir -p "$apt_dir/lists/partial" "$apt_dir/cache/archives/partial"
  echo "deb-src [signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] http://deb.debian.org/debian bookworm main" \
    > "$apt_dir/sources.list"
  apt_opts=(-o "Dir::Etc::SourceList=$apt_dir/sources.list" -o "Dir::Etc::SourceParts=$apt_dir/none"
            -o "Dir::State::Lists=$apt_dir/lists" -o "Dir::Cache=$apt_dir/cache" -o "APT::Sandbox::User=root")
  if apt-get "${apt_opts[@]}" update >/dev/null &&
     (cd .deps && apt-get "${apt_opts[@]}" source --download-only simdjson=3.0.1-1 >/dev/null); then
    tar -xzf .deps/simdjson_3.0.1.orig.tar.gz -C .deps
  else
    echo "Could not fetch simdjson's source; building against the shared library instead." >&2
  fi
fi
