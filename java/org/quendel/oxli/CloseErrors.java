package org.quendel.oxli;

/**
 * Runs steps, each even if an earlier one throws, and collects what they throw. Not thread-safe.
 */
final class CloseErrors {
  private Throwable first;

  /** Runs a step and collects its exception, if any. */
  void run(Runnable step) {
    try {
      step.run();
    } catch (Throwable e) { // subscribers can throw undeclared checked exceptions, too
      if (first == null) {
        first = e;
      } else if (first != e) {
        first.addSuppressed(e);
      }
    }
  }

  /**
   * Throws the first exception collected, to which the later ones are added as suppressed
   * exceptions. Returns if there is none.
   */
  void throwFirst() {
    if (first != null) CloseErrors.<RuntimeException>throwUndeclared(first);
  }

  @SuppressWarnings("unchecked")
  private static <T extends Throwable> void throwUndeclared(Throwable e) throws T {
    throw (T) e;
  }
}
