# What users are given, made from the programs that Scripts/release built: read by that script.

# The time that files in archives and packages carry: that of the commit.
find_time() {
  SOURCE_DATE_EPOCH=${SOURCE_DATE_EPOCH:-$(git log -1 --format=%ct 2>/dev/null || true)}
  [[ -n $SOURCE_DATE_EPOCH ]] ||
    stop 'This is no clone, so nothing tells how old it is: set SOURCE_DATE_EPOCH (seconds since 1970).'
  export SOURCE_DATE_EPOCH
}

version() {
  sed -n 's/^project(.* VERSION \([0-9.]*\) .*/\1/p' "$root/CMakeLists.txt"
}

# --- Archives and packages ---------------------------------------------------------------------------

# stage TARGET FOLDER DOCUMENTS: what `cmake --install` makes of the programs, with the first page in the
# folder for documents.
stage() {
  local target=$1 into=$2 documents=$3 program
  rm -rf "$into"
  quietly cmake --install "$cross/$target/corvane" --prefix "$into" --component runtime
  mkdir -p "$into/bin" "$documents"
  for program in "${programs[@]}"; do
    install -m 755 "$dist/$target/$program" "$into/bin/$program"
  done
  install -m 644 README.md "$documents/"
}

# archive_name TARGET: corvane-VERSION-OS-ARCH.
archive_name() {
  local os=linux
  case $1 in
    *-macos) os=macos ;;
  esac
  printf '%s' "corvane-$(version)-$os-${1%%-*}"
}

make_archive() {
  local target=$1 name
  name=$(archive_name "$target")
  local staged=$cross/$target/archive
  rm -rf "$staged"
  stage "$target" "$staged/$name" "$staged/$name"
  install -m 644 THIRD-PARTY-NOTICES "$staged/$name/"
  # Into a file of another name first: what is there under its own name is whole.
  tar -C "$staged" --sort=name --format=gnu --owner=0 --group=0 --numeric-owner --mode=u=rwX,go=rX \
    --mtime="@$SOURCE_DATE_EPOCH" -cf - "$name" | gzip -9n >"$dist/.new"
  publish "$name.tar.gz"
}

# make_package TARGET ARCHITECTURE: corvane_VERSION_ARCHITECTURE.deb.
make_package() {
  local target=$1 architecture=$2
  local staged=$cross/$target/package
  local usr=$staged/usr documents=$staged/usr/share/doc/corvane
  rm -rf "$staged"
  stage "$target" "$usr" "$documents"
  install -m 644 THIRD-PARTY-NOTICES "$documents/copyright"
  gzip -9n <CHANGELOG.md >"$documents/changelog.gz"
  gzip -9n "$usr"/share/man/man*/*
  # Where Debian's zsh looks.
  mkdir -p "$usr/share/zsh/vendor-completions"
  mv "$usr"/share/zsh/site-functions/* "$usr/share/zsh/vendor-completions/"
  rmdir "$usr/share/zsh/site-functions"
  find "$staged" -type d -exec chmod 755 {} +
  local size
  size=$(find "$staged" -type f -printf '%s\n' | awk '{ all += int(($1 + 1023) / 1024) } END { print all }')
  mkdir "$staged/DEBIAN"
  (cd "$staged" && find usr -type f -print0 | sort -z | xargs -0 md5sum) >"$staged/DEBIAN/md5sums"
  cat >"$staged/DEBIAN/control" <<END
Package: corvane
Version: $(version)
Architecture: $architecture
Maintainer: Corvane maintainers <root@localhost>
Installed-Size: $size
Section: utils
Priority: optional
Description: command-line companion of Corvane
 corvanectl lists, switches, launches and stops the workspaces of the running
 application, and is the hook command that coding agents call. corvane-headless
 is the application's end for machines without a screen.
END
  # dpkg-deb takes away only what is later than the commit, and a clone's files may be older.
  find "$staged" -exec touch -h -d "@$SOURCE_DATE_EPOCH" {} +
  quietly dpkg-deb --root-owner-group -Zxz -z6 --threads-max=1 --build "$staged" "$dist/.new"
  publish "corvane_$(version)_$architecture.deb"
}

publish() {
  mv "$dist/.new" "$dist/$1"
  say "build/dist/$1: $(wc -c <"$dist/$1") bytes"
}

package() {
  make_archive "$1"
  case $1 in
    x86_64-linux-musl) make_package "$1" amd64 ;;
    aarch64-linux-musl) make_package "$1" arm64 ;;
  esac
}

# The sums of all that lies there of this version.
sum_up() {
  (cd "$dist" && find . -maxdepth 1 -name "corvane[-_]$(version)[-_]*" -printf '%f\n' | sort | xargs sha256sum) \
    >"$dist/.new"
  publish SHA256SUMS
}
