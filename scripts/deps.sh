#!/usr/bin/env bash
# Installs, with apt-get, whatever the build and the tests need and the machine
# lacks. Safe to run again: it does nothing when everything is there.
set -euo pipefail

packages=(
  cmake ninja-build g++ clang libclang-rt-14-dev
  googletest libgtest-dev libgmock-dev libbenchmark-dev
  libcurl4-openssl-dev libcpp-httplib-dev nlohmann-json3-dev
  g++-mingw-w64-x86-64 wine64
  nginx curl ffmpeg gnuplot-nox python3 libssl-dev zlib1g-dev
  chromium npm
)

missing=()
for package in "${packages[@]}"; do
  status=$(dpkg-query -W -f='${Status}' "$package" 2>/dev/null || true)
  [[ "$status" == "install ok installed" ]] || missing+=("$package")
done

if ((${#missing[@]} > 0)); then
  echo "deps: installing ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi
