#!/usr/bin/env bash
# The library as a host meets it: installed into a scratch prefix, found by
# CMake and by pkg-config, cross-built against the mingw install and run under
# wine, packed as .deb files whose contents are checked. The hosts run the
# README's program against a loopback dlorigin.
set -euo pipefail
cd "$(dirname "$0")/../.."
root=$(pwd)
jobs=$(nproc)
export WINEDEBUG=-all
version=$(sed -n 's/^project(downloader VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
major=${version%%.*}

work=$(mktemp -d)
cleanup() {
  bash scripts/dlorigin-ctl.sh stop "$work/origin" || true
  rm -rf "$work"
}
trap cleanup EXIT
fail() { echo "package: $*" >&2; exit 1; }

# The release tree of the libraries and dlplay (the demo's tree, so after
# scripts/run.sh only dlorigin is left to build).
cmake --preset dist >/dev/null
cmake --build --preset dist -j "$jobs"

echo "--- install"
prefix=$work/prefix
cmake --install build/dist --prefix "$prefix" >/dev/null
lib=$prefix/lib
[[ -L "$lib/libdownloader.so.$major" && -f "$lib/libdownloader.so.$version" ]] || fail "no versioned libdownloader"
[[ -L "$lib/libwisp.so.$major" && -f "$lib/libwisp.so.$version" ]] || fail "no versioned libwisp"
readelf -d "$lib/libdownloader.so.$version" | grep "SONAME.*\[libdownloader.so.$major\]" >/dev/null || fail "SONAME"
for binary in "$lib/libdownloader.so.$version" "$lib/libwisp.so.$version" "$prefix/bin/dlplay"; do
  if readelf -d "$binary" | grep -E 'R(UN)?PATH' | grep "$root" >/dev/null; then
    fail "$binary keeps a build-tree run path"
  fi
done
[[ -f "$prefix/include/downloader/DownloaderExport.h" && -f "$prefix/include/wisp/WispExport.h" ]] ||
  fail "export headers are not in the include tree"
[[ "$("$prefix/bin/dlplay" --version)" == "dlplay $version" ]] || fail "dlplay --version"

bash scripts/dlorigin-ctl.sh start build/dist/bin/dlorigin "$work/origin" >/dev/null
export DLORIGIN_URL_FILE=$work/origin/url

echo "--- find_package host"
cmake -S tests/package -B "$work/host" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/host" -j "$jobs" >/dev/null
"$work/host/version_host"
bash tests/host/road_host_sample.sh "$work/host/road_host"

echo "--- pkg-config host"
export PKG_CONFIG_PATH=$lib/pkgconfig
# shellcheck disable=SC2046  # the flags are separate words
g++ -std=c++17 tests/package/version_host.cpp $(pkg-config --cflags --libs downloader) \
  -Wl,-rpath,"$(pkg-config --variable=libdir downloader)" -o "$work/pc_host"
"$work/pc_host"
unset PKG_CONFIG_PATH

echo "--- mingw install, host under wine"
[[ -f build/windows/bin/downloader.dll ]] || fail "build/windows has no downloader.dll (build the windows preset first)"
winprefix=$work/windows
cmake --install build/windows --prefix "$winprefix" >/dev/null
[[ -f "$winprefix/bin/downloader.dll" && -f "$winprefix/lib/libdownloader.dll.a" ]] || fail "Windows layout"
cmake -S tests/package -B "$work/winhost" -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_TOOLCHAIN_FILE="$root/cmake/toolchain-mingw64.cmake" -DCMAKE_PREFIX_PATH="$winprefix" >/dev/null
cmake --build "$work/winhost" -j "$jobs" >/dev/null
# wine finds the DLLs through WINEPATH; the Linux root is drive Z:.
export WINEPATH="Z:${winprefix//\//\\}\\bin"
/usr/lib/wine/wine64 "$work/winhost/version_host.exe"
# The Windows program ends its lines with CR LF.
printf '#!/bin/bash\nset -o pipefail\n/usr/lib/wine/wine64 %q "$@" | tr -d "\\r"\n' "$work/winhost/road_host.exe" \
  >"$work/road_host_wine"
chmod +x "$work/road_host_wine"
bash tests/host/road_host_sample.sh "$work/road_host_wine"
unset WINEPATH

echo "--- .deb"
(cd build/dist && cpack -G DEB -B "$work/deb" >/dev/null)
debroot=$work/debroot
for deb in "$work"/deb/*.deb; do
  echo "$(basename "$deb"): $(dpkg-deb -f "$deb" Depends)"
  dpkg -x "$deb" "$debroot"
done
expected=(
  "usr/lib/libdownloader.so.$version" "usr/lib/libdownloader.so.$major" usr/lib/libdownloader.so
  "usr/lib/libwisp.so.$version" "usr/lib/libwisp.so.$major" usr/lib/libwisp.so
  usr/include/downloader/downloader.h usr/include/downloader/DownloaderExport.h usr/include/downloader/Version.h
  usr/include/wisp/wisp.h usr/include/wisp/WispExport.h
  usr/lib/cmake/downloader/downloaderConfig.cmake usr/lib/cmake/downloader/downloaderConfigVersion.cmake
  usr/lib/cmake/downloader/downloaderTargets.cmake usr/lib/pkgconfig/downloader.pc
  usr/bin/dlplay
)
for file in "${expected[@]}"; do
  [[ -e "$debroot/$file" || -L "$debroot/$file" ]] || fail ".deb lacks $file"
done
dpkg-deb -f "$work/deb/libdownloader${major}_${version}_amd64.deb" Depends | grep libcurl4 >/dev/null ||
  fail "the runtime package does not depend on libcurl4"
# What `apt-get install ./x.deb` would do here: every dependency resolves.
apt-get install --simulate "$work"/deb/*.deb >/dev/null || fail "apt-get cannot install the .deb files"
# The unpacked tree is itself a prefix: the CMake package and the .pc file name
# their paths relative to themselves.
cmake -S tests/package -B "$work/debhost" -G Ninja -DCMAKE_PREFIX_PATH="$debroot/usr" >/dev/null
cmake --build "$work/debhost" --target version_host >/dev/null
"$work/debhost/version_host"

echo "--- add_subdirectory (configure)"
cmake -S tests/package/subproject -B "$work/subproject" -G Ninja >/dev/null

echo "package: install, find_package, pkg-config, mingw under wine, .deb: all passed"
