package org.quendel.oxli.ex.impl;

import org.quendel.oxli.impl.NativeLibrary;

/** A native beside those of {@link org.quendel.oxli.impl.OxliImpl}, under the same rules. */
public final class OxliImplEx {
  static {
    NativeLibrary.load();
  }

  private OxliImplEx() {}

  /**
   * The pairs of a settings text as key, value, key, value, in byte order of the keys; null for a
   * malformed text, for null, and while the environment is closed.
   */
  public static native String[] settings_parse(String settings);
}
