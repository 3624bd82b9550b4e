#!/usr/bin/env bash
# Installs the Debian packages that building and testing need and a fresh
# machine lacks. Shared by tools/demo.sh and .ci/run.
set -euo pipefail
need=()
for pkg in cmake ninja-build g++ clang libclang-rt-14-dev libgtest-dev libgmock-dev \
           libbenchmark-dev libsqlite3-dev libldap-dev pkg-config g++-multilib mandoc python3; do
  dpkg -s "$pkg" >/dev/null 2>&1 || need+=("$pkg")
done
if [ ${#need[@]} -gt 0 ]; then
  sudo=""
  [ "$(id -u)" -eq 0 ] || sudo=sudo
  export DEBIAN_FRONTEND=noninteractive
  $sudo apt-get update
  $sudo apt-get install -y --no-install-recommends "${need[@]}"
fi
