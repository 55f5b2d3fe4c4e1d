package org.quendel.oxli;

import java.util.function.IntSupplier;

/**
 * Serialises, in the whole process, the natives that make, open, close and destroy connections and
 * listeners. Each of these natives locks a process-wide mutex during its gateway call. The gateway
 * call may call {@code onMessage}, which may call natives that lock other mutexes. Without this
 * lock, two threads could lock the mutexes in different orders and wait for each other for ever.
 *
 * <p>Lock order of the package: a thread that has locked one of these locks may lock only locks
 * that follow it in this list.
 *
 * <ol>
 *   <li>the delivery lock of a connection ({@link Connection}),
 *   <li>this lock,
 *   <li>the handle lock of a connection or listener, which is never locked during a native that
 *       delivers messages,
 *   <li>the lock of a publisher, z-block or environment.
 * </ol>
 *
 * <p>Inside {@code onMessage} a thread has locked some of these locks, and may lock any of them.
 * {@link ISubscriber} lists the deadlocks that are possible then.
 */
final class GatewayLock {
  private static final VisibleLock LOCK = new VisibleLock(false);

  private GatewayLock() {}

  /** Adds the thread that has locked this lock to the dump. */
  static void dump(Dump dump) {
    dump.addOwner(LOCK, "a call that opens, shuts, closes or makes a connection or listener");
  }

  /** Runs the native inside the lock and returns its result. */
  static int call(IntSupplier nativeCall) {
    LOCK.lock();
    try {
      return nativeCall.getAsInt();
    } finally {
      LOCK.unlock();
    }
  }
}
