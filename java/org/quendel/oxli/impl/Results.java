package org.quendel.oxli.impl;

import org.quendel.oxli.OxliException;
import org.quendel.oxli.ResultCode;

/** Makes exceptions of result codes, and the names that objects have in them. */
public final class Results {
  private static final int MAX_SETTINGS = 60;
  private static final String LOG_HINT =
      "; the stand-in gateway writes its log if the environment's settings contain log=stderr";

  private Results() {}

  /**
   * Returns if the code is {@link ResultCode#OK}.
   *
   * @param operation what was called, such as "Publisher.post"
   * @param object what it was called on; shown by its {@code toString}
   * @throws OxliException otherwise
   */
  public static void check(String operation, Object object, int code) {
    if (code != ResultCode.OK) throw failure(operation, object, code);
  }

  /** Returns the exception for an operation that failed with a code of the gateway. */
  public static OxliException failure(String operation, Object object, int code) {
    final String name = ResultCode.nameOf(code);
    final String meaning = String.valueOf(OxliImpl.err_getstr(code));
    // The gateway's string may begin with the name.
    return new OxliException(operation + " (" + object + "): "
        + (meaning.startsWith(name) ? meaning : name + ": " + meaning) + inHex(code) + LOG_HINT,
        code);
  }

  /** Returns " (0x20001)" for that code. */
  public static String inHex(int code) {
    return " (0x" + Integer.toHexString(code) + ')';
  }

  /** Returns the name of an object by its kind and the beginning of its settings. */
  public static String nameOf(String kind, String settings) {
    if (settings.isEmpty()) return kind;
    return kind + ' ' + (settings.length() <= MAX_SETTINGS ? settings
        : settings.substring(0, MAX_SETTINGS) + "...");
  }
}
