# The Debian packages that the scripts install, by purpose. Sourced by them. Some names carry the
# version of the compilers: Debian 12 has GCC 12 and clang 14.
export LC_ALL=C.UTF-8 # in some languages [a-z] lacks letters: in Turkish the i
# A compiler takes up to 1.1 GB: as many at once as there are cores, and as the memory holds.
jobs=$(nproc) gigabytes=$(awk '/^MemAvailable:/ { print int($2 / 1100000) }' /proc/meminfo 2>/dev/null || echo 9)
[ "$gigabytes" -ge "$jobs" ] || jobs=$((gigabytes > 1 ? gigabytes : 1))
gcc=12 clang=14 java=17
[ "$(sed -n 's/^VERSION_ID="\{0,1\}\([0-9]*\).*/\1/p' /etc/os-release 2>/dev/null)" != 13 ] || gcc=14 clang=19 java=21
old_compilers= # others than these, where Debian has them
[ $gcc != 12 ] || old_compilers="g++-11 clang-13 clang-15 clang-16"
build_packages="g++ make cmake pkg-config libsndfile1-dev libflac-dev libcli11-dev nlohmann-json3-dev libmatio-dev libmysofa-dev libsamplerate0-dev libyaml-cpp-dev libzip-dev"
recording_packages="alsa-utils sonic-pi-samples jconvolver-config-files libmysofa1"
picture_packages="gnuplot-nox fonts-dejavu-core"
test_packages="mount libgtest-dev python3 python3-numpy python3-scipy python3-h5py sox locales"
python_packages="python3 python3-dev python3-numpy pybind11-dev python3-pybind11 python3-pip python3-setuptools python3-wheel python3-scipy python3-soundfile python3-matplotlib python3-distributed python3-fsspec python3-venv python3-pytest mypy"
benchmark_packages="g++ make cmake libbenchmark-dev libfftw3-dev libzita-convolver-dev libliquid-dev python3 gnuplot-nox"
phone_packages="clang g++-aarch64-linux-gnu qemu-user llvm-19 binutils python3"
sanitizer_packages="clang libclang-rt-$clang-dev"
install_packages="meson clang qemu-user g++-aarch64-linux-gnu g++-arm-linux-gnueabihf dpkg-dev file"
debian_packages="$(sed -n '/^Build-Depends:/,/^$/s/^ \([a-z0-9.+-]*\).*/\1/p' debian/control | grep -v -e debhelper-compat -e dh-sequence) debhelper dh-python dpkg-dev fakeroot lintian"
debian_test_packages="alsa-utils gstreamer1.0-tools gstreamer1.0-plugins-base gstreamer1.0-plugins-good lilv-utils"
docs_packages="doxygen doxygen-awesome-css chromium fonts-dejavu-core"
abi_packages="abigail-tools"
style_packages="clang clang-format clang-tidy cppcheck"
checksum_packages="clang g++-aarch64-linux-gnu g++-arm-linux-gnueabihf g++-s390x-linux-gnu qemu-user"
web_packages="cmake make clang lld wasi-libc libc++-$clang-dev-wasm32 libclang-rt-$clang-dev-wasm32
  g++ libmysofa-dev libmysofa1 sonic-pi-samples alsa-utils jconvolver-config-files python3"
web_test_packages="chromium firefox-esr fonts-dejavu-core"
checksum_all_packages="g++-arm-linux-gnueabi g++-riscv64-linux-gnu
  g++-powerpc64le-linux-gnu g++-powerpc64-linux-gnu g++-mips64el-linux-gnuabi64
  g++-mingw-w64-x86-64-posix wine64 libc6-dev-i386 lib32gcc-$gcc-dev lib32stdc++-$gcc-dev lld nodejs wasi-libc
  libc++-$clang-dev-wasm32 libclang-rt-$clang-dev-wasm32"
avx512_packages="bochs bochsbios vgabios isolinux syslinux-common xorriso cpio"
java_packages="openjdk-$java-jdk-headless junit4 binutils"
foreign_packages="mmdebstrap"
gstreamer_packages="libgstreamer1.0-dev libgstreamer-plugins-base1.0-dev gstreamer1.0-tools gstreamer1.0-plugins-base gstreamer1.0-plugins-good python3-gi gir1.2-gstreamer-1.0"
gstreamer_test_packages="pipewire wireplumber gstreamer1.0-pipewire dbus libgtest-dev"
live_packages="libpipewire-0.3-dev pipewire-bin"
live_test_packages="pipewire wireplumber dbus libmysofa1"
lv2_packages="lv2-dev lilv-utils"
lv2_test_packages="sordi jalv ffmpeg jackd2 pipewire wireplumber dbus libgtest-dev"

# What several scripts need, too: this version, and how to become root.
version=$(sed -n 's/.*define JURN_VERSION_STRING "\(.*\)"/\1/p' modules/libJURN/common/JURN_api.h)
if [ "$(id -u)" = 0 ]; then sudo=; else sudo=sudo; fi

# Every script that builds begins with this file.
scripts/forget-moved
