package org.quendel.oxli.impl;

import org.quendel.oxli.OxliException;
import org.quendel.oxli.ResultCode;

/** The one place where result codes of natives become exceptions. */
public final class Results {
  private Results() {}

  /**
   * Returns when the code is {@link ResultCode#OK}.
   *
   * @throws OxliException otherwise
   */
  public static void check(String operation, int code) {
    if (code != ResultCode.OK) throw failure(operation, code);
  }

  /** The exception for a failed operation: the code's name and number and the gateway's text. */
  public static OxliException failure(String operation, int code) {
    final String name = ResultCode.nameOf(code);
    final String text = String.valueOf(OxliImpl.err_getstr(code));
    // The gateway's text may begin with the name.
    return new OxliException(operation + ": " + (text.startsWith(name) ? text : name + ": " + text)
        + " (0x" + Integer.toHexString(code) + ')', code);
  }
}
