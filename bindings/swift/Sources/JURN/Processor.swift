import CJURN

/// What all objects that filter have in common.
///
/// **Frames.** A frame is one sample of each channel; buffers hold frames interleaved, left, right,
/// left, right, where it is not said otherwise. A call whose buffers do not fit together stops the
/// program, as an index beyond an array does.
///
/// **Memory.** Only initialisers, `fade` and ``state()`` allocate. Buffers are filtered where they
/// lie, without a copy.
///
/// **Threads.** One thread at a time runs an object, so it is not `Sendable`; objects of their own can
/// run on any. `fade` alone may be called while another thread runs the object, which takes the
/// newest coefficients with its next block, without waiting for a lock.
public class Processor {
  let object: OpaquePointer
  /// Samples of a frame that comes in.
  public let inputs: Int
  /// Samples of a frame that goes out.
  public let outputs: Int
  /// Frames that every call is a multiple of; 1 for all but convolutions.
  public let block: Int

  init(_ object: OpaquePointer) {
    self.object = object
    inputs = Int(jurn_inputs(object))
    outputs = Int(jurn_outputs(object))
    block = Int(jurn_block(object))
  }

  deinit { jurn_free_object(object) }

  /// Returns to silence; the newest coefficients stay.
  public final func reset() { jurn_reset(object) }

  /// The whole state, within a fade, too: for the same version of this package on a machine of the
  /// same kind. It has a checksum: what was altered or cut is not restored.
  public final func state() throws -> [UInt8] {
    var size = 0
    let bytes = try checked { jurn_state(object, &size, &$0) }
    defer { jurn_free(bytes) }
    return Array(UnsafeBufferPointer(start: bytes, count: size))
  }

  static func restored(_ what: JurnWhat, _ state: [UInt8]) throws -> OpaquePointer {
    try checked { jurn_restore(CInt(what.rawValue), state, state.count, &$0) }
  }

  /// Filters int16 samples in place.
  public final func process(_ samples: UnsafeMutableBufferPointer<Int16>) {
    run(UnsafeBufferPointer(samples), samples, jurn_run_int16)
  }

  /// Filters int16 samples; `output` does not overlap `input`, or is the same memory.
  public final func process(
    _ input: UnsafeBufferPointer<Int16>, into output: UnsafeMutableBufferPointer<Int16>
  ) {
    run(input, output, jurn_run_int16)
  }

  @inline(__always)
  final func run<Sample>(
    _ input: UnsafeBufferPointer<Sample>, _ output: UnsafeMutableBufferPointer<Sample>,
    _ call: (OpaquePointer, UnsafePointer<Sample>, CInt, UnsafeMutablePointer<Sample>) -> Void
  ) {
    let frames = input.count / inputs
    precondition(frames * inputs == input.count, "the samples are no whole frames")
    precondition(output.count == frames * outputs, "the output has another number of frames")
    precondition(frames % block == 0, "the frames are no multiple of the block")
    guard frames > 0, let from = input.baseAddress, let to = output.baseAddress else { return }
    precondition(
      inputs == outputs || from != UnsafePointer(to),
      "with other outputs than inputs nothing is in place")
    call(object, from, CInt(frames), to)
  }

  func change(_ coefficients: inout JurnCoefficients, over frames: Int) throws {
    guard frames >= 1, let frames = CInt(exactly: frames) else {
      throw JURNError(description: "a fade takes 1 to 2147483647 frames, not \(frames)")
    }
    try check { jurn_change(object, &coefficients, frames, &$0) }
  }
}

/// An FIR, a direct form or sections on one or two channels of int16 samples, in single precision:
/// the least memory, 55 KiB, and the bits of a device that runs the 16-bit records.
///
/// Results are truncated toward zero and limited. A direct form sets its past outputs below 1e-6 to 0
/// at the start of each call, so its bits follow from the lengths of the calls; those of the tool
/// `jurn-filter` are those of calls of 512 frames. Other kinds do not depend on them.
public final class Int16Filter: Processor {
  /// Makes a filter, silent. Coefficients run as they are, rounded to float:
  /// ``Design/preparedForInt16(rate:)`` mends those that float would spoil.
  ///
  /// - Parameters:
  ///   - design: up to 1250 taps or coefficients, or 416 sections
  ///   - channels: 1, or 2 for stereo
  public init(_ design: Design, channels: Int) throws {
    super.init(
      try checked { error in
        design.withCoefficients { jurn_make_int16_filter(CInt(clamping: channels), &$0, &error) }
      })
  }

  /// Continues exactly where ``Processor/state()`` was called, in another process, too.
  public init(state: [UInt8]) throws {
    super.init(try Processor.restored(JURN_INT16_FILTER, state))
  }

  /// Goes over to other coefficients of the same kind, of any count: the next block begins wholly
  /// with the old ones and ends wholly with the new ones.
  public func fade(to design: Design) throws {
    try design.withCoefficients { try change(&$0, over: 1) }
  }
}
