// Java's Stream, from standard input to standard output, changed by another thread.
import java.io.DataInputStream;
import java.io.OutputStream;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.nio.FloatBuffer;
import jurn.filter.Design;
import jurn.filter.Stream;

final class Soak {
    public static void main(String[] arguments) throws Exception {
        Design[] designs = {
            Design.equaliser(16000, "PK 1000 6 Q 1"),
            Design.equaliser(16000, "LS 200 -4", "HP 30"),
            Design.equaliser(16000, "HS 5000 3")
        };
        Stream stream = new Stream(designs[0], 16000, 1);
        Thread changer = new Thread(() -> {
            for (int i = 1;; ++i) {
                try {
                    Thread.sleep(1000);
                } catch (InterruptedException e) {
                    return;
                }
                stream.fadeTo(designs[i % designs.length], 1600);
            }
        });
        changer.setDaemon(true);
        changer.start();
        DataInputStream in = new DataInputStream(System.in);
        OutputStream out = System.out;
        byte[] bytes = new byte[6400 * 4];
        FloatBuffer samples = ByteBuffer.wrap(bytes).order(ByteOrder.LITTLE_ENDIAN).asFloatBuffer();
        float[] block = new float[6400];
        for (;;) {
            in.readFully(bytes);
            samples.rewind();
            samples.get(block);
            stream.process(block);
            samples.rewind();
            samples.put(block);
            out.write(bytes);
            out.flush();
        }
    }
}
