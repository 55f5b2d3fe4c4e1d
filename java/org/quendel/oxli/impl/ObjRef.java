package org.quendel.oxli.impl;

/** An out-parameter of natives that receives a handle or an address. Not thread-safe. */
public final class ObjRef extends NativeRef {
  /** Returns the result that the native stored, or 0 if it stored none. */
  @Override
  public long getRef() {
    return super.getRef();
  }
}
