"""Recipe for Conan 2: `conan create packaging/conan`. Not run yet, for Conan is not in Debian: the tests
run its syntax and its options of CMake alone."""

from os.path import join

from conan import ConanFile
from conan.tools.cmake import CMake, CMakeToolchain, cmake_layout
from conan.tools.files import copy, load


class JurnConan(ConanFile):
    name = "jurn"
    description = "Filters for 16-bit PCM and float audio, the same bits on every machine"
    license = "MIT"
    topics = ("audio", "filter", "equaliser", "convolution", "dsp")
    package_type = "library"
    settings = "os", "arch", "compiler", "build_type"
    options = {"shared": [True, False]}
    default_options = {"shared": False}

    def set_version(self):
        header = load(self, join(self.recipe_folder, "../../modules/libJURN/common/JURN_api.h"))
        self.version = header.split('JURN_VERSION_STRING "')[1].split('"')[0]

    def export_sources(self):
        for pattern in ("CMakeLists.txt", "LICENSE", "cmake/*", "modules/*"):
            copy(self, pattern, join(self.recipe_folder, "../.."), self.export_sources_folder)

    def layout(self):
        self.folders.root = "../.."
        cmake_layout(self)

    def generate(self):
        toolchain = CMakeToolchain(self)
        for part in ("TOOLS", "TESTS", "BENCHMARKS", "EXAMPLES", "PYTHON", "JAVA", "PLUGINS"):
            toolchain.cache_variables[f"JURN_BUILD_{part}"] = "OFF"
        toolchain.generate()

    def build(self):
        cmake = CMake(self)
        cmake.configure()
        cmake.build()

    def package(self):
        copy(self, "LICENSE", self.source_folder, join(self.package_folder, "licenses"))
        CMake(self).install()

    def package_info(self):
        # The library's own package file serves find_package(JURN), as without Conan.
        self.cpp_info.set_property("cmake_find_mode", "none")
        self.cpp_info.set_property("pkg_config_name", "JURN")
        self.cpp_info.builddirs = [join("lib", "cmake", "JURN")]
        self.cpp_info.includedirs = ["include", join("include", "JURN")]
        self.cpp_info.libs = ["jurn"]
        if self.options.shared:
            self.cpp_info.defines = ["JURN_SHARED"]
