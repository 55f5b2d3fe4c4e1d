package org.quendel.oxli.impl;

/**
 * Holds an address of native memory. Messages and out-parameters share this class because native
 * code both asks a holder for its address and gives it a new one, whichever of the two it is.
 */
public abstract class NativeRef {
  private long ref;

  /** For the holders of this library. */
  protected NativeRef() {}

  /** The address held, 0 when there is none. Also called by the library's native code. */
  public long getRef() {
    return ref;
  }

  /** Called by the library's native code; does not touch what the address points to. */
  public void set(long newRef) {
    ref = newRef;
  }
}
