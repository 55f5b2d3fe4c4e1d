package org.quendel.oxli.impl;

/**
 * Contains an address of native memory. Messages, z-blocks and {@link ObjRef} have this superclass,
 * because native code reads and sets the address of all three with the same two methods.
 */
public abstract class NativeRef {
  private long ref;

  /** Called by the subclasses in this library. */
  protected NativeRef() {}

  /** Returns the address, or 0 if there is none. Native code calls it, too. */
  protected long getRef() {
    return ref;
  }

  /** Sets the address. Native code calls it, too. */
  protected void set(long newRef) {
    ref = newRef;
  }
}
