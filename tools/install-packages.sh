#!/usr/bin/env bash
# Installs the Debian packages that are missing; says nothing when all are there. Needs root or sudo only then.
set -eu

packages=(
  cmake ninja-build g++ pkg-config python3
  clang-format-14 clang-tidy-14    # tools/check-style
  graphviz                         # tools/make-pictures
  cmark-gfm scdoc dpkg-dev         # tools/make-packages: pages, manual pages
  bubblewrap groff-base bsdextrautils  # a root of its own and plain manual pages, for the check of the packages
  ntfs-3g ntfs-3g-dev              # the workstation's volumes; mkntfs; independent readers
  libcurl4-openssl-dev             # the workstation's network
  libxml2-dev                      # the workstation's XML documents
  libmimalloc-dev                  # the allocator of the Linux programs
  libblkid-dev libssl-dev qemu-utils  # disks: their partition tables, digests, virtual machines' containers
  nlohmann-json3-dev python3-jsonschema  # the report program's JSON, and its schema's check
  libgtest-dev googletest          # tests; the sources for the Windows build of the contract tests
  fdisk wimtools sleuthkit psmisc libhivex-bin  # independent readers and writers
  fakeroot                         # ntfssecaudit looks for root only
  g++-mingw-w64-x86-64 wine wine64 # QBC.exe and its trial
  ansible-core ansible-lint        # tests/ansible
  valgrind                         # bench/run --instructions
)

missing=()
for package in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' || missing+=("$package")
done
[ ${#missing[@]} -eq 0 ] && exit 0

as_root=()
if [ "$(id -u)" -ne 0 ]; then
  command -v sudo >/dev/null || { echo "Run as root once, or install: ${missing[*]}" >&2; exit 1; }
  as_root=(sudo)
fi
echo "Installing: ${missing[*]}"
log=$(mktemp)
trap 'rm -f "$log"' EXIT
install() {
  "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -o DPkg::Lock::Timeout=500 -qq "$@" >"$log" 2>&1
}
install update && install install -y --no-install-recommends "${missing[@]}" || { cat "$log" >&2; exit 1; }
