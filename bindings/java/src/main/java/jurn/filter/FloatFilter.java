package jurn.filter;

import java.nio.FloatBuffer;
import java.nio.ShortBuffer;

/**
 * An FIR or a direct form of up to 201 coefficients on one channel of floats, in double precision
 * and 33 KiB. Take it on the scale of int16: a direct form sets its past outputs below 1e-6 to 0 at
 * the start of each call, which on that scale is nothing and on one of 1.0 is heard. {@link
 * Sections} has no such scale.
 */
public final class FloatFilter extends Processor {
    /**
     * Makes a filter, silent.
     *
     * @param design taps, or a numerator and a denominator, of up to 201 coefficients each
     */
    public FloatFilter(Design design) {
        this(Native.makeRecord(Native.FLOAT_FILTER, 1, design.kind(), design.b(), design.a()));
    }

    private FloatFilter(long address) {
        super(address);
    }

    /** Filters an array in place. */
    public void process(float[] block) {
        process(block, 0, block, 0, block.length);
    }

    /** As {@link ShortProcessor#process(short[], int, short[], int, int)}. */
    public void process(float[] in, int inOffset, float[] out, int outOffset, int frames) {
        checkArrays(in.length, inOffset, out.length, outOffset, frames);
        long address = handle.enter();
        try {
            Native.run(address, in, inOffset, out, outOffset, frames);
        } finally {
            handle.leave();
        }
    }

    /** Filters int16 samples, whose values stay as they are, to floats of that scale. */
    public void process(short[] in, int inOffset, float[] out, int outOffset, int frames) {
        checkArrays(in.length, inOffset, out.length, outOffset, frames);
        long address = handle.enter();
        try {
            Native.run(address, in, inOffset, out, outOffset, frames);
        } finally {
            handle.leave();
        }
    }

    /** As {@link ShortProcessor#process(ShortBuffer, ShortBuffer, int)}. */
    public void process(FloatBuffer in, FloatBuffer out, int frames) {
        checkBuffers(in, in.order(), out, out.order(), frames);
        long address = handle.enter();
        try {
            Native.run(address, in, in.position(), out, out.position(), frames);
        } finally {
            handle.leave();
        }
    }

    /** Filters int16 samples to floats, in buffers that do not overlap. */
    public void process(ShortBuffer in, FloatBuffer out, int frames) {
        checkBuffers(in, in.order(), out, out.order(), frames);
        long address = handle.enter();
        try {
            Native.run(address, in, in.position(), out, out.position(), frames);
        } finally {
            handle.leave();
        }
    }

    /** As {@link Filter#fadeTo}. */
    public void fadeTo(Design design) {
        change(design.kind(), design.b(), design.a(), Native.NO_ROUTES, 1);
    }

    /** As {@link Filter#toBytes}. */
    public byte[] toBytes() {
        return stored();
    }

    /** As {@link Filter#fromBytes}. */
    public static FloatFilter fromBytes(byte[] bytes) {
        return new FloatFilter(Native.restore(Native.FLOAT_FILTER, bytes));
    }
}
