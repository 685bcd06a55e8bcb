package jurn.filter;

/**
 * An FIR, a direct form, sections or an average on one or two channels of int16 samples, in single
 * precision: the least memory, 55 KiB, and the bits of a device that runs the 16-bit records.
 *
 * <p>Coefficients run as they are, rounded to float. A design that float spoils is mended by {@link
 * Design#prepareForInt16}, whose result tells what it found:
 *
 * <pre>{@code
 * Design presence = Design.equaliser(48000, "PK 3k -4 Q 2");
 * try (Filter filter = new Filter(presence.prepareForInt16(48000).getDesign(), 2)) {
 *     filter.process(block);
 * }
 * }</pre>
 *
 * <p>Results are truncated toward zero and limited. A direct form sets its past outputs below 1e-6
 * to 0 at the start of each call, so its bits follow from the lengths of the calls; those of the
 * tool {@code jurn-filter} are those of calls of 512 frames. Other kinds do not depend on them.
 */
public final class Filter extends ShortProcessor {
    /**
     * Makes a filter, silent.
     *
     * @param design up to 1250 taps or coefficients, or 416 sections
     * @param channels 1, or 2 for stereo
     */
    public Filter(Design design, int channels) {
        this(Native.makeRecord(Native.FILTER, channels, design.kind(), design.b(), design.a()));
    }

    private Filter(long address) {
        super(address);
    }

    /**
     * The mean of the last samples of one channel.
     *
     * @param length samples, 1 to 2156
     */
    public static Filter average(int length) {
        double[] lengths = {length};
        return new Filter(
                Native.makeRecord(Native.FILTER, 1, Native.MEAN, lengths, Native.NONE));
    }

    /**
     * Goes over to other coefficients of the same kind, of any count: the next block begins wholly
     * with the old ones and ends wholly with the new ones, which go on with the same past. Any
     * thread, at any time; the newest wins.
     */
    public void fadeTo(Design design) {
        change(design.kind(), design.b(), design.a(), Native.NO_ROUTES, 1);
    }

    /** The whole state, checked when it is restored; for machines of the same byte order. */
    public byte[] toBytes() {
        return stored();
    }

    /** Continues exactly where {@link #toBytes} was called, in another process, too. */
    public static Filter fromBytes(byte[] bytes) {
        return new Filter(Native.restore(Native.FILTER, bytes));
    }
}
