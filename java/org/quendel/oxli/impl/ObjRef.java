package org.quendel.oxli.impl;

/** Receives a handle or an address from a native. Confined to the calling thread. */
public final class ObjRef extends NativeRef {}
