#!/usr/bin/env bash
# Builds the Debian package from a configured build folder, unpacks it into a clean folder and
# checks that every file is where it belongs; validates the desktop entry and the AppStream
# metainfo with their tools when they are installed.
#
#   tools/check-package.sh BUILD_FOLDER
set -euo pipefail
build=$(cd "${1:?build folder}" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

(cd "$build" && cpack -G DEB -B "$work/out" >"$work/cpack.log" 2>&1) || { cat "$work/cpack.log"; exit 1; }
package=$(ls "$work"/out/*.deb)
dpkg-deb -x "$package" "$work/root"
status=0
for file in usr/bin/vellowick \
            usr/share/applications/com.kelbury.VellowickNews.desktop \
            usr/share/metainfo/com.kelbury.VellowickNews.metainfo.xml \
            usr/share/icons/hicolor/scalable/apps/com.kelbury.VellowickNews.svg \
            usr/share/man/man1/vellowick.1.gz \
            usr/share/doc/vellowick/copyright \
            usr/share/mime/packages/vellowick-text-x-vellowick.xml \
            usr/share/mime/packages/vellowick-text-x-initialization.xml \
            usr/share/vellowick/help/introduction.html \
            usr/share/vellowick/help/installation.html \
            usr/share/vellowick/help/getting-started.html \
            usr/share/vellowick/help/index.html; do
    if [[ ! -f "$work/root/$file" ]]; then
        echo "missing from the package: /$file"
        status=1
    fi
done
depends=$(dpkg-deb -f "$package" Depends)
for library in libqt6widgets6 libssl3 libsqlite3 zlib1g; do
    [[ "$depends" == *"$library"* ]] || { echo "not a declared dependency: $library"; status=1; }
done
if command -v desktop-file-validate >/dev/null; then
    desktop-file-validate "$work/root/usr/share/applications/com.kelbury.VellowickNews.desktop" || status=1
fi
if command -v appstreamcli >/dev/null; then
    appstreamcli validate --no-net "$work/root/usr/share/metainfo/com.kelbury.VellowickNews.metainfo.xml" || status=1
fi
echo "package: $(basename "$package"); depends: $depends"
exit "$status"
