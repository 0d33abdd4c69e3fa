#!/usr/bin/env bash
# Builds the Debian package from a release build and checks it the way a user's machine would meet it:
# its name, version and dependencies, the files it carries (and does not), the desktop entries, and
# that the packaged programs resolve every library from the system and start.
#
#   scripts/check-package.sh [BUILD_DIR]     default: build/package
#
# Prints a PASS or FAIL line per check; exits non-zero when any fails.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=$(realpath -m "${1:-$root/build/package}")

for tool in cmake cpack dpkg dpkg-deb dpkg-shlibdeps ldd readelf; do
  if ! command -v "$tool" >/dev/null 2>&1; then
    echo "check-package: '$tool' is missing; scripts/deps.sh installs it" >&2
    exit 1
  fi
done

# The version the package must carry is the project's own.
version=$(sed -n '/^project(/,/)/s/^ *VERSION \([0-9.]*\).*/\1/p' "$root/CMakeLists.txt")
arch=$(dpkg --print-architecture)
deb="$build/glinta_${version}_${arch}.deb"

# A package never comes from a build with the development-only service address reader, sanitizers,
# tests or benchmarks; the options say so explicitly in case the build directory was made otherwise.
"$root/scripts/configure-and-build.sh" "$build" -- -DCMAKE_BUILD_TYPE=Release -DGLINTA_BUILD_TESTS=OFF \
  -DGLINTA_BUILD_BENCHMARKS=OFF -DGLINTA_DEV_SERVICE_ADDRESS=OFF -DGLINTA_SANITIZE=OFF
rm -f "$build"/*.deb
(cd "$build" && cpack -G DEB)

failures=0
pass() { echo "PASS: $*"; }
fail() {
  echo "FAIL: $*"
  failures=$((failures + 1))
}
check() { # check DESCRIPTION COMMAND...
  local what=$1
  shift
  if "$@"; then pass "$what"; else fail "$what"; fi
}

if [[ ! -f $deb ]]; then
  fail "cpack made $deb (it made: $(find "$build" -maxdepth 1 -name '*.deb' -printf '%f '))"
  exit 1
fi
pass "cpack made $(basename "$deb")"

field() { dpkg-deb -f "$deb" "$1"; }
check "Package is glinta" test "$(field Package)" = glinta
check "Version is $version" test "$(field Version)" = "$version"
check "Architecture is $arch" test "$(field Architecture)" = "$arch"

depends=$(field Depends)
echo "Depends: $depends"
# Names only, one a line, without version constraints or alternatives' bars.
depend_names=$(sed 's/([^)]*)//g; s/[,|]/\n/g' <<<"$depends" | sed 's/^ *//; s/ *$//; /^$/d')
for needed in qt6-qpa-plugins fonts-dejavu-core libqt6core6 libqt6widgets6 libqt6svg6 libqt6keychain1; do
  check "Depends on $needed" grep -qx "$needed" <<<"$depend_names"
done
# The chart is Glinta's own drawing: no charting library, and none of the OpenGL it would pull in.
for unwanted in libqt6charts6 libqt6opengl6 libqt6openglwidgets6; do
  check "Depends not on $unwanted" bash -c '! grep -qx "$1" <<<"$2"' _ "$unwanted" "$depend_names"
done
dev=$(grep -E -- '-dev$|-dbg$' <<<"$depend_names" || true)
check "Depends names no development package${dev:+ (found: ${dev//$'\n'/ })}" test -z "$dev"
check "Recommends a Secret Service" grep -q gnome-keyring <<<"$(field Recommends)"
long_lines=$(field Description | awk 'length > 79' | wc -l)
check "Description lines fit in 79 columns" test "$long_lines" -eq 0

files=$(dpkg-deb -c "$deb" | awk '$1 !~ /^d/ { print $6 }')
required=(
  ./usr/bin/glinta
  ./usr/bin/glinta-widget
  ./usr/share/applications/com.nordvik.glinta.desktop
  ./usr/share/applications/com.nordvik.glinta.widget.desktop
  ./usr/share/icons/hicolor/scalable/apps/com.nordvik.glinta.svg
)
for size in 16 22 24 32 48 64 128 256 512; do
  required+=("./usr/share/icons/hicolor/${size}x${size}/apps/com.nordvik.glinta.png")
done
for file in "${required[@]}"; do
  check "carries ${file#.}" grep -qxF "$file" <<<"$files"
done
# Development tools, tests, benchmarks, headers, libraries and anything outside /usr stay out.
forbidden=$(grep -E 'glinta-sim|glinta-shot|/tst_|bench|\.(h|hpp|a|so|cmake)$|/include/|/lib/|^\./usr/local/|^\./[^u]' \
  <<<"$files" || true)
check "carries nothing it should not${forbidden:+ (found: ${forbidden//$'\n'/ })}" test -z "$forbidden"

unpacked=$(mktemp -d)
trap 'rm -rf "$unpacked"' EXIT
dpkg-deb -x "$deb" "$unpacked"

desktop_has() { grep -qx "$2" "$unpacked/usr/share/applications/$1"; }
desktop_is_named_application() {
  desktop_has "$1" Type=Application && grep -q '^Name=.' "$unpacked/usr/share/applications/$1"
}
no_run_path() { ! readelf -d "$1" | grep -qE 'RPATH|RUNPATH'; }
lacks_text() { ! grep -qaF "$2" "$1"; }
for entry in com.nordvik.glinta:glinta com.nordvik.glinta.widget:glinta-widget; do
  name=${entry%%:*}.desktop
  program=${entry#*:}
  check "$name starts $program" desktop_has "$name" "Exec=$program"
  check "$name shows the application icon" desktop_has "$name" "Icon=com.nordvik.glinta"
  check "$name is an application with a name" desktop_is_named_application "$name"
done

for program in glinta glinta-widget; do
  binary="$unpacked/usr/bin/$program"
  # The build tree is gone on a user's machine: every library must come from the system.
  unresolved=$(ldd "$binary" | grep -F -e "not found" -e "$root/" -e "$build/" || true)
  check "$program resolves every library from the system${unresolved:+ ($unresolved)}" test -z "$unresolved"
  check "$program has no RPATH or RUNPATH" no_run_path "$binary"
  check "$program lacks the development service address reader" lacks_text "$binary" service-address.json
done

printed=$(QT_QPA_PLATFORM=offscreen "$unpacked/usr/bin/glinta" --version 2>/dev/null || true)
check "the packaged glinta --version prints \"glinta $version\" (printed \"$printed\")" \
  test "$printed" = "glinta $version"

if ((failures > 0)); then
  echo "check-package: $failures check(s) failed" >&2
  exit 1
fi
echo "check-package: the package passed every check"
