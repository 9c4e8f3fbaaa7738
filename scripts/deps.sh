#!/usr/bin/env bash
# Installs, with apt-get, whatever the build needs and the machine lacks. Safe
# to run again: it does nothing when everything is there.
#
#   deps.sh demo   the compiler and what the libraries and dlplay link with
#   deps.sh [full] also the Windows cross build and wine, clang with its
#                  sanitizer runtimes, the test and benchmark libraries, the
#                  benchmark peers, the packaging tools and the browser
#                  that plays through dlplay serve
set -euo pipefail

demo_packages=(
  cmake ninja-build g++ pkg-config
  libcurl4-openssl-dev libcpp-httplib-dev nlohmann-json3-dev libssl-dev zlib1g-dev
)
full_packages=(
  "${demo_packages[@]}"
  clang libclang-rt-14-dev lld
  googletest libgtest-dev libgmock-dev libbenchmark-dev
  g++-mingw-w64-x86-64 wine64
  nginx curl ffmpeg gnuplot-nox python3 openssl
  dpkg-dev file ccache
  chromium
)

case "${1:-full}" in
  demo) packages=("${demo_packages[@]}") ;;
  full) packages=("${full_packages[@]}") ;;
  *) echo "usage: deps.sh [demo|full]" >&2; exit 2 ;;
esac

missing=()
for package in "${packages[@]}"; do
  status=$(dpkg-query -W -f='${Status}' "$package" 2>/dev/null || true)
  [[ "$status" == "install ok installed" ]] || missing+=("$package")
done
# Machines that come with Node.js of their own have its npm, and Debian's npm
# package would conflict with that Node.js: take Debian's only when there is none.
if [[ "${1:-full}" == full ]] && ! command -v npm >/dev/null; then missing+=(npm); fi

if ((${#missing[@]} > 0)); then
  echo "deps: installing ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi
