package org.quendel.oxli.ex.impl;

import org.quendel.oxli.impl.NativeLibrary;

/** A native with the same rules as those of {@link org.quendel.oxli.impl.OxliImpl}. */
public final class OxliImplEx {
  static {
    NativeLibrary.load();
  }

  private OxliImplEx() {}

  /**
   * Returns the pairs of settings as key, value, key, value, in byte order of the keys; null for
   * malformed settings, for null, and while the environment is closed.
   */
  public static native String[] settings_parse(String settings);
}
