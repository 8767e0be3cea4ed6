#!/usr/bin/env bash
# One part of what ./dev package makes, from a commit's state alone: the same commit gives the same
# bytes, whatever the folder. To be run in the root, `sources` first, which lays out the commit.
#
#   sources   build/package/ksfaxui-VERSION.tar.gz
#   debian    build/package/ksfax_VERSION_amd64.deb     ksfax for Debian
#   windows   build/package/ksfaxui-VERSION-x64.zip     the module for Windows
set -euo pipefail
umask 022

out=$PWD/build/package
work=$out/work
source=$work/source
commit=$(git rev-parse HEAD)
version=$(git show "$commit:CMakeLists.txt" | sed -n 's/^project(.* VERSION \([0-9.]*\) .*/\1/p')
maintainer='The KSFAXUI authors <ksfaxui@users.noreply.ksfaxui.example>'
SOURCE_DATE_EPOCH=$(git log -1 --format=%ct "$commit")
export SOURCE_DATE_EPOCH LC_ALL=C.UTF-8
windows_date=$(date -u -d "@$SOURCE_DATE_EPOCH" +%m/%d/%Y)

# No path of the build stays in what is built.
map="-ffile-prefix-map=$work=."
package_flags='-fstack-protector-strong -D_FORTIFY_SOURCE=2'

# Every file gets the commit's time, so that archives do not tell when they were made.
commit_times() { find "$1" -exec touch -h -d "@$SOURCE_DATE_EPOCH" {} +; }

package_sources() {
    rm -rf "$out"
    mkdir -p "$work"
    git archive --format=tar --prefix=source/ "$commit" | tar -x -C "$work"
    git archive --format=tar --prefix="ksfaxui-$version/" "$commit" | gzip -n -9 >"$out/ksfaxui-$version.tar.gz"
}

package_debian() {
    local root=$work/deb docs=$work/deb/usr/share/doc/ksfax
    cmake -S "$source" -B "$work/host" -G Ninja -DCMAKE_BUILD_TYPE=Release -DKSFAX_TESTS=OFF \
        -DCMAKE_INSTALL_PREFIX=/usr -DCMAKE_C_FLAGS="$package_flags $map" \
        -DCMAKE_CXX_FLAGS="$package_flags $map" -DCMAKE_EXE_LINKER_FLAGS='-Wl,-z,relro,-z,now'
    cmake --build "$work/host"
    DESTDIR=$root cmake --install "$work/host" --strip
    mv "$docs/LICENSE" "$work/licence"
    sed -e '/@LICENCE@/{r '<(sed -n '5,$s/^$/./; 5,$s/^/ /p' "$work/licence") -e 'd}' \
        "$source/packaging/copyright" >"$docs/copyright"
    printf 'ksfax (%s) unstable; urgency=medium\n\n  * What this version brings: CHANGELOG.md beside this file.\n\n -- %s  %s\n' \
        "$version" "$maintainer" "$(date -u -R -d "@$SOURCE_DATE_EPOCH")" | gzip -n -9 >"$docs/changelog.gz"
    gzip -n -9 "$root/usr/share/man/man1/ksfax.1"

    # dpkg-shlibdeps looks for a source package's control file where it runs.
    mkdir -p "$work/debian" "$root/DEBIAN"
    printf 'Source: ksfax\n\nPackage: ksfax\nArchitecture: amd64\n' >"$work/debian/control"
    local depends
    depends=$(cd "$work" && dpkg-shlibdeps -O deb/usr/bin/ksfax)
    cat >"$root/DEBIAN/control" <<END
Package: ksfax
Version: $version
Architecture: amd64
Maintainer: $maintainer
Installed-Size: $(du -k -s --apparent-size "$root/usr" | cut -f1)
Depends: ${depends#shlibs:Depends=}
Section: comm
Priority: optional
Description: what a fax printer driver makes of a PPD and of a fax job
 ksfax runs the code of the Windows fax printer driver KSFAXUI.DLL on a small
 stand-in for the Windows interfaces. It checks printer description files,
 shows what the driver answers to applications and to the spooler, and sends a
 fax from the start to the end of a document, so that authors of PPDs, packagers
 and developers see without Windows what happens there.
END
    (cd "$root" && find usr -type f | sort | xargs md5sum >DEBIAN/md5sums)
    find "$root" -type d -exec chmod 755 {} + -o -type f ! -path '*/bin/*' -exec chmod 644 {} +
    commit_times "$root"
    dpkg-deb --root-owner-group -Zxz --build "$root" "$out"
}

package_windows() {
    local folder=$work/ksfaxui-$version-x64 file
    cmake -S "$source" -B "$work/windows" -G Ninja -DCMAKE_BUILD_TYPE=Release -DKSFAX_TESTS=OFF \
        -DCMAKE_TOOLCHAIN_FILE="$source/cmake/mingw-w64.cmake" -DCMAKE_CXX_FLAGS="$map" \
        -DDATE="$windows_date"
    cmake --build "$work/windows" --target KSFAXUI
    mkdir -p "$folder"
    cp "$source/examples/KSFAX.PPD" "$work/windows"/{KSFAXUI.DLL,KSFAX.INF,README.txt} "$folder"
    cp "$work/windows/LICENSE" "$folder/LICENSE.txt"
    (cd "$folder" && sha256sum -- * >SHA256SUMS)
    chmod 644 "$folder"/*
    commit_times "$folder"
    rm -f "$out/${folder##*/}.zip"
    (cd "$work" && find "${folder##*/}" | sort | TZ=UTC zip -q -X -@ "$out/${folder##*/}.zip")
}

package_"$1"
