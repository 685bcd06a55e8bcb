// Java's Stream, from standard input to standard output.
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
        DataInputStream in = new DataInputStream(System.in);
        OutputStream out = System.out;
        byte[] bytes = new byte[6400 * 4];
        FloatBuffer samples = ByteBuffer.wrap(bytes).order(ByteOrder.LITTLE_ENDIAN).asFloatBuffer();
        float[] block = new float[6400];
        for (int count = 1;; ++count) {
            in.readFully(bytes);
            samples.rewind();
            samples.get(block);
            if (count % 3 == 0) stream.fadeTo(designs[count / 3 % designs.length], 1600);
            stream.process(block);
            samples.rewind();
            samples.put(block);
            out.write(bytes);
            out.flush();
        }
    }
}
