# shellcheck shell=bash
# Sourced: make_image OUT BUILD_FOLDER PLAN makes what the ARM machine boots, OUT/vmlinuz and OUT/initramfs. The latter is
# two archives, which the kernel unpacks one over the other: Debian's packages, cut down, which are made again only if
# their list or this file changed; and the machine's own files, the PLAN of run-tests, and what was built.

make_image() {
  local out=$1 build=$2 plan=$3
  make_root "$out/packages" "$(grep -v '^#' scripts/packages/machine-root.txt)" --variant=extract --architectures=armhf
  if [[ ! $out/base.cpio -nt $out/packages.made-from || machine/image.sh -nt $out/base.cpio ]]; then
    make_base "$out/packages" "$out/base"
    archive "$out/base" >"$out/base.cpio"
  fi
  make_tests "$build" "$out/tests"
  printf '%s\n' "$plan" >"$out/tests/usr/lib/keltipc/plan"
  archive "$out/tests" | cat "$out/base.cpio" - >"$out/initramfs"
  cp "$out"/packages/boot/vmlinuz-* "$out/vmlinuz"
}

archive() { (cd "$1" && find . -mindepth 1 | LC_ALL=C sort | cpio -o -H newc -R 0:0 --quiet); }

# The packages were extracted, not configured. This does the part of their scripts' work that the machine needs.
make_base() {
  local packages=$1 root=$2 unit
  rm -rf "$root"
  cp -a "$packages" "$root"
  find "$root/lib/modules" \( -name fuse.ko -o -name cuse.ko \) -exec mv -t "$root/lib" {} +
  rm -rf "${root:?}"/{boot,lib/modules,usr/include,usr/games,usr/src,var/cache,var/lib/dpkg,var/lib/apt} \
    "$root"/usr/share/{doc,man,locale,info,lintian,bash-completion,perl*,zsh,mime,zoneinfo,cmake-*/Help} \
    "$root"/usr/lib/*/{perl*,gconv,libperl*,e2fsprogs} "$root"/usr/bin/{perl,cmake,cpack}*
  # Of udev, what every machine needs: the rules for groups and for the tag systemd.
  find "$root/lib/udev/" -mindepth 1 ! -path '*/rules.d' ! -name 50-udev-default.rules ! -name 99-systemd.rules -delete
  mkdir "$root/lib/modules"
  mv "$root"/lib/{fuse,cuse}.ko "$root/lib/modules"
  rm -rf "$root/var/run"
  ln -s ../run "$root/var/run"
  ln -s lib/systemd/systemd "$root/init"
  ln -s mawk "$root/usr/bin/awk"
  # This would empty /tmp, and the build folder may be there.
  rm -f "$root/usr/lib/tmpfiles.d/tmp.conf"
  mkdir -p "$root/etc/systemd/system"
  for unit in systemd-{udev-trigger,firstboot,hwdb-update,update-done,update-utmp,logind,repart}.service \
    systemd-{machine-id-commit,random-seed,pcrphase,pcrphase-sysinit,binfmt}.service ldconfig.service \
    sys-kernel-{config,debug,tracing}.mount proc-sys-fs-binfmt_misc.automount; do
    ln -sf /dev/null "$root/etc/systemd/system/$unit"
  done
}

# The machine's own files; and executables, libraries and what the tests read, at the same paths as outside, so that paths
# compiled into a test or set in its environment are valid in the machine too.
make_tests() {
  local build=$1 root=$2 here=$PWD
  if [[ $here =~ ^/(dev|proc|run|sys)/ ]]; then
    printf '%s is in a folder that the machine mounts something else over: move the sources\n' "$here" >&2
    return 1
  fi
  rm -rf "$root"
  mkdir -p "$root$here" "$root"/{root,run,tmp,var/log,usr/local/bin}
  cp -a machine/rootfs/. "$root"
  cp -a tests/units/. examples/units/. "$root/etc/systemd/system"
  DESTDIR=$root cmake --install "$build" --prefix /usr --component service --strip >/dev/null
  DESTDIR=$root cmake --install "$build" --prefix /usr --component runtime --strip >/dev/null
  find "$build" -name CMakeFiles -prune -o \( -type f -executable -o -name '*.so*' \) -print0 |
    cpio -pdm0 --quiet "$root$here"
  find "$root$here" -type f -exec arm-linux-gnueabihf-strip {} +
  find "$build" -name CTestTestfile.cmake -print0 | cpio -pdm0 --quiet "$root$here"
  find docs examples scripts tests tools -type f ! -name '*.cpp' ! -name '*.h' -print0 | cpio -pdm0 --quiet "$root$here"
  ln -s "$here/$build"/tools/{keltipc/keltipc,portsim/keltipc-portsim} "$root/usr/local/bin"
}
