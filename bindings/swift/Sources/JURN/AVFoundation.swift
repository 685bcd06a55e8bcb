#if canImport(AVFoundation)
  import AVFoundation

  extension StreamProcessor {
    /// Filters a list of float buffers where they lie, without a copy: what render blocks have. Each
    /// has a channel, or the only one has all of them interleaved.
    public func process(_ list: UnsafeMutableAudioBufferListPointer, frames: Int) {
      if list.count == 1 && inputs > 1 {
        precondition(
          Int(list[0].mNumberChannels) == inputs, "the list has another number of channels")
        let samples = list[0].mData?.assumingMemoryBound(to: Float.self)
        return process(UnsafeMutableBufferPointer(start: samples, count: frames * inputs))
      }
      precondition(list.count == inputs, "the list has another number of channels")
      withUnsafeTemporaryAllocation(of: UnsafeMutablePointer<Float>.self, capacity: inputs) { all in
        for c in 0..<inputs {
          guard let samples = list[c].mData else { preconditionFailure("a channel has no memory") }
          all.initializeElement(at: c, to: samples.assumingMemoryBound(to: Float.self))
        }
        process(channels: UnsafePointer(all.baseAddress!), frames: frames)
      }
    }

    /// Filters a buffer of floats or of 16 bits where it lies, without a copy.
    public func process(_ buffer: AVAudioPCMBuffer) {
      let frames = Int(buffer.frameLength)
      let interleaved = buffer.format.isInterleaved || inputs == 1
      precondition(
        Int(buffer.format.channelCount) == inputs, "the buffer has another number of channels")
      if let channels = buffer.floatChannelData {
        if interleaved {
          process(UnsafeMutableBufferPointer(start: channels[0], count: frames * inputs))
        } else {
          process(channels: channels, frames: frames)
        }
      } else if let channels = buffer.int16ChannelData, interleaved {
        process(UnsafeMutableBufferPointer(start: channels[0], count: frames * inputs))
      } else {
        preconditionFailure("the buffer holds neither floats nor interleaved 16 bits")
      }
    }
  }
#endif
