// swift-tools-version:5.7
import Foundation
import PackageDescription

// The library and its engine in C++, and the module JURN over them. No unsafe flags, so that any
// package can depend on this one: the sources themselves ask for the arithmetic that they need.

/// What lies among the sources and is none: texts that sources include.
func texts(in folder: String) -> [String] {
  let files = FileManager.default.enumerator(atPath: Context.packageDirectory + "/" + folder)
  return (files?.allObjects as? [String] ?? [])
    .filter { $0.hasSuffix(".inl") || $0.hasSuffix("CMakeLists.txt") }
    .map { folder + "/" + $0 }
}

/// Readers of coefficients that need no other library, by CMake's list.
func readers() throws -> [String] {
  let folder = "files/coefficients/"
  let list = try String(
    contentsOfFile: Context.packageDirectory + "/" + folder + "CMakeLists.txt", encoding: .utf8)
  return list.split(whereSeparator: { " \n)".contains($0) })
    .filter { $0.hasSuffix(".cpp") }
    .map { $0.hasPrefix("../") ? "files/" + $0.dropFirst(3) : folder + $0 }
}

let package = Package(
  name: "JURN",
  platforms: [.iOS(.v13), .macOS(.v10_15), .tvOS(.v13), .watchOS("9.0")],
  products: [.library(name: "JURN", targets: ["JURN", "CJURN"])],
  targets: [
    .target(
      name: "CJURN",
      path: ".",
      exclude: texts(in: "modules/libJURN") + texts(in: "engine"),
      sources: ["modules/libJURN", "engine", "bindings/native", "bindings/swift/native"]
        + (try readers()),
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
