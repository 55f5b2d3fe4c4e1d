package org.quendel.oxli.impl;

/** The out-parameter of a native that returns a handle or an address. Not thread-safe. */
public final class ObjRef extends NativeRef {
  /** Returns what the native stored, or 0 if it stored nothing. */
  @Override
  public long getRef() {
    return super.getRef();
  }
}
