package jurn.filter;

import static org.junit.Assert.assertArrayEquals;
import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertFalse;
import static org.junit.Assert.assertNotEquals;
import static org.junit.Assert.assertThrows;
import static org.junit.Assert.assertTrue;

import java.io.File;
import java.io.IOException;
import java.lang.management.ManagementFactory;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.nio.FloatBuffer;
import java.nio.ShortBuffer;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.Paths;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.Collections;
import java.util.List;
import java.util.Random;
import java.util.concurrent.ExecutorService;
import java.util.concurrent.Executors;
import java.util.concurrent.Future;
import org.junit.BeforeClass;
import org.junit.Rule;
import org.junit.Test;
import org.junit.rules.TemporaryFolder;

/** The objects against the tool, and against what users do to them. */
public class FilterTest {
    private static final String TOOL = System.getProperty("jurn.tool");
    private static final int RATE = 48000;
    private static short[] speech;

    @Rule public TemporaryFolder folder = new TemporaryFolder();

    @BeforeClass
    public static void readSpeech() throws IOException {
        speech = samplesOf(Paths.get("/usr/share/sounds/alsa/Front_Center.wav"));
    }

    /** Of a WAV with a head of 44 bytes. */
    private static short[] samplesOf(Path wav) throws IOException {
        ByteBuffer bytes = ByteBuffer.wrap(Files.readAllBytes(wav)).order(ByteOrder.LITTLE_ENDIAN);
        bytes.position(44);
        short[] samples = new short[bytes.remaining() / 2];
        bytes.asShortBuffer().get(samples);
        return samples;
    }

    /** What the tool makes of the speech. */
    private short[] byTool(String command, String... arguments) throws Exception {
        File out = new File(folder.getRoot(), "tool.wav");
        List<String> all = new ArrayList<>(Arrays.asList(
                TOOL, command, "/usr/share/sounds/alsa/Front_Center.wav", out.getPath()));
        all.addAll(Arrays.asList(arguments));
        all.addAll(Arrays.asList("--overwrite", "-q"));
        Process tool = new ProcessBuilder(all).inheritIO().start();
        assertEquals(all.toString(), 0, tool.waitFor());
        return samplesOf(out.toPath());
    }

    private String file(String name, String content) throws IOException {
        File file = new File(folder.getRoot(), name);
        Files.write(file.toPath(), content.getBytes(StandardCharsets.UTF_8));
        return file.getPath();
    }

    /** The speech in calls of so many frames, 0 for calls of changing lengths. */
    private static short[] byJava(ShortProcessor object, int block) {
        short[] out = new short[speech.length];
        int[] lengths = {1, 480, 77, 256, 1000, 13};
        for (int done = 0, call = 0; done < out.length; ++call) {
            int wanted = block > 0 ? block : lengths[call % lengths.length];
            int frames = Math.min(wanted, out.length - done);
            object.process(speech, done, out, done, frames);
            done += frames;
        }
        return out;
    }

    private static Convolution convolution(double[] taps) {
        return new Convolution(RATE, 1, 1, 256, taps.length,
                Collections.singletonList(new Convolution.Route(0, 0, taps)));
    }

    private static final String TEN_TAPS = "0.1 0.2 0.3 -0.2 0.1 0.05 0 0.02 0.01 0.3\n";
    private static final double[] TAPS = {0.1, 0.2, 0.3, -0.2, 0.1, 0.05, 0, 0.02, 0.01, 0.3};
    private static final double[] B = {0.2, 0.1, 0.05}, A = {1.0, -1.2, 0.5};
    private static final String BA = "0.2 0.1 0.05\n1 -1.2 0.5\n";

    @Test
    public void everyKindHasTheToolsBits() throws Exception {
        Design equaliser = Design.equaliser(RATE, "HP 80 order 4", "PK 3k -4 Q 2");
        String taps = file("taps.txt", TEN_TAPS), ba = file("ba.txt", BA);
        assertEquals(Design.fir(TAPS), Design.read("t", Files.readAllBytes(Paths.get(taps)), RATE));

        // AutoEq's file for a headphone, as a phone would read it.
        String text = "Preamp: -6.4 dB\nFilter 1: ON LSC Fc 105 Hz Gain 5.5 dB Q 0.70\n"
                + "Filter 2: ON PK Fc 212 Hz Gain -2.9 dB Q 0.61\n";
        String headphone = file("ParametricEQ.txt", text);
        Design correction = Design.read(headphone, text.getBytes(StandardCharsets.UTF_8), RATE);
        assertEquals(Design.Kind.SECTIONS, correction.getKind());
        assertTrue(correction.prepare(RATE).getWarnings().isEmpty());
        assertEquals(-0.9, correction.getResponse(RATE, 5).getGain(0), 0.01);

        // In double, in calls of any lengths.
        short[] corrected = byTool("eq", "-c", headphone);
        assertArrayEquals(corrected, byJava(new Sections(correction, RATE, 1), 0));
        assertArrayEquals(corrected, byJava(new Stream(correction, RATE, 1), 0));
        assertArrayEquals(byTool("fir", "-c", taps, "--time-domain"),
                byJava(new Stream(Design.fir(TAPS), RATE, 1), 0));
        assertArrayEquals(byTool("iir", "-c", ba), byJava(new Stream(Design.iir(B, A), RATE, 1), 0));
        assertArrayEquals(
                byTool("average", "--length", "30"), byJava(Stream.average(30, RATE, 1), 0));

        // As on a device.
        String[] device = {"--precision", "int16"};
        assertArrayEquals(byTool("eq", "HP 80 order 4", "PK 3k -4 Q 2", device[0], device[1]),
                byJava(new Filter(equaliser.prepareForInt16(RATE).getDesign(), 1), 0));
        assertArrayEquals(byTool("fir", "-c", taps, device[0], device[1]),
                byJava(new Filter(Design.fir(TAPS), 1), 0));
        assertArrayEquals(byTool("iir", "-c", ba, device[0], device[1]),
                byJava(new Filter(Design.iir(B, A), 1), 512));
        short[] average = byTool("average", "--length", "30", device[0], device[1]);
        assertArrayEquals(average, byJava(Filter.average(30), 0));
        assertArrayEquals(average, byJava(new MovingSum(30), 0));
        assertArrayEquals(byTool("fir", "-c", taps, device[0], device[1]),
                byJava(new LongFilter(LongFilter.Kind.TIME_DOMAIN, 1, TAPS), 0));

        // Rooms, whose last block the tool fills with silence.
        Convolution room = convolution(TAPS);
        short[] expected = byTool("convolve", "--ir", taps, "--block", "256");
        int whole = speech.length / 256 * 256;
        short[] convolved = new short[whole];
        room.process(speech, 0, convolved, 0, whole);
        assertArrayEquals(Arrays.copyOf(expected, whole), convolved);
    }

    @Test
    public void arraysBuffersAndFloatsAgree() {
        Design design = Design.equaliser(RATE, "PK 1k -6 Q 1");
        int frames = speech.length / 2;
        short[] expected = new short[2 * frames];
        new Sections(design, RATE, 2).process(speech, 0, expected, 0, frames);

        ByteBuffer memory = ByteBuffer.allocateDirect(4 * frames + 8).order(ByteOrder.nativeOrder());
        ShortBuffer samples = memory.asShortBuffer();
        samples.put(speech, 0, 2 * frames).flip();
        new Sections(design, RATE, 2).process(samples, samples, frames); // in place
        short[] direct = new short[2 * frames];
        samples.get(direct);
        assertArrayEquals(expected, direct);

        // A full scale of 1: rounded they are the same samples.
        ByteBuffer wide = ByteBuffer.allocateDirect(8 * frames).order(ByteOrder.nativeOrder());
        FloatBuffer floats = wide.asFloatBuffer();
        float[] array = new float[2 * frames];
        for (int i = 0; i < array.length; ++i) {
            array[i] = speech[i] / 32768.0f;
        }
        floats.put(array).flip();
        new Stream(design, RATE, 2).process(floats, floats, frames);
        new Stream(design, RATE, 2).process(array);
        for (int i = 0; i < array.length; ++i) {
            assertEquals(array[i], floats.get(i), 0.0f);
            assertEquals(expected[i], Math.rint(array[i] * 32768.0), 1.0);
        }

        // One float channel, of int16 and of floats of that scale.
        float[] of16 = new float[1000], ofFloats = new float[1000];
        for (int i = 0; i < ofFloats.length; ++i) {
            ofFloats[i] = speech[i];
        }
        new FloatFilter(Design.iir(B, A)).process(speech, 0, of16, 0, 1000);
        new FloatFilter(Design.iir(B, A)).process(ofFloats, 0, ofFloats, 0, 500);
        assertArrayEquals(Arrays.copyOf(of16, 500), Arrays.copyOf(ofFloats, 500), 0.0f);
    }

    @Test
    public void fadesLeadToTheNewFilterAndStatesContinue() {
        Design first = Design.fir(1.0), second = Design.fir(0.0, 0.5, 0.25);
        short[] block = new short[960];
        Arrays.fill(block, (short) 10000);
        Filter of16 = new Filter(first, 1);
        Stream inDouble = new Stream(first, RATE, 1);
        LongFilter taps = new LongFilter(LongFilter.Kind.TIME_DOMAIN, 1, new double[] {1.0});
        ShortProcessor[] objects = {of16, inDouble, taps};
        for (ShortProcessor object : objects) object.process(block);
        of16.fadeTo(second);
        inDouble.fadeTo(second, 960);
        taps.fadeTo(second.getNumerator());
        for (ShortProcessor object : objects) {
            short[] out = block.clone();
            object.process(out);
            assertEquals(10000, out[0]);
            for (int i = 1; i < out.length; ++i) {
                assertTrue(out[i] <= out[i - 1] && out[i - 1] - out[i] < 20);
            }
            assertEquals(7500, out[959], 8);
        }

        Filter filter = new Filter(Design.iir(B, A), 1);
        filter.process(speech, 0, new short[700], 0, 700);
        filter.fadeTo(Design.iir(A, A));
        Filter twin = Filter.fromBytes(filter.toBytes());
        MovingSum sum = new MovingSum(7);
        sum.process(speech, 0, new short[99], 0, 99);
        LongFilter room = new LongFilter(LongFilter.Kind.FFT, 2, TAPS);
        room.process(speech, 0, new short[2000], 0, 1000);
        // Streams within a fade, which a twin completes, and from which it fades on.
        Stream stream = new Stream(Design.equaliser(RATE, "PK 1k -6 Q 1"), RATE, 2);
        stream.process(speech, 0, new short[2000], 0, 1000);
        stream.fadeTo(Design.fir(TAPS), 4000);
        Sections sections = new Sections(Design.equaliser(RATE, "LS 90 +4"), RATE, 1);
        sections.process(speech, 0, new short[999], 0, 999);
        Convolution hall = convolution(TAPS);
        hall.process(speech, 0, new short[512], 0, 512);
        hall.fadeTo(Collections.singletonList(new Convolution.Route(0, 0, B)));
        Stream streams = Stream.fromBytes(stream.toBytes());
        assertEquals(2, streams.getOutputs());
        assertEquals(RATE, streams.getRate());
        for (ShortProcessor[] pair : new ShortProcessor[][] {
            {filter, twin}, {sum, MovingSum.fromBytes(sum.toBytes())},
            {room, LongFilter.fromBytes(room.toBytes())}, {stream, streams},
            {sections, Sections.fromBytes(sections.toBytes())},
            {hall, Convolution.fromBytes(hall.toBytes())}
        }) {
            for (int call = 0; call < 2; ++call) {
                short[] x = Arrays.copyOfRange(speech, 5000, 7048), y = x.clone();
                pair[0].process(x);
                pair[1].process(y);
                assertArrayEquals(x, y);
                if (pair[0] instanceof Stream) {
                    for (ShortProcessor each : pair) ((Stream) each).fadeTo(Design.iir(B, A), 99);
                }
            }
        }
        byte[] altered = filter.toBytes();
        altered[1000] ^= 4;
        assertThrows(IllegalArgumentException.class, () -> Filter.fromBytes(altered));
        assertThrows(IllegalArgumentException.class, () -> MovingSum.fromBytes(filter.toBytes()));
        refuses("holds stream", () -> Convolution.fromBytes(stream.toBytes()));
        refuses("holds convolution", () -> Stream.fromBytes(hall.toBytes()));
        refuses("no sections", () -> Sections.fromBytes(filter.toBytes()));
    }

    private static void refuses(String sentence, Runnable call) {
        Exception e = assertThrows(RuntimeException.class, call::run);
        assertTrue(e.toString(), e.getMessage().contains(sentence));
    }

    @Test
    public void whatCannotBeIsRefusedInASentence() {
        refuses("no coefficients", () -> Design.fir());
        refuses("no number", () -> Design.fir(Double.NaN));
        refuses("a0 is 0", () -> Design.iir(B, new double[] {0.0, 1.0}));
        refuses("6", () -> Design.sections(1.0, 2.0));
        refuses("Straße", () -> Design.read("Straße \uD83C\uDFA7", "Filter: x".getBytes(), RATE));
        refuses("1250", () -> new Filter(Design.fir(new double[1251]), 1));
        refuses("1 or 2", () -> new Filter(Design.fir(1.0), 3));
        refuses("beyond", () -> new Filter(Design.fir(1e300), 1));
        refuses("1 to 256", () -> new MovingSum(257));
        refuses("no sections", () -> new Sections(Design.fir(1.0), RATE, 1));
        refuses("does not exist", () -> new LongFilter(LongFilter.Kind.TWO_FILTERS, 1, TAPS));
        refuses("input 1", () -> new Convolution(RATE, 1, 1, 64, 9,
                Collections.singletonList(new Convolution.Route(1, 0, 1.0))));
        Filter filter = new Filter(Design.fir(1.0), 2);
        refuses("not within", () -> filter.process(speech, 0, new short[9], 0, 5));
        refuses("whole frames", () -> filter.process(new short[3]));
        refuses("own kind", () -> filter.fadeTo(Design.iir(B, A)));
        ShortBuffer heap = ShortBuffer.allocate(8);
        refuses("direct", () -> filter.process(heap, heap, 1));
        ShortBuffer swapped = ByteBuffer.allocateDirect(64).order(ByteOrder.BIG_ENDIAN).asShortBuffer();
        refuses("byte order", () -> filter.process(swapped, swapped, 1));
        ShortBuffer direct =
                ByteBuffer.allocateDirect(64).order(ByteOrder.nativeOrder()).asShortBuffer();
        ShortBuffer later = direct.duplicate();
        later.position(2);
        refuses("overlap", () -> filter.process(direct, later, 3));
        filter.close();
        filter.close();
        refuses("closed", () -> filter.process(new short[2]));
    }

    /** Objects of one kind after the other, and calls with anything: what is thrown is Java's. */
    @Test
    public void randomCallsNeverCrash() {
        Random random = new Random(1);
        List<Processor> objects = new ArrayList<>();
        int refused = 0, done = 0;
        ByteBuffer memory = ByteBuffer.allocateDirect(4096).order(ByteOrder.nativeOrder());
        for (int i = 0; i < 20000; ++i) {
            int n = random.nextInt(40) - 4, at = random.nextInt(40) - 4;
            short[] shorts = new short[random.nextInt(100)], others = new short[random.nextInt(100)];
            try {
                if (objects.size() < 4) objects.add(randomObject(random));
                Processor object = objects.get(random.nextInt(objects.size()));
                switch (random.nextInt(10)) {
                    case 0:
                        objects.remove(object);
                        if (random.nextBoolean()) object.close();
                        break;
                    case 1:
                        object.reset();
                        break;
                    case 2:
                        if (object instanceof Filter) ((Filter) object).fadeTo(randomDesign(random));
                        if (object instanceof Stream) ((Stream) object).fadeTo(randomDesign(random), n);
                        if (object instanceof LongFilter) ((LongFilter) object).fadeTo(TAPS);
                        break;
                    case 3:
                        byte[] bytes = object instanceof Filter ? ((Filter) object).toBytes()
                                : object instanceof Stream ? ((Stream) object).toBytes() : new byte[0];
                        if (bytes.length > 0 && random.nextBoolean()) bytes[random.nextInt(bytes.length)] ^= 1;
                        objects.add(object instanceof Filter
                                ? Filter.fromBytes(bytes) : Stream.fromBytes(bytes));
                        break;
                    case 4:
                        if (object instanceof StreamProcessor) {
                            FloatBuffer in = memory.asFloatBuffer(), out = memory.asFloatBuffer();
                            in.position(random.nextInt(20));
                            out.position(random.nextInt(20));
                            ((StreamProcessor) object).process(in, out, n);
                        }
                        break;
                    default:
                        if (object instanceof ShortProcessor)
                            ((ShortProcessor) object).process(shorts, at, others, n, random.nextInt(99));
                        else
                            ((FloatFilter) object).process(shorts, at, new float[99], n, n);
                }
                ++done;
            } catch (IllegalArgumentException | IllegalStateException | IndexOutOfBoundsException e) {
                assertFalse(e.getMessage().isEmpty());
                ++refused;
            }
        }
        assertTrue(done + " done, " + refused + " refused", done > 2000 && refused > 2000);
    }

    private static Design randomDesign(Random random) {
        double[] numbers = random.doubles(random.nextInt(30), -1.0, 1.0).toArray();
        if (random.nextInt(50) == 0) numbers[0] = Double.POSITIVE_INFINITY;
        double[] a = {1.0, numbers.length > 0 ? 0.9 * numbers[0] : 0.0};
        switch (random.nextInt(3)) {
            case 0:
                return Design.fir(numbers);
            case 1:
                return Design.iir(numbers, a);
            default:
                return Design.sections(1.0, 0.5, 0.1, 1.0, 0.9 * random.nextDouble(), 0.1);
        }
    }

    private static Processor randomObject(Random random) {
        int n = random.nextInt(6) - 1;
        switch (random.nextInt(n == 1 ? 7 : 6)) {
            case 0:
                return new Filter(randomDesign(random), n);
            case 1:
                return new MovingSum(random.nextInt(300) - 20);
            case 2:
                return new FloatFilter(randomDesign(random));
            case 3:
                return new Stream(randomDesign(random), RATE, n);
            case 4:
                return new Sections(randomDesign(random), RATE, n);
            case 5:
                return new Convolution(RATE, n, 2, 1 << n, 20, Collections.singletonList(
                        new Convolution.Route(random.nextInt(3) - 1, 1, TAPS)));
            default:
                LongFilter.Kind[] kinds = LongFilter.Kind.values();
                return new LongFilter(kinds[random.nextInt(kinds.length)], n, TAPS);
        }
    }

    @Test
    public void thousandObjectsOnEightThreadsAndFadesFromOthers() throws Exception {
        Design one = Design.equaliser(RATE, "PK 1k 6 Q 2"), other = Design.equaliser(RATE, "LS 90 3");
        short[] expected = new short[4800];
        new Stream(one, RATE, 2).process(speech, 20000, expected, 0, 2400);
        Stream shared = new Stream(one, RATE, 1);
        Filter of16 = new Filter(Design.fir(TAPS), 1);
        ExecutorService threads = Executors.newFixedThreadPool(8);
        List<Future<?>> all = new ArrayList<>();
        for (int i = 0; i < 1000; ++i) {
            int number = i;
            all.add(threads.submit(() -> {
                shared.fadeTo(number % 2 == 0 ? other : one, 100);
                of16.fadeTo(Design.fir(1.0, number));
                short[] out = new short[4800];
                Stream stream = new Stream(one, RATE, 2); // left to the collector
                for (int at = 0; at < 4800; at += 480) {
                    stream.process(speech, 20000 + at, out, at, 240);
                }
                assertArrayEquals(expected, out);
            }));
        }
        for (Future<?> each : all) {
            shared.process(new short[64]);
            of16.process(new short[64]);
            each.get();
        }
        threads.shutdown();
    }

    /** Of the thread's own allocations, and of the process's memory. */
    @Test
    public void aCallAllocatesNothing() throws IOException {
        com.sun.management.ThreadMXBean meter =
                (com.sun.management.ThreadMXBean) ManagementFactory.getThreadMXBean();
        long self = Thread.currentThread().getId();
        ShortBuffer direct =
                ByteBuffer.allocateDirect(960).order(ByteOrder.nativeOrder()).asShortBuffer();
        short[] block = new short[480];
        Stream stream = new Stream(Design.equaliser(RATE, "PK 1k 6 Q 2"), RATE, 2);
        Filter filter = new Filter(Design.fir(TAPS), 2);
        long allocated = 0, resident = 0;
        for (int i = 0; i < 200000; ++i) {
            if (i == 50000) {
                allocated = meter.getThreadAllocatedBytes(self);
                resident = residentKibibytes();
            }
            if (i % 4 == 0) stream.process(direct, direct, 48);
            stream.process(block, 0, block, 0, 24);
            filter.process(block, 0, block, 0, 24);
        }
        assertTrue(meter.getThreadAllocatedBytes(self) - allocated < 100000);
        assertTrue(residentKibibytes() - resident < 4096);

        // What nobody closes is freed: 20,000 filters of 55 KiB would be 1 GB.
        for (int i = 0; i < 20000; ++i) {
            new Filter(Design.fir(1.0), 1);
            if (i % 1000 == 0) System.gc();
        }
        System.gc();
        assertTrue(residentKibibytes() - resident < 300000);
        assertNotEquals("", Library.getVersion());
    }

    private static long residentKibibytes() throws IOException {
        for (String line : Files.readAllLines(Paths.get("/proc/self/status"))) {
            if (line.startsWith("VmRSS:")) return Long.parseLong(line.replaceAll("[^0-9]", ""));
        }
        throw new IOException("no VmRSS");
    }
}
