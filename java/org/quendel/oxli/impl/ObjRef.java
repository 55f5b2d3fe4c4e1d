package org.quendel.oxli.impl;

/** Receives a handle or an address from a native. Confined to the calling thread. */
public final class ObjRef extends NativeRef {
  /** What the native stored, 0 when it stored nothing. */
  @Override
  public long getRef() {
    return super.getRef();
  }
}
