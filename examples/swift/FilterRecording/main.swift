// Corrects a headphone: filters a WAV file of 16 bits by AutoEq's ParametricEQ.txt, or any other
// coefficient file.
//
//   swift run FilterRecording IN.wav ParametricEQ.txt OUT.wav
import Foundation
import JURN

struct Refusal: Error, CustomStringConvertible {
  let description: String
}

/// A WAV file: all of its bytes, and what of them is samples.
struct Recording {
  var bytes: [UInt8]
  var rate = 0
  var channels = 0
  var samples = 0..<0

  init(path: String) throws {
    bytes = [UInt8](try Data(contentsOf: URL(fileURLWithPath: path)))
    var at = 12
    while at + 8 <= bytes.count {
      let size = min(number(at + 4, bytes: 4), bytes.count - at - 8)
      let chunk = String(decoding: bytes[at..<at + 4], as: UTF8.self)
      if chunk == "fmt ", size >= 16, number(at + 8, bytes: 2) == 1, number(at + 22, bytes: 2) == 16
      {
        channels = number(at + 10, bytes: 2)
        rate = number(at + 12, bytes: 4)
      } else if chunk == "data" {
        samples = at + 8..<at + 8 + size
        break
      }
      at += 8 + size + size % 2
    }
    guard channels > 0, !samples.isEmpty else {
      throw Refusal(description: "\(path): no WAV file of 16 bits, or an empty one")
    }
    samples = samples.lowerBound..<samples.upperBound - samples.count % (2 * channels)
  }

  /// A number at a place, the lowest byte first.
  func number(_ at: Int, bytes count: Int) -> Int {
    bytes[at..<at + count].reversed().reduce(0) { $0 << 8 | Int($1) }
  }

  /// Filters the samples, 1024 frames at a time as in a player.
  mutating func filter(by stream: FilterStream) {
    bytes[samples].withUnsafeMutableBytes { bytes in
      let all = bytes.bindMemory(to: Int16.self)
      let step = 1024 * channels
      for start in stride(from: 0, to: all.count, by: step) {
        let block = all[start..<min(start + step, all.count)]
        stream.process(UnsafeMutableBufferPointer(rebasing: block))
      }
    }
  }
}

let arguments = CommandLine.arguments
guard arguments.count == 4 else {
  print("usage: FilterRecording IN.wav COEFFICIENTS OUT.wav")
  exit(2)
}
do {
  var recording = try Recording(path: arguments[1])
  let file = URL(fileURLWithPath: arguments[2])
  let design = try Design(
    contents: Data(contentsOf: file), name: arguments[2], rate: recording.rate)
  for warning in try design.prepared(rate: recording.rate).warnings {
    print("\(arguments[2]): \(warning)")
  }
  let stream = try FilterStream(design, rate: recording.rate, channels: recording.channels)
  recording.filter(by: stream)
  try Data(recording.bytes).write(to: URL(fileURLWithPath: arguments[3]), options: .atomic)
  print("\(arguments[3]): \(recording.channels) channels at \(recording.rate) Hz through \(design)")
} catch {
  print(error)
  exit(1)
}
