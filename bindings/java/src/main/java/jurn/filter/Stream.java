package jurn.filter;

/**
 * Any design on up to 64 channels, in double and without latency, with fades to any other one. Calls
 * may have any number of frames. FIRs run tap by tap; {@link Convolution} takes long ones at less
 * cost.
 *
 * <pre>{@code
 * Design correction = Design.read("ParametricEQ.txt", bytes, 48000);
 * try (Stream stream = new Stream(correction, 48000, 2)) {
 *     stream.process(block);                                  // on the audio thread
 *     stream.fadeTo(Design.equaliser(48000, "LS 90 +4"), 4800);  // on any other
 * }
 * }</pre>
 */
public final class Stream extends StreamProcessor {
    /**
     * Makes a stream, silent.
     *
     * @param rate frames a second
     * @param channels 1 to 64, each filtered alike
     */
    public Stream(Design design, int rate, int channels) {
        this(make(Native.STREAM, design, rate, channels));
    }

    private Stream(long address) {
        super(address);
    }

    static long make(int what, Design design, int rate, int channels) {
        int[] shape = {rate, channels, channels, 1, 1};
        return Native.makeStream(
                what, shape, design.kind(), design.b(), design.a(), Native.NO_ROUTES);
    }

    /**
     * The mean of the last samples of each channel.
     *
     * @param length samples, 1 to 16,777,216
     */
    public static Stream average(int length, int rate, int channels) {
        int[] shape = {rate, channels, channels, 1, 1};
        double[] lengths = {length};
        return new Stream(
                Native.makeStream(
                        Native.STREAM, shape, Native.MEAN, lengths, Native.NONE, Native.NO_ROUTES));
    }

    /** Continues exactly where {@link #toBytes} was called, in another process, too. */
    public static Stream fromBytes(byte[] bytes) {
        return new Stream(Native.restore(Native.STREAM, bytes));
    }

    /**
     * Goes over to another design of any kind. The new filter first hears the past, then fades in:
     * no step and no hole, also during a fade. Any thread, at any time; the newest wins.
     *
     * @param frames of the fade, 1 or more
     */
    public void fadeTo(Design design, int frames) {
        change(design.kind(), design.b(), design.a(), Native.NO_ROUTES, frames);
    }
}
