package org.quendel.oxli.impl;

/** Receives an {@code int} result of a native. Confined to the calling thread. */
public final class IntRef {
  private int value;

  /** Called by the library's native code. */
  public void set(int newValue) {
    value = newValue;
  }

  /** What the native stored; 0 before. */
  public int get() {
    return value;
  }
}
