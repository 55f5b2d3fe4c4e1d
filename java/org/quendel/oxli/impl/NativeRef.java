package org.quendel.oxli.impl;

/**
 * Holds an address of native memory. Messages, z-blocks and out-parameters share this superclass,
 * because native code reads and sets the address of all three through the same two methods.
 */
public abstract class NativeRef {
  private long ref;

  /** For the classes of this library. */
  protected NativeRef() {}

  /** Returns the address, or 0 if there is none. Native code calls it too, whatever its access. */
  protected long getRef() {
    return ref;
  }

  /** Sets the address. Native code calls it too, whatever its access. */
  protected void set(long newRef) {
    ref = newRef;
  }
}
