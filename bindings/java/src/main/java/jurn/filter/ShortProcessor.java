package jurn.filter;

import java.nio.ShortBuffer;

/** An object that filters int16 samples. */
public abstract class ShortProcessor extends Processor {
    ShortProcessor(long address) {
        super(address);
    }

    /**
     * Filters an array in place.
     *
     * @param block whole frames, of an object with as many outputs as inputs
     */
    public final void process(short[] block) {
        process(block, 0, block, 0, framesOf(block.length));
    }

    /**
     * Filters a part of an array.
     *
     * @param in samples; the first is {@code in[inOffset]}
     * @param out receives the result from {@code out[outOffset]} on; may be {@code in}, and the
     *     parts may overlap
     * @param frames 0 or more, a multiple of {@link #getBlock}
     */
    public final void process(short[] in, int inOffset, short[] out, int outOffset, int frames) {
        checkArrays(in.length, inOffset, out.length, outOffset, frames);
        long address = handle.enter();
        try {
            Native.run(address, in, inOffset, out, outOffset, frames);
        } finally {
            handle.leave();
        }
    }

    /**
     * Filters direct buffers of the machine's byte order, from their positions on and without a copy.
     *
     * @param in samples; its position and limit stay
     * @param out receives the result; begins where the input does, or does not overlap it; its
     *     position and limit stay
     * @param frames 0 or more, a multiple of {@link #getBlock}
     */
    public final void process(ShortBuffer in, ShortBuffer out, int frames) {
        checkBuffers(in, in.order(), out, out.order(), frames);
        long address = handle.enter();
        try {
            Native.run(address, in, in.position(), out, out.position(), frames);
        } finally {
            handle.leave();
        }
    }
}
