package org.quendel.oxli.impl;

/** An out-parameter of natives that receives an {@code int}. Not thread-safe. */
public final class IntRef {
  private int value;

  /** Stores a result. Called by native code. */
  public void set(int newValue) {
    value = newValue;
  }

  /** Returns the result that the native stored, or 0 if it stored none. */
  public int get() {
    return value;
  }
}
