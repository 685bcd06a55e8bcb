package jurn.filter;

/**
 * The mean of the last samples of one channel of int16 samples, by block or by sample, in 528 bytes
 * and a time that does not depend on its length. Results are truncated toward zero.
 */
public final class MovingSum extends ShortProcessor {
    /**
     * Makes a mean, silent.
     *
     * @param length samples, 1 to 256
     */
    public MovingSum(int length) {
        this(Native.makeRecord(
                Native.MOVING_SUM, 1, Native.MEAN, new double[] {length}, Native.NONE));
    }

    private MovingSum(long address) {
        super(address);
    }

    /** Pushes one sample and returns the sum of the last ones, not divided. */
    public int push(short sample) {
        long address = handle.enter();
        try {
            return Native.push(address, sample);
        } finally {
            handle.leave();
        }
    }

    /** As {@link Filter#toBytes}. */
    public byte[] toBytes() {
        return stored();
    }

    /** As {@link Filter#fromBytes}. */
    public static MovingSum fromBytes(byte[] bytes) {
        return new MovingSum(Native.restore(Native.MOVING_SUM, bytes));
    }
}
