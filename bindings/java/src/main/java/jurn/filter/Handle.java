package jurn.filter;

import java.lang.ref.PhantomReference;
import java.lang.ref.ReferenceQueue;
import java.util.Collections;
import java.util.Set;
import java.util.concurrent.ConcurrentHashMap;
import java.util.concurrent.atomic.AtomicInteger;

/**
 * The native side of an object. It is freed once, when the object is closed or found to be
 * unreachable, and by whichever thread leaves it last: never under a call that runs.
 */
final class Handle extends PhantomReference<Object> {
    private static final ReferenceQueue<Object> UNREACHABLE = new ReferenceQueue<>();
    private static final Set<Handle> ALL =
            Collections.newSetFromMap(new ConcurrentHashMap<Handle, Boolean>());

    private static final int CLOSED = 1;
    private static final int RUNNING = 2; // a thread has it for itself
    private static final int USER = 4; // for each thread that offers something

    private final long address;
    private final AtomicInteger state = new AtomicInteger();

    static {
        Thread reaper =
                new Thread("jurn-reaper") {
                    @Override
                    public void run() {
                        while (true) {
                            try {
                                ((Handle) UNREACHABLE.remove()).close();
                            } catch (InterruptedException e) {
                                return;
                            }
                        }
                    }
                };
        reaper.setDaemon(true);
        reaper.start();
    }

    Handle(Object owner, long address) {
        super(owner, UNREACHABLE);
        this.address = address;
        ALL.add(this);
    }

    /** Takes the object for this thread alone; {@link #leave} follows. */
    long enter() {
        return enter(RUNNING);
    }

    void leave() {
        leave(RUNNING);
    }

    /** Keeps the object while another thread may run it. */
    long share() {
        return enter(USER);
    }

    void unshare() {
        leave(USER);
    }

    void close() {
        while (true) {
            int now = state.get();
            if ((now & CLOSED) != 0) {
                return;
            }
            if (state.compareAndSet(now, now | CLOSED)) {
                if (now == 0) {
                    free();
                }
                return;
            }
        }
    }

    private long enter(int how) {
        while (true) {
            int now = state.get();
            if ((now & CLOSED) != 0) {
                throw new IllegalStateException("the object is closed");
            }
            if (how == RUNNING && (now & RUNNING) != 0) {
                throw new IllegalStateException(
                        "the object runs on another thread; take one for each thread");
            }
            if (state.compareAndSet(now, now + how)) {
                return address;
            }
        }
    }

    private void leave(int how) {
        if (state.addAndGet(-how) == CLOSED) {
            free();
        }
    }

    private void free() {
        ALL.remove(this);
        Native.free(address);
    }
}
