package jurn.filter;

import java.util.ArrayList;
import java.util.Collections;
import java.util.List;

/** What runs of a design, and what was found on the way. A value. */
public final class Prepared {
    /** What runs a filter. */
    public enum Runs {
        /** The 16-bit records: {@link Filter}. */
        RECORDS,
        /** Sections in double. */
        SECTIONS,
        /** Tap by tap in double. */
        FIR,
        /** By transforms, in float. */
        CONVOLUTION,
        /** Numerator and feedback in double. */
        DIRECT_FORM
    }

    private static final Runs[] RUNS = Runs.values();

    private final Design design;
    private final double[] numbers;
    private final List<String> notices = new ArrayList<>();
    private final List<String> warnings = new ArrayList<>();

    Prepared(Object[] answer) {
        design = new Design(answer);
        numbers = (double[]) answer[0];
        for (String line : Native.text((byte[]) answer[3]).split("\n")) {
            if (!line.isEmpty()) {
                (line.charAt(0) == '!' ? warnings : notices).add(line.substring(1));
            }
        }
    }

    /** Exactly what runs; a direct form may have become sections. */
    public Design getDesign() {
        return design;
    }

    public Runs getRuns() {
        return RUNS[(int) numbers[2]];
    }

    public boolean isStable() {
        return numbers[3] != 0.0;
    }

    /** Of the outermost pole of what runs. */
    public double getPoleRadius() {
        return numbers[4];
    }

    /** The largest difference to the design in exact arithmetic, in steps of 16 bits. */
    public double getExpectedError() {
        return numbers[5];
    }

    /** Frames that it rings on, as far as that is heard; 10 seconds or an FIR's taps at most. */
    public int getTail() {
        return (int) numbers[6];
    }

    /** What was done, which changes nothing that is heard. */
    public List<String> getNotices() {
        return Collections.unmodifiableList(notices);
    }

    /** What differs from the design: unstable, or more than a step of 16 bits off. */
    public List<String> getWarnings() {
        return Collections.unmodifiableList(warnings);
    }
}
