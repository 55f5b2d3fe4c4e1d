package org.quendel.oxli;

import java.util.concurrent.locks.ReentrantLock;
import java.util.function.IntSupplier;
import org.quendel.oxli.impl.Results;

/**
 * Runs the natives that bind, open, close and release connections and listeners: one at a time in
 * the process. Each of them holds a process-wide native lock during its gateway call, and what {@code
 * onMessage} calls meanwhile takes others; two threads that took them in different orders would wait
 * for each other for ever.
 */
final class Bindings {
  /** Taken after the lock of the connection that the call is on. */
  private static final ReentrantLock LOCK = new ReentrantLock();

  private Bindings() {}

  /**
   * Runs the native; returns when its result is {@link ResultCode#OK}.
   *
   * @throws OxliException otherwise
   */
  static void check(String operation, IntSupplier call) {
    LOCK.lock();
    try {
      Results.check(operation, call.getAsInt());
    } finally {
      LOCK.unlock();
    }
  }
}
