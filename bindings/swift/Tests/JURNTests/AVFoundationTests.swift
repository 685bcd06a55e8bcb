#if canImport(AVFoundation)
  import AVFoundation
  import JURN
  import XCTest

  /// Buffers are filtered where they lie, with the bits of plain calls.
  final class AVFoundationTests: XCTestCase {
    func testBuffersHaveTheBitsOfPlainCalls() throws {
      let frames = 700
      let design = try Design(equaliser: ["PK 1k -6 Q 1"], rate: 48000)
      let noise = (0..<2 * frames).map { Float(($0 * 7919) % 2001 - 1000) / 2000 }
      var expected = noise
      expected.withUnsafeMutableBufferPointer { try? stream(design).process($0) }

      for interleaved in [true, false] {
        for asList in [true, false] {
          let buffer = try buffer(.pcmFormatFloat32, interleaved, frames)
          let channels = try XCTUnwrap(buffer.floatChannelData)
          let at = { i in interleaved ? (0, i) : (i % 2, i / 2) }
          for (i, x) in noise.enumerated() { channels[at(i).0][at(i).1] = x }
          if asList {
            let list = UnsafeMutableAudioBufferListPointer(buffer.mutableAudioBufferList)
            try stream(design).process(list, frames: frames)
          } else {
            try stream(design).process(buffer)
          }
          XCTAssertEqual(noise.indices.map { channels[at($0).0][at($0).1] }, expected)
        }
      }

      let buffer = try buffer(.pcmFormatInt16, true, frames)
      let samples = try XCTUnwrap(buffer.int16ChannelData)[0]
      var shorts = noise.map { Int16($0 * 32000) }
      for (i, x) in shorts.enumerated() { samples[i] = x }
      try stream(design).process(buffer)
      shorts.withUnsafeMutableBufferPointer { try? stream(design).process($0) }
      XCTAssertEqual(shorts.indices.map { samples[$0] }, shorts)
    }

    func stream(_ design: Design) throws -> FilterStream {
      try FilterStream(design, rate: 48000, channels: 2)
    }

    func buffer(
      _ kind: AVAudioCommonFormat, _ interleaved: Bool, _ frames: Int
    ) throws -> AVAudioPCMBuffer {
      let format = try XCTUnwrap(
        AVAudioFormat(commonFormat: kind, sampleRate: 48000, channels: 2, interleaved: interleaved))
      let buffer = try XCTUnwrap(
        AVAudioPCMBuffer(pcmFormat: format, frameCapacity: AVAudioFrameCount(frames)))
      buffer.frameLength = AVAudioFrameCount(frames)
      return buffer
    }
  }
#endif
