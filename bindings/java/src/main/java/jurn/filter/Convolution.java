package jurn.filter;

import java.util.List;

/**
 * Convolution with impulse responses of up to 2^20 taps between up to 16 inputs and outputs, without
 * latency: rooms, loudspeaker and headphone correction, HRTFs. Its spectra and sums are floats, with
 * an error 120 dB and more below the result's loudest parts.
 *
 * <p>Every call is a multiple of {@link #getBlock} frames; short blocks cost more.
 */
public final class Convolution extends StreamProcessor {
    /** A way from an input to an output, through taps. Several may share an input or an output. */
    public static final class Route {
        final int input;
        final int output;
        final double[] taps;

        /**
         * Makes a route.
         *
         * @param input from 0
         * @param output from 0
         * @param taps the first of the current sample
         */
        public Route(int input, int output, double... taps) {
            this.input = input;
            this.output = output;
            this.taps = taps.clone();
        }
    }

    /**
     * Makes a convolution, silent.
     *
     * @param rate frames a second
     * @param inputs 1 to 16
     * @param outputs 1 to 16
     * @param block frames that every call is a multiple of, 1 to 4096; a power of two is the fastest
     * @param longest taps of the longest response that it will have, 1 to 1,048,576
     * @param routes up to 256
     */
    public Convolution(
            int rate, int inputs, int outputs, int block, int longest, List<Route> routes) {
        this(Native.makeStream(
                Native.CONVOLUTION, new int[] {rate, inputs, outputs, block, longest},
                Native.ROUTES, taps(routes), Native.NONE, shapes(routes)));
    }

    private Convolution(long address) {
        super(address);
    }

    /** Continues exactly where {@link #toBytes} was called, in another process, too. */
    public static Convolution fromBytes(byte[] bytes) {
        return new Convolution(Native.restore(Native.CONVOLUTION, bytes));
    }

    /**
     * Fades to another response, as {@link Stream#fadeTo} does, within a block once it has heard
     * the past. Transforms the taps, which takes long, on the thread that calls.
     */
    public void fadeTo(List<Route> routes) {
        change(Native.ROUTES, taps(routes), Native.NONE, shapes(routes), getBlock());
    }

    private static double[] taps(List<Route> routes) {
        int count = 0;
        for (Route route : routes) {
            count = Math.addExact(count, route.taps.length);
        }
        double[] all = new double[count];
        int at = 0;
        for (Route route : routes) {
            System.arraycopy(route.taps, 0, all, at, route.taps.length);
            at += route.taps.length;
        }
        return all;
    }

    private static int[] shapes(List<Route> routes) {
        int[] all = new int[3 * routes.size()];
        int at = 0;
        for (Route route : routes) {
            all[at++] = route.input;
            all[at++] = route.output;
            all[at++] = route.taps.length;
        }
        return all;
    }
}
