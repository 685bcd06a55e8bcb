package jurn.filter;

import java.nio.FloatBuffer;

/**
 * An object that filters int16 and float samples, in double or close to it. Floats have a full scale
 * of 1.0 and are not limited; int16 results are rounded to the nearest, ties to even, and limited. A
 * sample that is infinite or no number counts as 0.
 */
public abstract class StreamProcessor extends ShortProcessor {
    StreamProcessor(long address) {
        super(address);
    }

    /** As {@link #process(short[])}. */
    public final void process(float[] block) {
        process(block, 0, block, 0, framesOf(block.length));
    }

    /** As {@link #process(short[], int, short[], int, int)}. */
    public final void process(float[] in, int inOffset, float[] out, int outOffset, int frames) {
        checkArrays(in.length, inOffset, out.length, outOffset, frames);
        long address = handle.enter();
        try {
            Native.run(address, in, inOffset, out, outOffset, frames);
        } finally {
            handle.leave();
        }
    }

    /** As {@link #process(java.nio.ShortBuffer, java.nio.ShortBuffer, int)}. */
    public final void process(FloatBuffer in, FloatBuffer out, int frames) {
        checkBuffers(in, in.order(), out, out.order(), frames);
        long address = handle.enter();
        try {
            Native.run(address, in, in.position(), out, out.position(), frames);
        } finally {
            handle.leave();
        }
    }

    /** Frames a second. */
    public final int getRate() {
        return number(Native.RATE);
    }

    /**
     * The whole state, within a fade, too, checked when it is restored. For the same version of this
     * package on a machine of the same kind. A Stream or Sections of two channels takes up to 256
     * KiB, a Convolution the taps and up to 2 MiB an input, 8 MiB beyond 262,144 taps.
     */
    public final byte[] toBytes() {
        return stored();
    }

    /** Frames that the filter rings on after its input has ended, as far as that is heard. */
    public final int getTail() {
        return number(Native.TAIL);
    }
}
