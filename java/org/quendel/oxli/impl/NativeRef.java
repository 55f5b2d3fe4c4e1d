package org.quendel.oxli.impl;

/**
 * Holds an address of native memory. Messages and out-parameters share this class because native
 * code asks a holder for its address and gives it a new one without telling the two apart.
 */
public abstract class NativeRef {
  private long ref;

  /** For the holders of this library. */
  protected NativeRef() {}

  /** The address held, 0 when there is none. Also called by native code, whatever the access. */
  protected long getRef() {
    return ref;
  }

  /** Called by native code, whatever the access; does not touch what the address points to. */
  protected void set(long newRef) {
    ref = newRef;
  }
}
