#!/bin/sh
# Leaves the corrected sources of oscpack in DIRECTORY/oscpack. Usage: prepare_oscpack.sh DIRECTORY
#
# The upstream tarball comes through apt from the sources this machine already trusts. Machines
# rarely list source packages, so a private deb-src list is derived from their own binary sources.
# Nothing outside DIRECTORY is touched, and root is not needed.
set -eu

patchFile=$(cd "$(dirname "$0")" && pwd)/oscpack.patch

package=oscpack=1.1.0-3
tarball=oscpack_1.1.0.orig.tar.xz
sha256=a8e3711c791c9622a2e43929bdc9e00346a6ebb83bdfec1814000af057222fdc

mkdir -p "$1"
dir=$(cd "$1" && pwd)
check() { echo "$sha256  $1" | sha256sum --check --status 2>/dev/null; }

# Several build trees may be configured at once; the first one downloads, the others find the file.
exec 9>"$dir/.lock"
flock 9
stamp=$(cat "$patchFile" "$0" | sha256sum)
if [ "$(cat "$dir/oscpack/.prepared" 2>/dev/null)" = "$stamp" ]; then exit 0; fi

work=$(mktemp -d "$dir/fetch.XXXXXX")
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/parts" "$work/lists/partial" "$work/cache/archives/partial"

# One-line entries: "deb [options] uri suite components".
deriveList() { sed -n 's/^[[:space:]]*deb[[:space:]]/deb-src /p' "$1"; }

# Stanzas: every enabled one that names "deb" is kept, with only its type changed.
deriveStanzas() {
  awk '
    function flush() {
      if (binary && !disabled) printf "Types: deb-src\n%s\n", body
      body = ""; binary = 0; disabled = 0
    }
    /^#/ { next }
    /^[[:space:]]*$/ { flush(); next }
    tolower($0) ~ /^types[[:space:]]*:/ {
      sub(/^[^:]*:/, "")
      for (i = split($0, type, /[[:space:]]+/); i > 0; --i) if (type[i] == "deb") binary = 1
      next
    }
    tolower($0) ~ /^enabled[[:space:]]*:/ {
      if (tolower($0) ~ /:[[:space:]]*(no|false|without|off|disable|0)[[:space:]]*$/) disabled = 1
      next
    }
    { body = body $0 "\n" }
    END { flush() }' "$1"
}

writeSources() {
  sourceList=/etc/apt/sources.list
  sourceParts=/etc/apt/sources.list.d
  eval "$(apt-config shell sourceList Dir::Etc::sourcelist/f sourceParts Dir::Etc::sourceparts/d)"
  if [ -r "$sourceList" ]; then deriveList "$sourceList" >"$work/parts/main.list"; fi
  for file in "${sourceParts%/}"/*.list; do
    if [ -r "$file" ]; then deriveList "$file" >"$work/parts/$(basename "$file")"; fi
  done
  for file in "${sourceParts%/}"/*.sources; do
    if [ -r "$file" ]; then deriveStanzas "$file" >"$work/parts/$(basename "$file")"; fi
  done
}

aptGet() {
  apt-get -q -o APT::Sandbox::User=root \
    -o Dir::Etc::sourcelist=/dev/null -o Dir::Etc::sourceparts="$work/parts" \
    -o Dir::State::lists="$work/lists" -o Dir::Cache="$work/cache" \
    -o Acquire::Languages=none -o Acquire::Retries=2 -o Acquire::http::Timeout=30 \
    -o Acquire::https::Timeout=30 "$@"
}

download() {
  writeSources
  # A source that fails is of no interest as long as another one carries the package.
  aptGet update >"$work/update.log" 2>&1 || true
  if ! (cd "$work" && aptGet source --download-only --tar-only "$package") >"$work/source.log" 2>&1
  then
    cat "$work/update.log" "$work/source.log" >&2
    echo "prepare_oscpack: no configured apt source delivers $package" >&2
    exit 1
  fi
  if ! check "$work/$tarball"; then
    echo "prepare_oscpack: $tarball does not have the expected SHA-256 sum" >&2
    exit 1
  fi
  mv "$work/$tarball" "$dir/$tarball"
}

unpack() {
  mkdir "$work/oscpack"
  tar -xJf "$dir/$tarball" -C "$work/oscpack" --strip-components=1 --no-same-owner
  # The sources end their lines with CR LF, and so does the patch.
  patch --binary --quiet -p1 -d "$work/oscpack" <"$patchFile"
  rm -rf "$dir/oscpack"
  mv "$work/oscpack" "$dir/oscpack"
  echo "$stamp" >"$dir/oscpack/.prepared"
}

check "$dir/$tarball" || download
unpack
