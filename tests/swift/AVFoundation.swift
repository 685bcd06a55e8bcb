// Stands in for Apple's AVFoundation where there is none: the declarations that the package, its tests
// and its example use. Buffers have memory; nothing plays.
@_exported import Foundation

public typealias AVAudioFrameCount = UInt32
public typealias AVAudioChannelCount = UInt32
public typealias AVAudioFramePosition = Int64
public typealias OSStatus = Int32
public typealias ObjCBool = Bool
public let noErr: OSStatus = 0

public struct AudioBuffer {
  public var mNumberChannels: UInt32
  public var mDataByteSize: UInt32
  public var mData: UnsafeMutableRawPointer?
  public init(mNumberChannels: UInt32, mDataByteSize: UInt32, mData: UnsafeMutableRawPointer?) {
    self.mNumberChannels = mNumberChannels
    self.mDataByteSize = mDataByteSize
    self.mData = mData
  }
}

public struct AudioBufferList {
  public var mNumberBuffers: UInt32
  public var mBuffers: AudioBuffer
}

public struct UnsafeMutableAudioBufferListPointer {
  let list: UnsafeMutablePointer<AudioBufferList>
  public init(_ list: UnsafeMutablePointer<AudioBufferList>) { self.list = list }
  public var count: Int { Int(list.pointee.mNumberBuffers) }
  public subscript(_ i: Int) -> AudioBuffer {
    (UnsafeMutableRawPointer(list) + MemoryLayout<AudioBufferList>.offset(of: \.mBuffers)!)
      .assumingMemoryBound(to: AudioBuffer.self)[i]
  }
}

public enum AVAudioCommonFormat: UInt {
  case pcmFormatFloat32 = 1
  case pcmFormatInt16 = 3
}

public class AVAudioFormat {
  public let commonFormat: AVAudioCommonFormat
  public let sampleRate: Double
  public let channelCount: AVAudioChannelCount
  public let isInterleaved: Bool
  public init?(
    commonFormat: AVAudioCommonFormat, sampleRate: Double, channels: AVAudioChannelCount,
    interleaved: Bool
  ) {
    self.commonFormat = commonFormat
    self.sampleRate = sampleRate
    channelCount = channels
    isInterleaved = interleaved
  }
}

public class AVAudioPCMBuffer {
  public let format: AVAudioFormat
  public let frameCapacity: AVAudioFrameCount
  public var frameLength: AVAudioFrameCount = 0
  /// The list, with memory for each channel, or for all interleaved.
  public let mutableAudioBufferList: UnsafeMutablePointer<AudioBufferList>
  private let channels: UnsafeMutablePointer<UnsafeMutableRawPointer>

  public init?(pcmFormat: AVAudioFormat, frameCapacity: AVAudioFrameCount) {
    format = pcmFormat
    self.frameCapacity = frameCapacity
    let parts = pcmFormat.isInterleaved ? 1 : Int(pcmFormat.channelCount)
    let size = Int(frameCapacity) * 4 * Int(pcmFormat.channelCount) / parts
    let head = MemoryLayout<AudioBufferList>.offset(of: \.mBuffers)!
    let list = UnsafeMutableRawPointer.allocate(
      byteCount: head + parts * MemoryLayout<AudioBuffer>.stride, alignment: 16)
    mutableAudioBufferList = list.assumingMemoryBound(to: AudioBufferList.self)
    mutableAudioBufferList.pointee.mNumberBuffers = UInt32(parts)
    channels = .allocate(capacity: parts)
    for part in 0..<parts {
      channels[part] = .allocate(byteCount: size, alignment: 16)
      (list + head).assumingMemoryBound(to: AudioBuffer.self)[part] = AudioBuffer(
        mNumberChannels: pcmFormat.channelCount / UInt32(parts), mDataByteSize: UInt32(size),
        mData: channels[part])
    }
  }

  public var floatChannelData: UnsafePointer<UnsafeMutablePointer<Float>>? {
    format.commonFormat != .pcmFormatFloat32
      ? nil
      : UnsafeRawPointer(channels).assumingMemoryBound(to: UnsafeMutablePointer<Float>.self)
  }
  public var int16ChannelData: UnsafePointer<UnsafeMutablePointer<Int16>>? {
    format.commonFormat != .pcmFormatInt16
      ? nil
      : UnsafeRawPointer(channels).assumingMemoryBound(to: UnsafeMutablePointer<Int16>.self)
  }
}

public class AVAudioFile {
  public init(forReading url: URL) throws { fatalError("nothing is read") }
  public var processingFormat: AVAudioFormat { fatalError("nothing is read") }
  public var length: AVAudioFramePosition { 0 }
  public func read(into buffer: AVAudioPCMBuffer) throws {}
}

public class AVAudioNode {}
public class AVAudioMixerNode: AVAudioNode {}

public typealias AVAudioSourceNodeRenderBlock = (
  UnsafeMutablePointer<ObjCBool>, UnsafeRawPointer, AVAudioFrameCount,
  UnsafeMutablePointer<AudioBufferList>
) -> OSStatus

public class AVAudioSourceNode: AVAudioNode {
  public init(format: AVAudioFormat, renderBlock: @escaping AVAudioSourceNodeRenderBlock) {}
}

public class AVAudioEngine {
  public init() {}
  public let mainMixerNode = AVAudioMixerNode()
  public func attach(_ node: AVAudioNode) {}
  public func connect(_ node: AVAudioNode, to other: AVAudioNode, format: AVAudioFormat?) {}
  public func start() throws {}
}
