# Sourced by the other scripts: makes sure the Debian packages named in
# "$@" are installed. As root it installs them with apt-get; otherwise it
# prints the exact apt-get line and stops.
need_packages() {
  local missing=()
  for package in "$@"; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' ||
      missing+=("$package")
  done
  [ ${#missing[@]} -eq 0 ] && return 0
  if [ "$(id -u)" -eq 0 ]; then
    echo "installing: ${missing[*]}"
    apt-get update -qq || return 1
    DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" ||
      return 1
  else
    echo "missing packages; run as root:" >&2
    echo "  apt-get update && apt-get install -y ${missing[*]}" >&2
    return 1
  fi
}

BUILD_PACKAGES=(g++ cmake ninja-build pkg-config liblz4-dev nlohmann-json3-dev libiscsi-dev)
TEST_PACKAGES=(libgtest-dev libgmock-dev librsvg2-bin libxml2-utils)
# Clang for the supported Clang builds (scripts/build-matrix), the sanitizer
# build and the libFuzzer targets (scripts/robustness).
CLANG_PACKAGES=(clang-14 libclang-rt-14-dev libfuzzer-14-dev)
# scripts/kernel-tape: the emulator with its iSCSI driver, the tape target,
# and what a tiny initramfs is made of.
KERNEL_TAPE_PACKAGES=(qemu-system-x86 qemu-block-extra tgt busybox-static cpio kmod)
# scripts/iscsi-tape: the tape target and a reader of the results file.
ISCSI_TAPE_PACKAGES=(tgt jq)
# scripts/fleet-check: many drives at once on one host (GNU parallel, jq) and
# across hosts (Ansible), and the chart check.
FLEET_PACKAGES=(parallel jq ansible-core libxml2-utils)
