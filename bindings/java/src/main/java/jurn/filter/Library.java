package jurn.filter;

/** The library behind the objects. */
public final class Library {
    private Library() {}

    /** Its version. */
    public static String getVersion() {
        return Native.text(Native.version());
    }
}
