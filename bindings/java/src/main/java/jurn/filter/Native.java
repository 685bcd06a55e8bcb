package jurn.filter;

import java.io.IOException;
import java.io.InputStream;
import java.nio.FloatBuffer;
import java.nio.ShortBuffer;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.StandardCopyOption;
import java.util.Locale;

/** The native methods: one table, which the library registers when it is loaded. */
final class Native {
    // Records and streams behind objects.
    static final int FILTER = 0;
    static final int MOVING_SUM = 1;
    static final int FLOAT_FILTER = 2;
    static final int LONG_FILTER = 3;
    static final int SECTIONS = 4;
    static final int STREAM = 5;
    static final int CONVOLUTION = 6;

    // Kinds behind those of designs.
    static final int MEAN = 3;
    static final int ROUTES = 4;

    // What number() tells.
    static final int INPUTS = 0;
    static final int OUTPUTS = 1;
    static final int BLOCK = 2;
    static final int LATENCY = 3;
    static final int RATE = 4;
    static final int TAIL = 5;

    static final double[] NONE = {};
    static final int[] NO_ROUTES = {};

    static {
        load();
    }

    private Native() {}

    /**
     * Loads what the property {@code jurn.library} names; else what the jar holds for this machine;
     * else what the system has, as on Android.
     */
    private static void load() {
        String named = System.getProperty("jurn.library");
        if (named != null) {
            System.load(named);
            return;
        }
        String machine = System.getProperty("os.arch", "").toLowerCase(Locale.ROOT);
        String name = machine.equals("amd64") || machine.equals("x86_64") ? "x86_64" : machine;
        String resource = "/native/linux-" + name + "/libjurn_java.so";
        boolean isLinux = System.getProperty("os.name", "").equals("Linux");
        try (InputStream held = isLinux ? Native.class.getResourceAsStream(resource) : null) {
            if (held == null) {
                System.loadLibrary("jurn_java");
                return;
            }
            Path copy = Files.createTempFile("libjurn_java", ".so");
            try {
                Files.copy(held, copy, StandardCopyOption.REPLACE_EXISTING);
                System.load(copy.toString());
            } finally {
                Files.delete(copy); // what is loaded stays
            }
        } catch (IOException e) {
            throw new UnsatisfiedLinkError("the library " + resource + " cannot be copied: " + e);
        }
    }

    /** Called by the library for what it refuses. */
    static IllegalArgumentException refusal(byte[] sentence) {
        return new IllegalArgumentException(text(sentence));
    }

    static String text(byte[] bytes) {
        return new String(bytes, StandardCharsets.UTF_8);
    }

    static byte[] bytes(String text) {
        return text.getBytes(StandardCharsets.UTF_8);
    }

    static native long makeRecord(int what, int channels, int kind, double[] b, double[] a);

    static native long makeStream(
            int what, int[] shape, int kind, double[] b, double[] a, int[] routes);

    static native long restore(int what, byte[] stored);

    static native byte[] stored(long object);

    static native void free(long object);

    static native void change(
            long object, int kind, double[] b, double[] a, int[] routes, int fade);

    static native void reset(long object);

    static native int number(long object, int which);

    static native int push(long object, short sample);

    static native void run(long object, short[] in, int inAt, short[] out, int outAt, int frames);

    static native void run(long object, float[] in, int inAt, float[] out, int outAt, int frames);

    static native void run(long object, short[] in, int inAt, float[] out, int outAt, int frames);

    static native void run(
            long object, ShortBuffer in, int inAt, ShortBuffer out, int outAt, int frames);

    static native void run(
            long object, FloatBuffer in, int inAt, FloatBuffer out, int outAt, int frames);

    static native void run(
            long object, ShortBuffer in, int inAt, FloatBuffer out, int outAt, int frames);

    static native Object[] check(int kind, double[] b, double[] a);

    static native Object[] parse(byte[] name, byte[] content, int rate);

    static native Object[] words(byte[] lines, int rate);

    static native Object[] prepare(int kind, double[] b, double[] a, int rate, boolean inInt16);

    static native double[] response(int kind, double[] b, double[] a, double[] frequencies);

    static native double peak(int kind, double[] b, double[] a);

    static native byte[] describe(int kind, double[] b, double[] a);

    static native byte[] version();
}
