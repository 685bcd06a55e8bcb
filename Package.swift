// swift-tools-version:5.7
import PackageDescription

// The library and its engine in C++, and the module JURN over them. No unsafe flags, so that any
// package can depend on this one: the sources themselves ask for the arithmetic that they need. Where
// another package depends on this one, this file is read alone, so it names files itself.

/// What lies among the sources and is none: texts that sources include.
let texts = [
  "engine/CMakeLists.txt",
  "modules/libJURN/common/DFTs.inl",
  "modules/libJURN/common/samples.inl",
  "modules/libJURN/common/self_check.inl",
  "modules/libJURN/common/simd/clone.inl",
  "modules/libJURN/common/simd/groups.inl",
  "modules/libJURN/common/simd/sample_lanes.inl",
  "modules/libJURN/common/simd/vector.inl",
  "modules/libJURN/common/transforms/blocks.inl",
  "modules/libJURN/common/transforms/complex.inl",
  "modules/libJURN/common/transforms/lanes.inl",
  "modules/libJURN/common/transforms/radix.inl",
  "modules/libJURN/common/transforms/real.inl",
  "modules/libJURN/common/transforms/steps.inl",
  "modules/libJURN/filter/Filter_LIB/OKA_Filter/kernels/JURNfir.inl",
  "modules/libJURN/filter/Filter_LIB/OKA_Filter/kernels/JURNiir.inl",
  "modules/libJURN/filter/Filter_LIB/OKA_Filter/kernels/cascade_groups.inl",
  "modules/libJURN/filter/Filter_LIB/OKA_Filter/kernels/cascade_records.inl",
  "modules/libJURN/filter/Filter_LIB/OKA_Filter/kernels/convolution_kernels.inl",
  "modules/libJURN/filter/Filter_LIB/OKA_Filter/kernels/filterNOrNsSec.inl",
  "modules/libJURN/filter/Filter_LIB/OKA_Filter/kernels/fir.inl",
  "modules/libJURN/filter/Filter_LIB/OKA_Filter/kernels/float_kernels.inl",
  "modules/libJURN/filter/Filter_LIB/OKA_Filter/kernels/moving_sum.inl",
  "modules/libJURN/filter/Filter_LIB/OKA_Filter/kernels/record_lanes.inl",
  "modules/libJURN/filter/Filter_LIB/OKA_Filter/kernels/sections_kernels.inl",
]

/// Readers of coefficients that need no other library, as in CMake's list.
let readers = [
  "files/audio_bytes.cpp",
  "files/coefficients/arrays.cpp",
  "files/coefficients/audio_taps.cpp",
  "files/coefficients/biquads.cpp",
  "files/coefficients/channels.cpp",
  "files/coefficients/equaliser.cpp",
  "files/coefficients/equaliser_words.cpp",
  "files/coefficients/header.cpp",
  "files/coefficients/kinds.cpp",
  "files/coefficients/mark.cpp",
  "files/coefficients/measurement.cpp",
  "files/coefficients/named_text.cpp",
  "files/coefficients/npy.cpp",
  "files/coefficients/numbers.cpp",
  "files/coefficients/raw.cpp",
  "files/coefficients/recognise.cpp",
  "files/coefficients/rew_response.cpp",
  "files/coefficients/roles.cpp",
  "files/coefficients/rows.cpp",
  "files/coefficients/scalar_text.cpp",
  "files/coefficients/text.cpp",
  "files/coefficients/words.cpp",
  "files/coefficients/zeros_and_poles.cpp",
  "files/file_kind.cpp",
]

let package = Package(
  name: "JURN",
  platforms: [.iOS(.v13), .macOS(.v10_15), .tvOS(.v13), .watchOS("9.0")],
  products: [.library(name: "JURN", targets: ["JURN", "CJURN"])],
  targets: [
    .target(
      name: "CJURN",
      path: ".",
      exclude: texts,
      sources: ["modules/libJURN", "engine", "bindings/native", "bindings/swift/native"] + readers,
      publicHeadersPath: "bindings/swift/include",
      cxxSettings: [
        .headerSearchPath("engine"),
        .headerSearchPath("files"),
        .headerSearchPath("bindings/native"),
        .headerSearchPath("modules/libJURN/common"),
        .headerSearchPath("modules/libJURN/filter/Filter_LIB"),
        .define("NDEBUG", .when(configuration: .release)),
      ]),
    .target(name: "JURN", dependencies: ["CJURN"], path: "bindings/swift/Sources/JURN"),
    .executableTarget(
      name: "FilterRecording", dependencies: ["JURN"], path: "examples/swift/FilterRecording"),
    .target(
      name: "HeadphonePlayer", dependencies: ["JURN"], path: "examples/swift/HeadphonePlayer"),
    .testTarget(name: "JURNTests", dependencies: ["JURN"], path: "bindings/swift/Tests/JURNTests"),
  ],
  cxxLanguageStandard: .cxx17)
