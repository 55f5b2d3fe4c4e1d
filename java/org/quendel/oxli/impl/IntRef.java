package org.quendel.oxli.impl;

/** The out-parameter of a native that returns an {@code int}. Not thread-safe. */
public final class IntRef {
  private int value;

  /** Called by native code. */
  public void set(int newValue) {
    value = newValue;
  }

  /** Returns what the native stored, or 0 if it stored nothing. */
  public int get() {
    return value;
  }
}
