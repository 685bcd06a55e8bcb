import Foundation
import JURN
import XCTest

/// Against the tool, whose results a script has put into the folder JURN_EXPECTED.
final class JURNTests: XCTestCase {
  let rate = 48000
  let taps = [0.1, 0.2, 0.3, -0.2, 0.1, 0.05, 0, 0.02, 0.01, 0.3]

  func file(_ name: String) throws -> URL {
    let folder = try XCTUnwrap(ProcessInfo.processInfo.environment["JURN_EXPECTED"])
    return URL(fileURLWithPath: folder + "/" + name)
  }

  /// Of a WAV with a head of 44 bytes, in the folder of the tool's results.
  func samples(_ name: String) throws -> [Int16] {
    try Data(contentsOf: file(name + ".wav")).dropFirst(44).withUnsafeBytes {
      Array($0.bindMemory(to: Int16.self))
    }
  }

  /// In calls of changing lengths.
  func filtered(_ speech: [Int16], by object: Processor, block: Int? = nil) -> [Int16] {
    var out = speech
    let lengths = block.map { [$0] } ?? [1, 480, 77, 256, 1000, 13]
    out.withUnsafeMutableBufferPointer { all in
      var done = 0
      var call = 0
      while done < all.count {
        let count = min(lengths[call % lengths.count], all.count - done)
        object.process(UnsafeMutableBufferPointer(rebasing: all[done..<done + count]))
        done += count
        call += 1
      }
    }
    return out
  }

  func headphone() throws -> Design {
    let file = try file("ParametricEQ.txt")
    return try Design(contents: Data(contentsOf: file), name: file.lastPathComponent, rate: rate)
  }

  func room(_ taps: [Double]) throws -> Convolution {
    try Convolution(
      [.init(from: 0, to: 0, taps: taps)], rate: rate, inputs: 1, outputs: 1, block: 256,
      longest: taps.count)
  }

  func testEveryKindHasTheToolsBits() throws {
    let speech = try samples("speech")
    let words = try Design(equaliser: ["HP 80 order 4", "PK 3k -4 Q 2"], rate: rate)
    let iir = try Design(numerator: [0.2, 0.1, 0.05], denominator: [1, -1.2, 0.5])
    for (name, design) in [
      ("eq", words), ("iir", iir), ("fir", try Design(taps: taps)), ("headphone", try headphone()),
    ] {
      let stream = try FilterStream(design, rate: rate, channels: 1)
      XCTAssertEqual(filtered(speech, by: stream), try samples(name), name)
    }
    XCTAssertEqual(
      filtered(speech, by: try FilterStream(average: 30, rate: rate, channels: 1)),
      try samples("average"))
    let presence = try Design(equaliser: ["PK 3k -4 Q 2"], rate: rate)
    let prepared = try presence.preparedForInt16(rate: rate)
    XCTAssertTrue(prepared.isStable && prepared.warnings.isEmpty)
    XCTAssertEqual(
      filtered(speech, by: try Int16Filter(prepared.design, channels: 1)), try samples("eq16"))
    XCTAssertEqual(
      filtered(speech, by: try Int16Filter(iir, channels: 1), block: 512), try samples("iir16"))
    let whole = Array(speech[..<(speech.count / 256 * 256)])
    XCTAssertEqual(
      filtered(whole, by: try room(taps), block: 256), Array(try samples("room")[..<whole.count]))
  }

  func testDesignsAreValues() throws {
    let correction = try headphone()
    XCTAssertEqual(correction.kind, .sections)
    XCTAssertEqual("\(correction)", "4 sections")
    XCTAssertEqual(
      20 * log10(try correction.response(at: 5, rate: rate).magnitude), -0.9, accuracy: 0.01)
    XCTAssertGreaterThan(try correction.peakGain(), 0.5)
    XCTAssertEqual(Set([correction, try headphone(), try Design(taps: [1])]).count, 2)
    XCTAssertEqual(
      try Design(sections: [[2, 0, 0, 2, 1, 0]]), try Design(sections: [[1, 0, 0, 1, 0.5, 0]]))
    let unstable = try Design(numerator: [1], denominator: [1, -2]).prepared(rate: rate)
    XCTAssertFalse(unstable.isStable)
    XCTAssertEqual(unstable.poleRadius, 2, accuracy: 1e-9)
    XCTAssertEqual(unstable.warnings.count, 1)
  }

  func testFadesAndPlanarFloats() throws {
    let stream = try FilterStream(Design(taps: [1]), rate: rate, channels: 1)
    var block = [Float](repeating: 0.5, count: 960)
    block.withUnsafeMutableBufferPointer { stream.process($0) }
    try stream.fade(to: Design(taps: [0, 0.5, 0.25]), over: 960)
    block = [Float](repeating: 0.5, count: 960)
    block.withUnsafeMutableBufferPointer {
      var channel = $0.baseAddress!
      stream.process(channels: &channel, frames: 960)
    }
    XCTAssertEqual(block[0], 0.5)
    XCTAssertEqual(block[959], 0.375, accuracy: 1e-6)
    XCTAssertTrue(zip(block, block.dropFirst()).allSatisfy { $0 >= $1 && $0 - $1 < 0.001 })
  }

  func testStatesContinueWithinAFade() throws {
    let speech = try samples("speech")
    let iir = try Design(numerator: [0.2], denominator: [1, -0.9])
    let filter = try Int16Filter(iir, channels: 2)
    let stream = try FilterStream(iir, rate: rate, channels: 2)
    let hall = try room(taps)
    for object in [filter, stream, hall] {
      _ = filtered(Array(speech[..<1024]), by: object, block: 512)
    }
    try filter.fade(to: Design(numerator: [0.1], denominator: [1, -0.9]))
    try stream.fade(to: Design(taps: [1]), over: 3000)
    try hall.fade(to: [.init(from: 0, to: 0, taps: [1])])
    for (one, twin) in [
      (filter, try Int16Filter(state: filter.state())),
      (stream, try FilterStream(state: stream.state())),
      (hall, try Convolution(state: hall.state())),
    ] as [(Processor, Processor)] {
      let more = Array(speech[4096..<12288])
      XCTAssertEqual(filtered(more, by: one, block: 512), filtered(more, by: twin, block: 512))
    }
    XCTAssertThrowsError(try Convolution(state: stream.state()))
  }

  func testWhatCannotBeIsRefusedInASentence() throws {
    func refuses(_ sentence: String, _ body: () throws -> Any) {
      XCTAssertThrowsError(try body()) { XCTAssertTrue("\($0)".contains(sentence), "\($0)") }
    }
    refuses("no coefficients") { try Design(taps: []) }
    refuses("no number") { try Design(taps: [.nan]) }
    refuses("six numbers") { try Design(sections: [[1]]) }
    refuses("Straße") { try Design(contents: Data("Filter: x".utf8), name: "Straße", rate: rate) }
    refuses("1 or 2") { try Int16Filter(Design(taps: [1]), channels: 3) }
    refuses("from 1 to 64") { try FilterStream(Design(taps: [1]), rate: rate, channels: 1 << 40) }
    refuses("data:") { try Int16Filter(state: [1, 2, 3]) }
    let stream = try FilterStream(Design(taps: [1]), rate: rate, channels: 1)
    refuses("a fade takes") { try stream.fade(to: Design(taps: [1]), over: 0) }
    var altered = try stream.state()
    altered[altered.count / 2] ^= 4
    refuses("altered") { try FilterStream(state: altered) }
    altered = try Int16Filter(Design(taps: [1]), channels: 1).state()
    altered[altered.count / 2] ^= 4
    refuses("altered") { try Int16Filter(state: altered) }
  }

  func testFadesFromOtherThreadsAndEightStreamsAtOnce() throws {
    let one = try Design(equaliser: ["PK 1k 6 Q 2"], rate: rate)
    let other = try Design(equaliser: ["LS 90 3"], rate: rate)
    let speech = Array(try samples("speech")[20000..<24800])
    let expected = filtered(speech, by: try FilterStream(one, rate: rate, channels: 2), block: 480)
    let shared = Shared(try FilterStream(one, rate: rate, channels: 1))
    DispatchQueue.concurrentPerform(iterations: 8) { thread in
      for k in 0..<100 {
        if thread == 0 {
          _ = filtered(speech, by: shared.stream, block: 480)
        } else {
          try? shared.stream.fade(to: k % 2 == 0 ? other : one, over: 100)
          let own = try? FilterStream(one, rate: rate, channels: 2)
          XCTAssertEqual(own.map { filtered(speech, by: $0, block: 480) }, expected)
        }
      }
    }
  }

  /// One thread runs it, the others only fade.
  final class Shared: @unchecked Sendable {
    let stream: FilterStream
    init(_ stream: FilterStream) { self.stream = stream }
  }
}
