package jurn.filter;

/**
 * Up to 32,767 taps on one or two channels of int16 samples, in the time domain without latency or
 * by FFT at the least cost. An object takes 5 MB whatever its taps; {@link Filter} and {@link
 * Convolution} take less memory where they will do.
 */
public final class LongFilter extends ShortProcessor {
    /** How the taps run; FFT kinds take up to 8192 taps, the others 32,767. */
    public enum Kind {
        /** In the time domain, the same taps on each channel. */
        TIME_DOMAIN(-1),
        /** By FFT; in stereo taps of its own for each channel, and a fade. */
        FFT(-2),
        /** Stereo in the time domain, taps of its own for each channel, and a fade. */
        TWO_FILTERS(-3),
        /** By FFT, both outputs from the left input of two. */
        FFT_LEFT_ONLY(-4),
        /** By FFT, one input to two outputs, and a fade. */
        FFT_MONO_TO_STEREO(-5),
        /** In the time domain, one input to two outputs, and a fade. */
        MONO_TO_STEREO(-6),
        /** By FFT, the right input to the left output and the other way round. */
        FFT_CROSSED(-7);

        final int number;

        Kind(int number) {
            this.number = number;
        }
    }

    /**
     * Makes a filter, silent.
     *
     * @param kind how the taps run
     * @param inputs 1, or 2 for stereo; not every kind has both
     * @param left taps of the left or only filter
     * @param right taps of the right one, of kinds with two; empty for the same as on the left
     */
    public LongFilter(Kind kind, int inputs, double[] left, double... right) {
        this(Native.makeRecord(Native.LONG_FILTER, inputs, kind.number, left, right));
    }

    private LongFilter(long address) {
        super(address);
    }

    /**
     * Goes over to other taps within the next block. Kinds that have a fade of their own, and they
     * alone but {@link Kind#TIME_DOMAIN}, take as many taps as before. Any thread, at any time.
     */
    public void fadeTo(double[] left, double... right) {
        change(0, left, right, Native.NO_ROUTES, 1);
    }

    /** Frames by which the result is late: 0 in the time domain. */
    public int getLatency() {
        return number(Native.LATENCY);
    }

    /** As {@link Filter#toBytes}; 5 MB. */
    public byte[] toBytes() {
        return stored();
    }

    /** As {@link Filter#fromBytes}. */
    public static LongFilter fromBytes(byte[] bytes) {
        return new LongFilter(Native.restore(Native.LONG_FILTER, bytes));
    }
}
