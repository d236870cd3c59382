#!/usr/bin/env bash
# Builds the Debian package from an already built tree and checks what a user
# installs: the file list, the AppStream metadata and lintian's verdict.
set -euo pipefail
build_dir=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

(cd "$build_dir" && cpack -G DEB -B "$work/out" >"$work/cpack.log" 2>&1) || { cat "$work/cpack.log"; exit 1; }
package=$(find "$work/out" -maxdepth 1 -name 'pixmora_*.deb' -print -quit)
[[ -n $package ]] || { echo "no package was made"; exit 1; }

expected="./usr/bin/pixmora
./usr/share/applications/org.pixmora.Pixmora.desktop
./usr/share/bash-completion/completions/pixmora
./usr/share/doc/pixmora/changelog.gz
./usr/share/doc/pixmora/copyright
./usr/share/icons/hicolor/128x128/apps/org.pixmora.Pixmora.png
./usr/share/icons/hicolor/16x16/apps/org.pixmora.Pixmora.png
./usr/share/icons/hicolor/22x22/apps/org.pixmora.Pixmora.png
./usr/share/icons/hicolor/24x24/apps/org.pixmora.Pixmora.png
./usr/share/icons/hicolor/256x256/apps/org.pixmora.Pixmora.png
./usr/share/icons/hicolor/32x32/apps/org.pixmora.Pixmora.png
./usr/share/icons/hicolor/48x48/apps/org.pixmora.Pixmora.png
./usr/share/icons/hicolor/64x64/apps/org.pixmora.Pixmora.png
./usr/share/icons/hicolor/scalable/apps/org.pixmora.Pixmora.svg
./usr/share/man/man1/pixmora.1.gz
./usr/share/metainfo/org.pixmora.Pixmora.metainfo.xml"
files=$(dpkg-deb -c "$package" | awk '$1 !~ /^d/ {print $6}' | LC_ALL=C sort)
if [[ $files != "$(LC_ALL=C sort <<<"$expected")" ]]; then
    echo "the package holds other files than expected:"
    diff <(LC_ALL=C sort <<<"$expected") <(echo "$files") || true
    exit 1
fi

dpkg-deb -x "$package" "$work/root"
appstreamcli validate --no-net "$work/root/usr/share/metainfo/org.pixmora.Pixmora.metainfo.xml"
# Every size the desktop entry's icon comes in is a real square image of that size.
for png in "$work"/root/usr/share/icons/hicolor/*/apps/org.pixmora.Pixmora.png; do
    size=${png%/apps/*}; size=${size##*/}
    [[ $(identify -format '%wx%h' "$png") == "$size" ]] || { echo "$png is not $size"; exit 1; }
done

lintian --fail-on error "$package"
echo "package checked: $(basename "$package")"
