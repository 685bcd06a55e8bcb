import CJURN

/// What cannot be done, in a sentence.
public struct JURNError: Error, CustomStringConvertible, Sendable {
  public let description: String
}

/// A filter's coefficients in double precision.
///
/// The first ones belong to the current sample, and feedback is subtracted, as in MATLAB and SciPy:
/// y[n] = b[0] x[n] + b[1] x[n-1] + … - a[1] y[n-1] - …. An a0 other than 1 is divided out.
///
/// ```swift
/// let presence = try Design(equaliser: ["PK 3k -4 Q 2"], rate: 48000)
/// let headphone = try Design(contents: Data(contentsOf: url), name: "ParametricEQ.txt", rate: 48000)
/// ```
public struct Design: Hashable, Sendable, CustomStringConvertible {
  /// What a filter is made of.
  public enum Kind: Int, Sendable {
    /// Taps.
    case fir
    /// A numerator and a denominator.
    case iir
    /// Second-order sections, one after the other.
    case sections
  }

  public let kind: Kind
  /// Taps or numerator; three numbers of each section.
  public let numerator: [Double]
  /// Denominator, which begins with 1; three numbers of each section; none of an FIR.
  public let denominator: [Double]
  /// Frames by which the result is late only because of how the filter is made.
  public let delay: Int

  /// An FIR.
  public init(taps: [Double]) throws {
    try self.init(kind: .fir, b: taps, a: [])
  }

  /// A direct form.
  public init(numerator: [Double], denominator: [Double]) throws {
    try self.init(kind: .iir, b: numerator, a: denominator)
  }

  /// Sections of six numbers each, `[b0, b1, b2, a0, a1, a2]`, as SciPy and MATLAB have them.
  public init(sections: [[Double]]) throws {
    guard sections.allSatisfy({ $0.count == 6 }) else {
      throw JURNError(description: "a section takes six numbers, b0 b1 b2 a0 a1 a2")
    }
    try self.init(
      kind: .sections, b: sections.flatMap { $0[0..<3] }, a: sections.flatMap { $0[3..<6] })
  }

  /// An equaliser in words, one filter each: `"PK 3k -4 Q 2"`, `"HP 80 order 4"`, `"LS 120 +3"`,
  /// with frequencies in Hz and gains in dB.
  ///
  /// - Parameter rate: frames a second of the streams that it is for
  public init(equaliser filters: [String], rate: Int) throws {
    self.init(
      try checked { jurn_words(filters.joined(separator: "\n"), CInt(clamping: rate), &$0) })
  }

  /// Reads a coefficient file: lines of room and headphone correction programs (Preamp, Filter,
  /// GraphicEQ), numbers, NumPy's arrays, MATLAB's texts and headers, and more.
  ///
  /// - Parameters:
  ///   - contents: the file's bytes
  ///   - name: the file's name, for messages
  ///   - rate: frames a second of the streams that it is for
  public init<Bytes: Sequence>(contents: Bytes, name: String, rate: Int) throws
  where Bytes.Element == UInt8 {
    let bytes = Array(contents)
    self.init(try checked { jurn_read(name, bytes, bytes.count, CInt(clamping: rate), &$0) })
  }

  /// What a design does to a frequency.
  public struct Response: Hashable, Sendable {
    let real: Double
    let imaginary: Double
    /// The group delay, in frames.
    public let delay: Double
    /// The gain as a factor.
    public var magnitude: Double { (real * real + imaginary * imaginary).squareRoot() }
  }

  /// The response at a frequency in Hz.
  public func response(at frequency: Double, rate: Int) throws -> Response {
    var three = [0.0, 0.0, 0.0]
    try check { error in
      withCoefficients { jurn_response(&$0, 2 * .pi * frequency / Double(rate), &three, &error) }
    }
    return Response(real: three[0], imaginary: three[1], delay: three[2])
  }

  /// The largest gain over all frequencies, as a factor; infinite where it has none.
  public func peakGain() throws -> Double {
    var gain = 0.0
    try check { error in withCoefficients { jurn_peak(&$0, &gain, &error) } }
    return gain
  }

  /// What it is, in words: "12 taps", "2 sections".
  public var description: String {
    guard let text = try? checked({ e in withCoefficients { jurn_description(&$0, &e) } }) else {
      return "\(kind)"
    }
    defer { jurn_free(text) }
    return String(cString: text)
  }

  private init(kind: Kind, b: [Double], a: [Double]) throws {
    self.init(
      try checked { error in
        JURN.withCoefficients(kind: kind.rawValue, b: b, a: a) { jurn_check(&$0, &error) }
      })
  }

  /// Takes an answer of the library, which it frees.
  init(_ answer: UnsafeMutablePointer<JurnCoefficients>) {
    let design = answer.pointee
    kind = Kind(rawValue: Int(design.kind))!
    numerator = Array(UnsafeBufferPointer(start: design.b, count: design.b_count))
    denominator = Array(UnsafeBufferPointer(start: design.a, count: design.a_count))
    delay = Int(design.delay)
    jurn_free(answer)
  }

  func withCoefficients<T>(_ body: (inout JurnCoefficients) throws -> T) rethrows -> T {
    try JURN.withCoefficients(
      kind: kind.rawValue, b: numerator, a: denominator, delay: delay, body)
  }
}

/// What runs of a design, and what was found on the way.
public struct PreparedDesign: Hashable, Sendable {
  /// Exactly what runs; a direct form may have become sections.
  public let design: Design
  public let isStable: Bool
  /// Of the outermost pole of what runs.
  public let poleRadius: Double
  /// The largest difference to the design in exact arithmetic, in steps of 16 bits.
  public let expectedError: Double
  /// Frames that it rings on, as far as that is heard; 10 seconds or an FIR's taps at most.
  public let tail: Int
  /// What was done, which changes nothing that is heard.
  public let notices: [String]
  /// What differs from the design: unstable, or more than a step of 16 bits off.
  public let warnings: [String]
}

extension Design {
  /// What runs of it in double, as in ``FilterStream``: whether it is stable, how exact, how long it
  /// rings.
  public func prepared(rate: Int) throws -> PreparedDesign {
    try prepared(rate: rate, inInt16: 0)
  }

  /// What runs of it in 16 bits, as in ``Int16Filter``: a design that float spoils is mended, by
  /// moving gains between sections or making sections of a direct form, and the rest is measured.
  /// Takes milliseconds.
  public func preparedForInt16(rate: Int) throws -> PreparedDesign {
    try prepared(rate: rate, inInt16: 1)
  }

  private func prepared(rate: Int, inInt16: CInt) throws -> PreparedDesign {
    var found = JurnFindings()
    let answer = try checked { error in
      withCoefficients { jurn_prepare(&$0, CInt(clamping: rate), inInt16, &found, &error) }
    }
    defer { jurn_free(found.notices) }
    let lines = found.notices.map { String(cString: $0) }?.split(separator: "\n") ?? []
    return PreparedDesign(
      design: Design(answer), isStable: found.stable != 0, poleRadius: found.pole_radius,
      expectedError: found.expected_error, tail: Int(found.tail),
      notices: lines.filter { $0.first != "!" }.map { String($0.dropFirst()) },
      warnings: lines.filter { $0.first == "!" }.map { String($0.dropFirst()) })
  }
}
