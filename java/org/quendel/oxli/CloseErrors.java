package org.quendel.oxli;

/** Collects what the steps of a close throw, so that each step runs. Not thread-safe. */
final class CloseErrors {
  private Throwable first;

  /** Runs a step. */
  void run(Runnable step) {
    try {
      step.run();
    } catch (Throwable e) { // Java lets subscribers throw checked exceptions undeclared
      if (first == null) {
        first = e;
      } else if (first != e) {
        first.addSuppressed(e);
      }
    }
  }

  /** Throws what the first failed step threw, with the others suppressed; else returns. */
  void throwFirst() {
    if (first != null) CloseErrors.<RuntimeException>throwUndeclared(first);
  }

  @SuppressWarnings("unchecked")
  private static <T extends Throwable> void throwUndeclared(Throwable e) throws T {
    throw (T) e;
  }
}
