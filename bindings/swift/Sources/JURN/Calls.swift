import CJURN

typealias Message = UnsafeMutablePointer<CChar>?

/// Calls a function of the library, and throws what it says.
func checked<T>(_ call: (inout Message) -> T?) throws -> T {
  var message: Message = nil
  if let result = call(&message) { return result }
  defer { jurn_free(message) }
  throw JURNError(description: message.map { String(cString: $0) } ?? "no memory is left")
}

/// The same of one that gives whether it was done.
func check(_ call: (inout Message) -> CInt) throws {
  _ = try checked { call(&$0) == 0 ? nil : true }
}

/// Hands arrays to the library for the time of a call.
func withCoefficients<T>(
  kind: Int, b: [Double], a: [Double] = [], routes: [CInt] = [], delay: Int = 0,
  _ body: (inout JurnCoefficients) throws -> T
) rethrows -> T {
  try b.withUnsafeBufferPointer { b in
    try a.withUnsafeBufferPointer { a in
      try routes.withUnsafeBufferPointer { routes in
        var coefficients = JurnCoefficients(
          kind: CInt(kind), delay: CInt(delay), b: b.baseAddress, b_count: b.count,
          a: a.baseAddress, a_count: a.count, routes: routes.baseAddress,
          route_numbers: routes.count)
        return try body(&coefficients)
      }
    }
  }
}
