package jurn.filter;

/**
 * Second-order sections in double on up to 64 channels, as equalisers are made of: without latency
 * and for calls of any number of frames, which change no bit.
 *
 * <pre>{@code
 * Sections equaliser = new Sections(Design.equaliser(48000, "LS 90 +4", "PK 3k -4 Q 2"), 48000, 2);
 * equaliser.process(in, out, frames);                                  // on the audio thread
 * equaliser.fadeTo(Design.equaliser(48000, "LS 90 +6"), 4800);         // on any other
 * }</pre>
 */
public final class Sections extends StreamProcessor {
    /**
     * Makes a filter, silent.
     *
     * @param design of the kind SECTIONS, up to 1024
     * @param rate frames a second
     * @param channels 1 to 64, each filtered alike
     */
    public Sections(Design design, int rate, int channels) {
        this(Stream.make(Native.SECTIONS, checked(design), rate, channels));
    }

    private Sections(long address) {
        super(address);
    }

    /** Continues exactly where {@link #toBytes} was called, in another process, too. */
    public static Sections fromBytes(byte[] bytes) {
        return new Sections(Native.restore(Native.SECTIONS, bytes));
    }

    /**
     * Fades to other sections, of any count, as {@link Stream#fadeTo} does.
     *
     * @param frames of the fade, 1 or more
     */
    public void fadeTo(Design design, int frames) {
        change(checked(design).kind(), design.b(), design.a(), Native.NO_ROUTES, frames);
    }

    private static Design checked(Design design) {
        if (design.getKind() != Design.Kind.SECTIONS) {
            throw new IllegalArgumentException(
                    "the design is no sections but " + design + "; Stream runs any design");
        }
        return design;
    }
}
