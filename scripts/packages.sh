# The Debian packages that the scripts install, by purpose. Sourced by them.
build_packages="g++ make cmake pkg-config libsndfile1-dev libcli11-dev libmatio-dev libmysofa-dev libsamplerate0-dev"
recording_packages="alsa-utils sonic-pi-samples jconvolver-config-files libmysofa1"
test_packages="libgtest-dev python3 python3-numpy python3-scipy sox"
ci_packages="clang libclang-rt-14-dev"
