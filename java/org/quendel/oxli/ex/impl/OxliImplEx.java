package org.quendel.oxli.ex.impl;

import org.quendel.oxli.impl.NativeLibrary;

/** Declares the native that parses settings. */
public final class OxliImplEx {
  static {
    NativeLibrary.load();
  }

  private OxliImplEx() {}

  /**
   * Returns the pairs of settings as key, value, key, value, in the order of the keys' bytes.
   * Returns null for malformed settings, for null, if memory is missing, and while the environment
   * is closed.
   */
  public static native String[] settings_parse(String settings);
}
