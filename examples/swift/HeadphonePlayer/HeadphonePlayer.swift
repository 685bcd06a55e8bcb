#if canImport(AVFoundation)
  import AVFoundation
  import JURN

  /// Plays a recording with the correction of a headphone, AutoEq's file, in the render block of an
  /// AVAudioEngine.
  public final class HeadphonePlayer {
    private let engine = AVAudioEngine()
    private let correction: FilterStream

    public init(song: URL, profile: URL) throws {
      let file = try AVAudioFile(forReading: song)
      let format = file.processingFormat  // floats, an array for each channel
      let rate = Int(format.sampleRate)
      let channels = Int(format.channelCount)
      let frames = AVAudioFrameCount(file.length)
      guard let samples = AVAudioPCMBuffer(pcmFormat: format, frameCapacity: frames),
        let recording = samples.floatChannelData
      else { throw CocoaError(.fileReadTooLarge) }
      try file.read(into: samples)

      let design = try Design(
        contents: Data(contentsOf: profile), name: profile.lastPathComponent, rate: rate)
      let correction = try FilterStream(design, rate: rate, channels: channels)
      self.correction = correction

      var position = 0
      let source = AVAudioSourceNode(format: format) { _, _, wanted, list in
        // Nothing here allocates, locks or waits.
        let out = UnsafeMutableAudioBufferListPointer(list)
        let left = Int(samples.frameLength) - position
        let count = min(Int(wanted), left)
        for c in 0..<channels {
          guard let to = out[c].mData?.assumingMemoryBound(to: Float.self) else { return noErr }
          to.update(from: recording[c] + position, count: count)
          (to + count).update(repeating: 0, count: Int(wanted) - count)
        }
        correction.process(out, frames: Int(wanted))
        position += count
        return noErr
      }
      engine.attach(source)
      engine.connect(source, to: engine.mainMixerNode, format: format)
    }

    public func play() throws { try engine.start() }

    /// Any thread: fades to another profile within 50 ms.
    public func change(to profile: Data) throws {
      let rate = correction.rate
      try correction.fade(
        to: Design(contents: profile, name: "the profile", rate: rate), over: rate / 20)
    }
  }
#endif
