package org.quendel.oxli;

import java.util.function.IntSupplier;

/**
 * Serialises, in the whole process, the natives that make, open, close and release connections and
 * listeners. Each of them has a process-wide native mutex locked during its gateway call, and what
 * {@code onMessage} calls meanwhile locks others: two threads that locked them in different orders
 * would wait for each other for ever.
 *
 * <p>Lock order of the package; a thread that has locked one locks only those after it:
 *
 * <ol>
 *   <li>the delivery lock of a connection ({@link Connection}),
 *   <li>this lock,
 *   <li>the handle lock of a connection or listener, which is never locked during a native that
 *       delivers messages,
 *   <li>the lock of a publisher, z-block or environment.
 * </ol>
 *
 * <p>Inside {@code onMessage} a thread has locked some of these and may lock each again: {@link
 * ISubscriber} says what can deadlock.
 */
final class GatewayLock {
  private static final VisibleLock LOCK = new VisibleLock(false);

  private GatewayLock() {}

  /** Adds the thread inside to the dump. */
  static void dump(Dump dump) {
    dump.addOwner(LOCK, "a call that opens, shuts, closes or makes a connection or listener");
  }

  /** Returns the result of the native. */
  static int call(IntSupplier nativeCall) {
    LOCK.lock();
    try {
      return nativeCall.getAsInt();
    } finally {
      LOCK.unlock();
    }
  }
}
