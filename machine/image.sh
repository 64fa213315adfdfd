# shellcheck shell=bash
# Sourced: makes what the ARM machine boots, in build/machine: vmlinuz, and initramfs from two archives that the kernel
# unpacks one over the other. base.cpio holds Debian's packages, cut down, and is made anew only when their list or this
# file changes; tests.cpio holds the machine's own files and what the build made.

make_base() {
  local out=$1 list=scripts/packages/armhf/machine.txt made_from
  made_from=$(cat "$list" machine/image.sh | sha256sum)
  if [[ -f $out/base.made-from && $(<"$out/base.made-from") == "$made_from" ]]; then
    printf '%s is up to date\n' "$out/base.cpio"
    return
  fi
  rm -f "$out/base.made-from"
  extract_packages "$out/packages" "$list"
  cp "$out"/packages/boot/vmlinuz-* "$out/vmlinuz"
  cp -a "$out/packages" "$out/base"
  cut_down "$out/base"
  make_bootable "$out/base"
  archive "$out/base" >"$out/base.cpio"
  rm -rf "$out/base"
  printf '%s\n' "$made_from" >"$out/base.made-from"
}

cut_down() {
  local root=$1
  find "$root/lib/modules" \( -name fuse.ko -o -name cuse.ko \) -exec mv -t "$root/lib" {} +
  rm -rf "${root:?}"/{boot,lib/modules,lib/udev,usr/include,usr/games,usr/src,var/cache,var/lib/dpkg,var/lib/apt} \
    "$root"/usr/share/{doc,man,locale,info,lintian,bash-completion,perl*,zsh,mime,zoneinfo} \
    "$root"/usr/lib/*/{perl*,gconv,libperl*,e2fsprogs} "$root"/usr/bin/perl* "$root"/usr/lib/udev
  mkdir "$root/lib/modules"
  mv "$root"/lib/{fuse,cuse}.ko "$root/lib/modules"
}

# The packages were extracted, not configured: what their scripts would have done and the machine needs.
make_bootable() {
  local root=$1 applet unit
  ln -s lib/systemd/systemd "$root/init"
  rm -rf "$root/var/run"
  ln -s ../run "$root/var/run"
  while read -r applet; do
    [[ -n $(find "$root"/{bin,sbin,usr/bin,usr/sbin} -name "$applet" -print -quit) ]] ||
      ln -s /bin/busybox "$root/usr/bin/$applet"
  done < <(qemu-arm-static "$root/bin/busybox" --list)
  ln -sf busybox "$root/bin/sh"
  mkdir -p "$root/etc/systemd/system"
  for unit in systemd-{udevd,udev-trigger,firstboot,hwdb-update,update-done,update-utmp,sysusers,logind,repart}.service \
    systemd-{machine-id-commit,random-seed,pcrphase,pcrphase-sysinit,binfmt}.service ldconfig.service \
    systemd-udevd-{control,kernel}.socket sys-kernel-{config,debug,tracing}.mount proc-sys-fs-binfmt_misc.automount; do
    ln -sf /dev/null "$root/etc/systemd/system/$unit"
  done
  # The build's own folder may lie in /tmp, which this would empty.
  rm -f "$root/usr/lib/tmpfiles.d/tmp.conf"
}

# What run-tests runs. plan_tests BUILD_FOLDER [CTEST_ARGUMENT...]: the build's tests that are labelled for the machine.
plan_tests() { ctest --test-dir "$1" --show-only=json-v1 -L '^machine$' "${@:2}" | jq -r -f machine/plan.jq; }

plan_soak() { printf 'entry alone soak %d none / /usr/lib/keltipc/soak %d\n' $(($1 + 480)) "$1"; }

# make_tests OUT BUILD_FOLDER PLAN_COMMAND...
make_tests() {
  local out=$1 build=$2 root=$1/tests
  shift 2
  rm -rf "$root"
  mkdir -p "$root" "$root/var/log"
  cp -a machine/rootfs/. "$root"
  cp -a tests/machine/units/. "$root/etc/systemd/system"
  cp -a tests/units/. "$root/etc/systemd/system"
  install -D -m 644 -t "$root/etc/polkit-1/rules.d" examples/*.rules
  install -d "$root/root" "$root/home/app" "$root/run" "$root/tmp"
  "$@" >"$root/usr/lib/keltipc/plan"
  copy_build "$root" "$build"
  archive "$root" >"$out/tests.cpio"
}

# Copies executables, libraries and what the tests read to where they are here, so that the paths which a test was built
# with, or gets in its environment, hold in the machine too.
copy_build() {
  local root=$1 build=$2 file
  local here=$PWD
  if [[ $here =~ ^/(dev|proc|run|sys)/ ]]; then
    printf '%s is in a folder that the machine mounts something else over: move the sources\n' "$here" >&2
    return 1
  fi
  install -d "$root$here"
  find "$build" -name CMakeFiles -prune -o \( -type f -executable -o -name '*.so*' \) -print |
    cpio -pdm --quiet "$root$here"
  find docs examples scripts tests tools -type f ! -name '*.cpp' ! -name '*.h' | cpio -pdm --quiet "$root$here"
  while read -r file; do
    [[ $(head -c4 "$file") != $'\x7fELF' ]] || arm-linux-gnueabihf-strip "$file"
  done < <(find "$root$here/$build" -type f)
  install -d "$root/usr/local/bin"
  ln -s "$here/$build"/tools/keltipc/keltipc "$here/$build"/tools/portsim/keltipc-portsim "$root/usr/local/bin"
}

archive() { (cd "$1" && find . -mindepth 1 | LC_ALL=C sort | cpio -o -H newc -R 0:0 --quiet); }
