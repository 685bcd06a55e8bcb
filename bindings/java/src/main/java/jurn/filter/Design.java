package jurn.filter;

import java.util.Arrays;
import java.util.Locale;

/**
 * A filter's coefficients in double precision. A value: it never changes, any thread may have it,
 * and there is nothing to close.
 *
 * <p>The first coefficients belong to the current sample, and feedback is subtracted, as in MATLAB
 * and SciPy: y[n] = b[0] x[n] + b[1] x[n-1] + … - a[1] y[n-1] - …. An a0 other than 1 is divided out.
 */
public final class Design {
    /** What a filter is made of. */
    public enum Kind {
        /** Taps. */
        FIR,
        /** A numerator and a denominator. */
        IIR,
        /** Second-order sections, one after the other. */
        SECTIONS
    }

    private static final Kind[] KINDS = Kind.values();

    private final Kind kind;
    private final double[] b;
    private final double[] a;
    private final int delay;

    private Design(int kind, double[] b, double[] a) {
        this(Native.check(kind, b, a));
    }

    /** From what the library answers: kind, delay and more; b; a; a text. */
    Design(Object[] answer) {
        double[] numbers = (double[]) answer[0];
        kind = KINDS[(int) numbers[0]];
        delay = (int) numbers[1];
        b = (double[]) answer[1];
        a = (double[]) answer[2];
    }

    /** An FIR of these taps. */
    public static Design fir(double... taps) {
        return new Design(Kind.FIR.ordinal(), taps, Native.NONE);
    }

    /** A direct form of a numerator and a denominator. */
    public static Design iir(double[] b, double[] a) {
        return new Design(Kind.IIR.ordinal(), b, a);
    }

    /**
     * Sections.
     *
     * @param rows six numbers of each section, {@code b0 b1 b2 a0 a1 a2}, as SciPy and MATLAB have
     *     them
     */
    public static Design sections(double... rows) {
        if (rows.length % 6 != 0) {
            throw new IllegalArgumentException(
                    "sections take six numbers each, b0 b1 b2 a0 a1 a2; " + rows.length
                            + " are no multiple of 6");
        }
        double[] b = new double[rows.length / 2];
        double[] a = new double[rows.length / 2];
        for (int k = 0; k < rows.length / 6; ++k) {
            System.arraycopy(rows, 6 * k, b, 3 * k, 3);
            System.arraycopy(rows, 6 * k + 3, a, 3 * k, 3);
        }
        return new Design(Kind.SECTIONS.ordinal(), b, a);
    }

    /**
     * An equaliser in words, one filter each: {@code "PK 3k -4 Q 2"}, {@code "HP 80 order 4"},
     * {@code "LS 120 +3"}, with frequencies in Hz and gains in dB.
     *
     * @param rate frames a second of the streams that it is for
     */
    public static Design equaliser(int rate, String... filters) {
        return new Design(Native.words(Native.bytes(String.join("\n", filters)), rate));
    }

    /**
     * Reads a coefficient file: lines of room and headphone correction programs (Preamp, Filter,
     * GraphicEQ), numbers, NumPy's arrays, MATLAB's texts and headers, and more.
     *
     * @param name of the file, for messages
     * @param content its bytes
     * @param rate frames a second of the streams that it is for
     */
    public static Design read(String name, byte[] content, int rate) {
        return new Design(Native.parse(Native.bytes(name), content, rate));
    }

    public Kind getKind() {
        return kind;
    }

    /** Taps or numerator; three numbers of each section. */
    public double[] getNumerator() {
        return b.clone();
    }

    /** Denominator, which begins with 1; three numbers of each section; none of an FIR. */
    public double[] getDenominator() {
        return a.clone();
    }

    /** Frames by which the result is late only because of how the filter is made. */
    public int getDelay() {
        return delay;
    }

    /**
     * What runs of it in double, as in {@link Stream} and {@link Sections}, and what is to be said
     * of that: whether it is stable, how exact, how long it rings.
     *
     * @param rate frames a second
     */
    public Prepared prepare(int rate) {
        return new Prepared(Native.prepare(kind.ordinal(), b, a, rate, false));
    }

    /**
     * What runs of it in 16 bits, as in {@link Filter}: a design that float spoils is mended, by
     * moving gains between sections or making sections of a direct form, and the rest is measured.
     * Takes milliseconds.
     */
    public Prepared prepareForInt16(int rate) {
        return new Prepared(Native.prepare(kind.ordinal(), b, a, rate, true));
    }

    /**
     * The response at some frequencies.
     *
     * @param rate frames a second
     * @param frequencies in Hz
     */
    public Response getResponse(int rate, double... frequencies) {
        double[] radians = new double[frequencies.length];
        for (int i = 0; i < radians.length; ++i) {
            radians[i] = 2.0 * Math.PI * frequencies[i] / rate;
        }
        return new Response(Native.response(kind.ordinal(), b, a, radians));
    }

    /** The largest gain over all frequencies, as a factor; infinite where it has none. */
    public double getPeakGain() {
        return Native.peak(kind.ordinal(), b, a);
    }

    int kind() {
        return kind.ordinal();
    }

    /** Not a copy: nobody here writes to it. */
    double[] b() {
        return b;
    }

    double[] a() {
        return a;
    }

    @Override
    public boolean equals(Object other) {
        return other instanceof Design
                && kind == ((Design) other).kind
                && delay == ((Design) other).delay
                && Arrays.equals(b, ((Design) other).b)
                && Arrays.equals(a, ((Design) other).a);
    }

    @Override
    public int hashCode() {
        return Arrays.hashCode(b) * 31 + Arrays.hashCode(a);
    }

    /** What it is, in words: "12 taps", "2 sections". */
    @Override
    public String toString() {
        return Native.text(Native.describe(kind.ordinal(), b, a));
    }

    /** What a design does to some frequencies. */
    public static final class Response {
        private final double[] values;

        private Response(double[] values) {
            this.values = values;
        }

        /** The gain at frequency {@code i} of those asked for, in dB. */
        public double getGain(int i) {
            return 20.0 * Math.log10(Math.hypot(values[3 * i], values[3 * i + 1]));
        }

        /** The phase there, in degrees from -180 to 180. */
        public double getPhase(int i) {
            return Math.toDegrees(Math.atan2(values[3 * i + 1], values[3 * i]));
        }

        /** The group delay there, in frames. */
        public double getDelay(int i) {
            return values[3 * i + 2];
        }

        @Override
        public String toString() {
            StringBuilder text = new StringBuilder();
            for (int i = 0; 3 * i < values.length; ++i) {
                text.append(String.format(Locale.ROOT, i > 0 ? ", %.2f dB" : "%.2f dB", getGain(i)));
            }
            return text.toString();
        }
    }
}
