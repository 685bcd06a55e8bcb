import CJURN

/// An object that filters int16 and float samples in double, or close to it.
///
/// Floats have a full scale of 1.0 and are not limited; int16 results are rounded to the nearest, ties
/// to even, and limited. A sample that is infinite or no number counts as 0.
public class StreamProcessor: Processor {
  /// Filters floats in place.
  public final func process(_ samples: UnsafeMutableBufferPointer<Float>) {
    run(UnsafeBufferPointer(samples), samples, jurn_run_float)
  }

  /// Filters floats; `output` does not overlap `input`, or is the same memory.
  public final func process(
    _ input: UnsafeBufferPointer<Float>, into output: UnsafeMutableBufferPointer<Float>
  ) {
    run(input, output, jurn_run_float)
  }

  /// Filters frames whose channels have an array each; an output may be the input of its number.
  ///
  /// - Parameters:
  ///   - input: an array for each of ``Processor/inputs``
  ///   - frames: samples of each array, a multiple of ``Processor/block``
  ///   - output: an array for each of ``Processor/outputs``
  public final func process(
    channels input: UnsafePointer<UnsafePointer<Float>>, frames: Int,
    into output: UnsafePointer<UnsafeMutablePointer<Float>>
  ) {
    precondition(frames >= 0 && frames % block == 0, "the frames are no multiple of the block")
    jurn_run_planar(object, input, CInt(frames), output)
  }

  /// The same in place, of an object with as many outputs as inputs.
  public final func process(channels: UnsafePointer<UnsafeMutablePointer<Float>>, frames: Int) {
    precondition(inputs == outputs, "with other outputs than inputs nothing is in place")
    UnsafeRawPointer(channels).withMemoryRebound(to: UnsafePointer<Float>.self, capacity: inputs) {
      process(channels: $0, frames: frames, into: channels)
    }
  }

  /// Frames a second.
  public final var rate: Int { Int(jurn_rate(object)) }

  /// Frames that the filter rings on after its input has ended, as far as that is heard.
  public final var tail: Int { Int(jurn_tail(object)) }
}

/// Any design on up to 64 channels, in double and without latency, for calls of any number of frames
/// and with fades to any other design.
///
/// ```swift
/// let bass = try Design(equaliser: ["LS 90 +4"], rate: 48000)
/// let stream = try FilterStream(bass, rate: 48000, channels: 2)
/// stream.process(samples)                     // on the audio thread
/// try stream.fade(to: headphone, over: 4800)  // on any other
/// ```
///
/// FIRs run tap by tap; ``Convolution`` takes long ones at less cost.
public final class FilterStream: StreamProcessor {
  /// Makes a stream, silent.
  ///
  /// - Parameters:
  ///   - rate: frames a second
  ///   - channels: 1 to 64, each filtered alike
  public init(_ design: Design, rate: Int, channels: Int) throws {
    super.init(try design.withCoefficients { try FilterStream.make(&$0, rate, channels) })
  }

  /// The mean of the last samples of each channel, 1 to 16,777,216.
  public init(average length: Int, rate: Int, channels: Int) throws {
    super.init(
      try withCoefficients(kind: Int(JURN_KIND_MEAN.rawValue), b: [Double(length)]) {
        try FilterStream.make(&$0, rate, channels)
      })
  }

  /// Continues exactly where ``Processor/state()`` was called, in another process, too.
  public init(state: [UInt8]) throws {
    super.init(try Processor.restored(JURN_STREAM, state))
  }

  /// Goes over to another design of any kind. The new filter first hears the past, then fades in: no
  /// step and no hole, also during a fade. Any thread, at any time; the newest wins.
  ///
  /// - Parameter frames: of the fade, 1 or more
  public func fade(to design: Design, over frames: Int) throws {
    try design.withCoefficients { try change(&$0, over: frames) }
  }

  private static func make(
    _ coefficients: inout JurnCoefficients, _ rate: Int, _ channels: Int
  ) throws -> OpaquePointer {
    let count = CInt(clamping: channels)
    return try checked {
      jurn_make_stream(
        CInt(JURN_STREAM.rawValue), CInt(clamping: rate), count, count, 1, 1, &coefficients, &$0)
    }
  }
}

/// Convolution with impulse responses of up to 2^20 taps between up to 16 inputs and outputs, without
/// latency: rooms, loudspeaker and headphone correction, HRTFs. Its spectra and sums are floats, with
/// an error 120 dB and more below the result's loudest parts.
///
/// Every call is a multiple of ``Processor/block`` frames; short blocks cost more.
public final class Convolution: StreamProcessor {
  /// A way from an input to an output, through taps. Several may share an input or an output.
  public struct Route: Hashable, Sendable {
    /// From 0.
    public var input: Int
    /// From 0.
    public var output: Int
    /// The first of the current sample.
    public var taps: [Double]

    public init(from input: Int, to output: Int, taps: [Double]) {
      self.input = input
      self.output = output
      self.taps = taps
    }
  }

  /// Makes a convolution, silent.
  ///
  /// - Parameters:
  ///   - routes: up to 256
  ///   - rate: frames a second
  ///   - inputs: 1 to 16
  ///   - outputs: 1 to 16
  ///   - block: frames that every call is a multiple of, 1 to 4096; a power of two is the fastest
  ///   - longest: taps of the longest response that it will have, 1 to 1,048,576
  public init(
    _ routes: [Route], rate: Int, inputs: Int, outputs: Int, block: Int, longest: Int
  ) throws {
    super.init(
      try checked { error in
        Convolution.with(routes) {
          jurn_make_stream(
            CInt(JURN_ROOM.rawValue), CInt(clamping: rate), CInt(clamping: inputs),
            CInt(clamping: outputs), CInt(clamping: block), CInt(clamping: longest), &$0, &error)
        }
      })
  }

  /// Continues exactly where ``Processor/state()`` was called, in another process, too.
  public init(state: [UInt8]) throws {
    super.init(try Processor.restored(JURN_ROOM, state))
  }

  /// Fades to another response within a block, once it has heard the past. Transforms its taps, which
  /// takes long, on the thread that calls.
  public func fade(to routes: [Route]) throws {
    try Convolution.with(routes) { try change(&$0, over: block) }
  }

  private static func with<T>(
    _ routes: [Route], _ body: (inout JurnCoefficients) throws -> T
  ) rethrows -> T {
    try withCoefficients(
      kind: Int(JURN_KIND_ROUTES.rawValue), b: routes.flatMap { $0.taps },
      routes: routes.flatMap {
        [CInt(clamping: $0.input), CInt(clamping: $0.output), CInt(clamping: $0.taps.count)]
      },
      body)
  }
}
