package jurn.filter;

import java.nio.Buffer;
import java.nio.ByteOrder;

/**
 * What all objects that filter have in common.
 *
 * <p><b>Frames and channels.</b> A frame is one sample of each channel; arrays and buffers hold
 * frames interleaved, left, right, left, right. Positions and offsets count samples, lengths count
 * frames.
 *
 * <p><b>Memory.</b> Only constructors, {@code fadeTo} and {@code toBytes} allocate, and a call on
 * arrays that is longer than any before it. Direct buffers are filtered where they lie, without a
 * copy; arrays are copied, which costs less than keeping the collector waiting. The native memory
 * is freed by {@link #close}, and at the latest some time after the object has become unreachable.
 *
 * <p><b>Threads.</b> One thread at a time: a call while another thread runs the object throws
 * IllegalStateException. {@code fadeTo} and {@link #close} may be called on any thread at any time;
 * the thread that runs takes the newest coefficients with its next block, without waiting for a
 * lock. No argument may be null.
 */
public abstract class Processor implements AutoCloseable {
    final Handle handle;
    private final int inputs;
    private final int outputs;
    private final int block;

    Processor(long address) {
        handle = new Handle(this, address);
        inputs = Native.number(address, Native.INPUTS);
        outputs = Native.number(address, Native.OUTPUTS);
        block = Native.number(address, Native.BLOCK);
    }

    /** Samples of a frame that comes in. */
    public final int getInputs() {
        return inputs;
    }

    /** Samples of a frame that goes out. */
    public final int getOutputs() {
        return outputs;
    }

    /** Frames that every call is a multiple of; 1 for all but convolutions. */
    public final int getBlock() {
        return block;
    }

    /** Returns to silence; the newest coefficients stay. */
    public final void reset() {
        long address = handle.enter();
        try {
            Native.reset(address);
        } finally {
            handle.leave();
        }
    }

    /** Frees the native memory: at once, or when the call that runs has ended. Idempotent. */
    @Override
    public final void close() {
        handle.close();
    }

    final int number(int which) {
        long address = handle.enter();
        try {
            return Native.number(address, which);
        } finally {
            handle.leave();
        }
    }

    final void change(int kind, double[] b, double[] a, int[] routes, int fade) {
        if (fade < 1) {
            throw new IllegalArgumentException("a fade takes 1 frame or more, not " + fade);
        }
        long address = handle.share();
        try {
            Native.change(address, kind, b, a, routes, fade);
        } finally {
            handle.unshare();
        }
    }

    /** The state, with a checksum. */
    final byte[] stored() {
        long address = handle.enter();
        try {
            return Native.stored(address);
        } finally {
            handle.leave();
        }
    }

    /** Frames of a whole array that is filtered in place. */
    final int framesOf(int length) {
        if (inputs != outputs) {
            throw new IllegalArgumentException(
                    "with " + inputs + " inputs and " + outputs + " outputs nothing is in place");
        }
        if (length % inputs != 0) {
            throw new IllegalArgumentException(
                    length + " samples are no whole frames of " + inputs + " channels");
        }
        return length / inputs;
    }

    final void checkFrames(int frames) {
        if (frames < 0 || frames % block != 0) {
            throw new IllegalArgumentException(
                    frames + " frames; this object takes multiples of " + block);
        }
    }

    static void checkRange(String what, int length, int at, int frames, int channels) {
        if (at < 0 || at > length || (long) frames * channels > length - at) {
            throw new IndexOutOfBoundsException(
                    frames + " frames of " + channels + " channels from " + at + " on are not within "
                            + "the " + length + " samples of the " + what);
        }
    }

    final void checkArrays(int inLength, int inAt, int outLength, int outAt, int frames) {
        checkFrames(frames);
        checkRange("input", inLength, inAt, frames, inputs);
        checkRange("output", outLength, outAt, frames, outputs);
    }

    final void checkBuffers(
            Buffer in, ByteOrder inOrder, Buffer out, ByteOrder outOrder, int frames) {
        checkFrames(frames);
        checkRange("input", in.limit(), in.position(), frames, inputs);
        checkRange("output", out.limit(), out.position(), frames, outputs);
        if (!in.isDirect() || !out.isDirect()) {
            throw new IllegalArgumentException("the buffer is not a direct one; take its array");
        }
        if (inOrder != ByteOrder.nativeOrder() || outOrder != ByteOrder.nativeOrder()) {
            throw new IllegalArgumentException(
                    "the buffer does not have the byte order of this machine; set "
                            + "ByteBuffer.order(ByteOrder.nativeOrder()) before its view");
        }
        if (out.isReadOnly()) {
            throw new java.nio.ReadOnlyBufferException();
        }
    }
}
