package jurn.filter.desktop;

import java.io.ByteArrayInputStream;
import java.io.File;
import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.nio.file.Files;
import java.util.Arrays;
import javax.sound.sampled.AudioFileFormat;
import javax.sound.sampled.AudioFormat;
import javax.sound.sampled.AudioInputStream;
import javax.sound.sampled.AudioSystem;
import javax.sound.sampled.UnsupportedAudioFileException;
import jurn.filter.Design;
import jurn.filter.Stream;

/**
 * Filters a recording with an equaliser in words or with a coefficient file:
 *
 * <pre>{@code
 * java -jar jurn-filter.jar in.wav out.wav 'HP 80 order 4' 'PK 3k -4 Q 2'
 * java -jar jurn-filter.jar in.wav out.wav -c ParametricEQ.txt
 * }</pre>
 */
public final class FilterRecording {
    private static final int BLOCK = 256;

    private FilterRecording() {}

    /** Exit code 0, or 1 with a sentence. */
    public static void main(String[] arguments) {
        try {
            run(arguments);
        } catch (IOException | IllegalArgumentException | UnsupportedAudioFileException e) {
            System.err.println("jurn-filter.jar: " + e.getMessage());
            System.exit(1);
        }
    }

    private static void run(String[] arguments) throws IOException, UnsupportedAudioFileException {
        if (arguments.length < 3 || (arguments[2].equals("-c") && arguments.length != 4)) {
            throw new IllegalArgumentException(
                    "takes IN.wav OUT.wav and filters in words, or -c and a coefficient file");
        }
        File in = new File(arguments[0]);
        File out = new File(arguments[1]);
        if (!in.isFile()) {
            throw new IOException(in + " does not exist");
        }
        if (out.exists()) {
            throw new IOException(out + " exists; it is not overwritten");
        }
        try (AudioInputStream recording = AudioSystem.getAudioInputStream(in)) {
            AudioFormat format = recording.getFormat();
            if (format.getSampleSizeInBits() != 16
                    || format.getEncoding() != AudioFormat.Encoding.PCM_SIGNED) {
                throw new IllegalArgumentException(in + " is not of 16 bits but " + format);
            }
            int rate = Math.round(format.getSampleRate());
            int channels = format.getChannels();
            byte[] bytes = new byte[Math.toIntExact(recording.getFrameLength() * 2 * channels)];
            int got = 0;
            for (int n; got < bytes.length; got += n) {
                n = recording.read(bytes, got, bytes.length - got);
                if (n < 0) {
                    throw new IOException(in + " ends early");
                }
            }
            ByteOrder order =
                    format.isBigEndian() ? ByteOrder.BIG_ENDIAN : ByteOrder.LITTLE_ENDIAN;
            short[] samples = new short[bytes.length / 2];
            ByteBuffer.wrap(bytes).order(order).asShortBuffer().get(samples);

            Design design = designOf(arguments, rate);
            try (Stream stream = new Stream(design, rate, channels)) {
                int frames = samples.length / channels;
                for (int done = 0; done < frames; done += BLOCK) {
                    int at = done * channels;
                    stream.process(samples, at, samples, at, Math.min(BLOCK, frames - done));
                }
            }

            ByteBuffer.wrap(bytes).order(order).asShortBuffer().put(samples);
            AudioSystem.write(
                    new AudioInputStream(new ByteArrayInputStream(bytes), format,
                            samples.length / channels),
                    AudioFileFormat.Type.WAVE, out);
            System.out.println(
                    out + ": " + samples.length / channels + " frames of " + channels
                            + " channels at " + rate + " Hz through " + design);
        }
    }

    private static Design designOf(String[] arguments, int rate) throws IOException {
        if (!arguments[2].equals("-c")) {
            return Design.equaliser(rate, Arrays.copyOfRange(arguments, 2, arguments.length));
        }
        File file = new File(arguments[3]);
        return Design.read(arguments[3], Files.readAllBytes(file.toPath()), rate);
    }
}
