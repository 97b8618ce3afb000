#!/usr/bin/env bash
# Installs Debian packages, only those that are missing: the ones the build and the tests need,
# or the ones named on the command line (`make bench` adds its measuring tools this way).
set -euo pipefail
pkgs=(cmake make g++ clang libprotobuf-dev protobuf-compiler libgtest-dev libgmock-dev
      libbenchmark-dev)
opts=()
[ $# -eq 0 ] || { pkgs=("$@"); opts=(--no-install-recommends); }
missing=()
for p in "${pkgs[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0
echo "installing: ${missing[*]}" >&2
sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
$sudo apt-get update -qq
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "${opts[@]}" "${missing[@]}" >/dev/null
