package org.quendel.oxli;

/** Runs every step of a release, whatever fails in between. Confined to one thread. */
final class Releases {
  private Throwable first;

  void run(Runnable step) {
    try {
      step.run();
    } catch (RuntimeException | Error e) {
      if (first == null) {
        first = e;
      } else if (first != e) {
        first.addSuppressed(e);
      }
    }
  }

  /** Throws the first failure, with the others suppressed. */
  void finish() {
    if (first instanceof Error) throw (Error) first;
    if (first != null) throw (RuntimeException) first;
  }
}
